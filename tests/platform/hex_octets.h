// Octets from their hexadecimal text, blanks ignored.

#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

inline std::vector<std::byte> hex_octets(std::string_view text) {
  std::vector<std::byte> octets;
  bool half = false;
  for (const char c : text) {
    const std::size_t value = std::string_view("0123456789abcdef").find(c);
    if (value == std::string_view::npos)
      continue;
    if (half)
      octets.back() |= static_cast<std::byte>(value);
    else
      octets.push_back(static_cast<std::byte>(value << 4));
    half = !half;
  }
  return octets;
}
