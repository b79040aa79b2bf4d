// SPDX-License-Identifier: Apache-2.0
// One JSON object (RFC 8259) on one line.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ztsys {

// Names of members are ours and stand as they are.
class JsonObject {
 public:
  // With a blank behind colons and commas, as people like it, or without.
  explicit JsonObject(bool blanks = true) : blank_(blanks ? " " : "") {}

  // Bytes that are not UTF-8 become U+FFFD, a character for each.
  void Text(std::string_view name, std::string_view value);
  void Number(std::string_view name, std::int64_t value);
  void Truth(std::string_view name, bool value);
  void Null(std::string_view name);

  void Raw(std::string_view name, std::string_view json);  // a value that is JSON already

  std::string Take();  // the finished object

 private:
  void Name(std::string_view name);

  const char* blank_;
  std::string text_ = "{";
};

}  // namespace ztsys
