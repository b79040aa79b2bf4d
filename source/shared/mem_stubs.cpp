// SPDX-License-Identifier: Apache-2.0
#include "source/shared/mem_stubs.h"

#include <cstdlib>

void* MIDL_user_allocate(std::size_t size) {
  return std::malloc(size);
}

void MIDL_user_free(void* block) {
  std::free(block);
}
