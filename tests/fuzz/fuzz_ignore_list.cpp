// SPDX-License-Identifier: Apache-2.0
// The ignore list's reader, and its scanners with small limits.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "shared/dce/ncs2dce.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  std::vector<char> text(data, data + size);
  std::FILE* stream = ::fmemopen(text.data(), text.size(), "r");
  if (stream == nullptr)
    std::abort();
  std::size_t names = 0;
  while (const auto name = ept_NextIgnoredName(stream)) {
    if (name->empty() || ++names > size)
      std::abort();
  }
  std::rewind(stream);
  const int most = data[0] % 20;
  std::string line, token;
  while (const int length = ept_CopyToNewLine(line, stream, most)) {
    int position = 0;
    if (length > most + 1 || ept_GetToken(line.c_str(), token, position, most) > most ||
        position > length)
      std::abort();
  }
  std::fclose(stream);
  return 0;
}
