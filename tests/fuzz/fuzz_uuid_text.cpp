// SPDX-License-Identifier: Apache-2.0
// Texts of UUIDs: what is read is written as the same digits.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/rpc/rpc.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  const std::optional<uuid_t> uuid = rpc::uuid_from_text(text);
  if (!uuid)
    return 0;
  for (char& c : text)
    c = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
  if (rpc::uuid_to_text(*uuid) != text)
    std::abort();
  return 0;
}
