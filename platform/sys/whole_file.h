// SPDX-License-Identifier: Apache-2.0
// Copies that nobody ever sees half: written under a name of their own in the folder of the target,
// through to the device, and then renamed.

#pragma once

#include <string>

namespace sys {

enum class Replace { kNo, kYes };

// Copies a plain file with its permissions. 0, or an errno: EEXIST when the target is there and is
// not to be replaced. Paths are the product's.
int CopyWholeFile(const std::string& from, const std::string& to, Replace replace);

}  // namespace sys
