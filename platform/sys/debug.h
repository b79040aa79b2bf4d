// SPDX-License-Identifier: Apache-2.0
// The workstation's debugger output; here, standard error.

#pragma once

namespace sys {

// Writes the text as it is and flushes.
void OutputDebugStringA(const char* text);

}  // namespace sys
