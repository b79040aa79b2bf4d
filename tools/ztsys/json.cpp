// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/json.h"

#include "platform/sys/printable.h"

namespace ztsys {

void JsonObject::Name(std::string_view name) {
  if (text_.size() > 1)
    text_.append(",").append(blank_);
  text_.append("\"").append(name).append("\":").append(blank_);
}

void JsonObject::Text(std::string_view name, std::string_view value) {
  Name(name);
  text_ += sys::json_quoted(value);
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
