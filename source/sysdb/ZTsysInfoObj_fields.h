// SPDX-License-Identifier: Apache-2.0
// The fields of records in memory: texts of fixed size, codes of types.

#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

inline constexpr std::array<const char*, 7> kSystemCodes = {"ALDER",  "ALDRDT", "Birch", "BIRDT",
                                                            "CDR/XS", "DNX",    "DNXDT"};

// Fills a text field, cut to its size, zero behind the text.
template <std::size_t size>
void StoreText(char (&field)[size], std::string_view text) {
  const std::size_t length = std::min(text.size(), size - 1);
  std::fill(std::copy_n(text.data(), length, field), field + size, '\0');
}

// Ends the text of a field inside it, with zeros behind.
template <std::size_t size>
void EndText(char (&field)[size]) {
  std::fill(field + strnlen(field, size - 1), field + size, '\0');
}

// The text of a field that may come from a damaged file, without a terminator.
template <std::size_t size>
std::string_view FieldText(const char (&field)[size]) {
  return {field, strnlen(field, size)};
}
