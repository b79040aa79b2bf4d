// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/printable.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace sys {

namespace {

bool is_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || (byte >= 0x7F && byte <= 0x9F);
}

// Of a character in UTF-8, or a byte that is none.
bool is_control(std::string_view character) {
  return character.size() == 1 ? is_control(character[0])
                               : character[0] == '\xC2' && is_control(character[1]);
}

bool is_plain_in_json(char c) {
  return c >= ' ' && c < '\x7f' && c != '"' && c != '\\';
}

}  // namespace

std::size_t utf8_length(std::string_view text) {
  struct Form {
    unsigned char first, last;  // of the leading byte
    unsigned char low, high;    // of the second byte
    std::size_t length;
  };
  static constexpr std::array<Form, 8> kForms = {{{0xC2, 0xDF, 0x80, 0xBF, 2},
                                                  {0xE0, 0xE0, 0xA0, 0xBF, 3},
                                                  {0xE1, 0xEC, 0x80, 0xBF, 3},
                                                  {0xED, 0xED, 0x80, 0x9F, 3},
                                                  {0xEE, 0xEF, 0x80, 0xBF, 3},
                                                  {0xF0, 0xF0, 0x90, 0xBF, 4},
                                                  {0xF1, 0xF3, 0x80, 0xBF, 4},
                                                  {0xF4, 0xF4, 0x80, 0x8F, 4}}};
  const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  if (text.empty())
    return 0;
  if (byte(0) < 0x80)
    return 1;
  for (const Form& form : kForms) {
    if (byte(0) < form.first || byte(0) > form.last)
      continue;
    if (text.size() < form.length || byte(1) < form.low || byte(1) > form.high)
      return 0;
    for (std::size_t at = 2; at < form.length; ++at)
      if ((byte(at) & 0xC0) != 0x80)
        return 0;
    return form.length;
  }
  return 0;
}

std::string printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    // 0x7f in an encoding longer than need be, whose octets are no controls by themselves.
    if (text.starts_with("\xC1\xBF")) {
      result += "\xC1?";
      text.remove_prefix(2);
      continue;
    }
    const auto character = text.substr(0, std::max<std::size_t>(utf8_length(text), 1));
    if (is_control(character))
      result += '?';
    else
      result += character;
    text.remove_prefix(character.size());
  }
  return result;
}

std::string json_quoted(std::string_view text) {
  std::string result = "\"";
  while (!text.empty()) {
    const auto plain = static_cast<std::size_t>(
        std::find_if_not(text.begin(), text.end(), is_plain_in_json) - text.begin());
    result += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty())
      break;
    const std::size_t length = utf8_length(text);
    const auto character = text.substr(0, std::max<std::size_t>(length, 1));
    if (length == 0) {
      result += "\\ufffd";
    } else if (character == "\"" || character == "\\") {
      (result += '\\') += character;
    } else if (is_control(character)) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x",
                    static_cast<unsigned>(static_cast<unsigned char>(character.back())));
      result += escape;
    } else {
      result += character;
    }
    text.remove_prefix(character.size());
  }
  return result + '"';
}

}  // namespace sys
