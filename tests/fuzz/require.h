// SPDX-License-Identifier: Apache-2.0
// Promises of the code under a fuzz target.

#pragma once

#include <cstddef>
#include <cstdlib>
#include <string_view>

namespace fuzz {

inline void require(bool holds) {
  if (!holds)
    std::abort();
}

// Nothing that a terminal takes for a control character: below 0x20, 0x7f, and 0x80 to 0x9f, as
// octets, as UTF-8, or as UTF-8 that is longer than need be, which some decoders accept.
inline bool is_printable(std::string_view text, std::string_view allowed = "") {
  const auto octet = [&](std::size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
  };
  for (std::size_t at = 0; at < text.size(); ++at) {
    const unsigned lead = octet(at);
    if (lead < 0x80) {
      if ((lead < 0x20 || lead == 0x7F) && allowed.find(text[at]) == std::string_view::npos)
        return false;
      continue;
    }
    const std::size_t more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
    unsigned code = lead & (0x3FU >> more);
    std::size_t taken = 0;
    while (taken < more && (octet(at + taken + 1) & 0xC0) == 0x80)
      code = code << 6 | (octet(at + ++taken) & 0x3F);
    const bool whole = more != 0 && taken == more;
    if (whole && (code < 0x20 || (code >= 0x7F && code <= 0x9F)))
      return false;
    constexpr unsigned kLeast[] = {0, 0x80, 0x800, 0x10000};
    if (whole && lead < 0xF8 && code >= kLeast[more] && code <= 0x10FFFF && code >> 11 != 0x1B)
      at += more;
    else if (lead <= 0x9F)
      return false;
  }
  return true;
}

}  // namespace fuzz
