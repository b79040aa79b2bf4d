// SPDX-License-Identifier: Apache-2.0
// The substitution of a parameter in a catalog's text, over any text and parameter (the input's
// parts before and behind its first zero).

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "shared/general/SHNLSmsg.h"
#include "tests/fuzz/require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t zero = input.find('\0');
  const std::string_view text = input.substr(0, zero);
  const std::string_view parameter =
      zero == std::string_view::npos ? std::string_view{} : input.substr(zero + 1);

  const std::string result = NLS_MESSAGE_OBJ::SubstituteParameter(text, parameter);
  const std::string plain = NLS_MESSAGE_OBJ::SubstituteParameter(text, "");
  const std::size_t marker = plain.find('!');
  if (parameter.empty() || marker == std::string::npos) {
    fuzz::require(result == plain);
    return 0;
  }
  // What stands around the first marker stays, and a beginning of the parameter is between.
  const std::string_view before = std::string_view(plain).substr(0, marker);
  const std::string_view behind = std::string_view(plain).substr(marker + 1);
  fuzz::require(result.size() >= before.size() + behind.size());
  fuzz::require(result.starts_with(before) && result.ends_with(behind));
  const std::string_view between =
      std::string_view(result).substr(before.size(), result.size() - before.size() - behind.size());
  fuzz::require(parameter.starts_with(between) && !between.empty());
  fuzz::require(parameter.substr(between.size()).find_first_not_of(' ') == std::string_view::npos);
  return 0;
}
