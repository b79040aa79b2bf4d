// SPDX-License-Identifier: Apache-2.0
// What a piece of code prints to standard output and standard error, without a file.

#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "tests/fuzz/require.h"

namespace fuzz {

template <typename Code>
std::string printed(const Code& code) {
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* const memory = ::open_memstream(&text, &size);
  require(memory != nullptr);
  std::FILE* const out = std::exchange(stdout, memory);
  std::FILE* const err = std::exchange(stderr, memory);
  code();
  stdout = out;
  stderr = err;
  std::fclose(memory);
  std::string result(text, size);
  std::free(text);
  return result;
}

}  // namespace fuzz
