// SPDX-License-Identifier: Apache-2.0
// The settings file: a registry export as text (.reg). Bytes in, keys and values out; docs/formats/
// settings-file.md describes the format.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace registry {

// A larger file is refused whole.
inline constexpr std::size_t kLargestFile = 1024 * 1024;

// Kinds of value, by the numbers that hex(...) uses.
enum ValueType : std::uint32_t {
  REG_NONE = 0,
  REG_SZ = 1,
  REG_EXPAND_SZ = 2,
  REG_BINARY = 3,
  REG_DWORD = 4,
  REG_MULTI_SZ = 7,
};

// Names compare without case (ASCII letters only).
struct NameLess {
  using is_transparent = void;
  bool operator()(std::string_view left, std::string_view right) const;
};

// A text as UTF-8 without terminator, any other value as its bytes (a number: little-endian).
struct Value {
  std::uint32_t type = REG_NONE;
  std::string data;
};

using Key = std::map<std::string, Value, NameLess>;  // the key's values; "" is the default value
using Tree = std::map<std::string, Key, NameLess>;   // keys by path, HKEY_... first

struct Complaint {
  std::size_t line;  // from 1; 0: the file as a whole
  std::string text;
};

struct ParsedFile {
  Tree keys;                          // with every key's parents
  std::vector<Complaint> complaints;  // kMostComplaints, and one that says that there are more
};
inline constexpr std::size_t kMostComplaints = 20;

// Reads a whole file. Malformed lines are skipped with a complaint.
ParsedFile parse_registry_file(std::span<const std::byte> bytes);

}  // namespace registry
