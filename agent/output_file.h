// SPDX-License-Identifier: Apache-2.0
// Files that appear whole: with everything in them, or not at all.

#pragma once

#include <string>

namespace agent {

// False, with errno, when it cannot be written. What is there and no plain file, a pipe or a
// terminal, is written to as it is.
bool write_whole(const std::string& path, const std::string& text);

}  // namespace agent
