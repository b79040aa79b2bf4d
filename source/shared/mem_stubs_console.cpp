// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): the stubs' memory.

#include <cstdlib>

#include "source/shared/mem_stubs.h"

void* MIDL_user_allocate(std::size_t size) {
  return std::malloc(size);
}

void MIDL_user_free(void* block) {
  std::free(block);
}
