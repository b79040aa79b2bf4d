#include "source/support/ZTprintable.h"

#include <cstddef>

namespace {

bool is_continuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

// The length of the well-formed UTF-8 sequence that starts at `at`, 0 for none and for a lone byte
// below 0x80.
std::size_t multibyte_length(std::string_view text, std::size_t at) {
  const auto lead = static_cast<unsigned char>(text[at]);
  std::size_t length = 0;
  if (lead >= 0xC2 && lead <= 0xDF)
    length = 2;
  else if (lead >= 0xE0 && lead <= 0xEF)
    length = 3;
  else if (lead >= 0xF0 && lead <= 0xF4)
    length = 4;
  if (length == 0 || at + length > text.size())
    return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if (!is_continuation(static_cast<unsigned char>(text[at + i])))
      return 0;
  }
  return length;
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const std::size_t length = multibyte_length(text, at);
    const bool second_controls =
        length == 2 && byte == 0xC2 && static_cast<unsigned char>(text[at + 1]) <= 0x9F;
    if (length != 0 && !second_controls) {
      result.append(text, at, length);
    } else {
      const bool control = byte < 0x20 || (byte >= 0x7F && byte <= 0x9F) || second_controls;
      result += control ? '?' : static_cast<char>(byte);
    }
    at += length == 0 ? 1 : length;
  }
  return result;
}
