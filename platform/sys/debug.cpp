// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/debug.h"

#include <cstdio>

namespace sys {

void OutputDebugStringA(const char* text) {
  std::fputs(text, stderr);
  std::fflush(stderr);
}

}  // namespace sys
