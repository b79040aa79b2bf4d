// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/json.h"

#include <algorithm>
#include <cstdio>

#include "source/support/ZTprintable.h"

namespace ztsys {

namespace {

bool IsPlain(char c) {
  return c >= ' ' && c < '\x7f' && c != '"' && c != '\\';
}

void AppendQuoted(std::string& result, std::string_view text) {
  result += '"';
  const auto special = std::find_if_not(text.begin(), text.end(), IsPlain);
  const auto plain = static_cast<std::size_t>(special - text.begin());
  result += text.substr(0, plain);
  text.remove_prefix(plain);
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    const auto c = static_cast<unsigned char>(text[0]);
    if (length == 0) {
      result += "\\ufffd";
    } else if (c == '"' || c == '\\') {
      result += '\\';
      result += text[0];
    } else if (printable(text.substr(0, length)) != text.substr(0, length)) {
      const unsigned control = length == 1 ? c : static_cast<unsigned char>(text[1]);
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", control);
      result += escape;
    } else {
      result += text.substr(0, length);
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  result += '"';
}

}  // namespace

void JsonObject::Name(std::string_view name) {
  if (text_.size() > 1)
    text_.append(",").append(blank_);
  text_.append("\"").append(name).append("\":").append(blank_);
}

void JsonObject::Text(std::string_view name, std::string_view value) {
  Name(name);
  AppendQuoted(text_, value);
}

void JsonObject::Number(std::string_view name, std::int64_t value) {
  Name(name);
  text_ += std::to_string(value);
}

void JsonObject::Truth(std::string_view name, bool value) {
  Name(name);
  text_ += value ? "true" : "false";
}

void JsonObject::Null(std::string_view name) {
  Name(name);
  text_ += "null";
}

void JsonObject::Raw(std::string_view name, std::string_view json) {
  Name(name);
  text_ += json;
}

std::string JsonObject::Take() {
  return text_ + '}';
}

}  // namespace ztsys
