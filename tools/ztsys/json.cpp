#include "tools/ztsys/json.h"

#include <array>
#include <cstdio>

namespace ztsys {

namespace {

// Length of the UTF-8 sequence that the text starts with (RFC 3629, section 4); 0 when it starts
// with none.
std::size_t SequenceLength(std::string_view text) {
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

std::string Quoted(std::string_view text) {
  std::string result = "\"";
  while (!text.empty()) {
    const std::size_t length = SequenceLength(text);
    const auto c = static_cast<unsigned char>(text[0]);
    if (length == 0) {
      result += "\\ufffd";
    } else if (c == '"' || c == '\\') {
      result += '\\';
      result += text[0];
    } else if (c < 0x20 || c == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", c);
      result += escape;
    } else {
      result += text.substr(0, length);
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return result + '"';
}

}  // namespace

void JsonObject::Name(std::string_view name) {
  if (text_.size() > 1)
    text_ += ", ";
  text_ += Quoted(name) + ": ";
}

void JsonObject::Text(std::string_view name, std::string_view value) {
  Name(name);
  text_ += Quoted(value);
}

void JsonObject::Number(std::string_view name, std::int64_t value) {
  Name(name);
  text_ += std::to_string(value);
}

void JsonObject::Truth(std::string_view name, bool value) {
  Name(name);
  text_ += value ? "true" : "false";
}

std::string JsonObject::Take() {
  return text_ + '}';
}

}  // namespace ztsys
