// SPDX-License-Identifier: Apache-2.0
// The memory hooks that the interfaces' definition names for client stubs.

#pragma once

#include <cstddef>

// The C library's malloc and free: null when there is no memory; null may be freed.
void* MIDL_user_allocate(std::size_t size);
void MIDL_user_free(void* block);
