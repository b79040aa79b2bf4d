// SPDX-License-Identifier: Apache-2.0
// Typed reading of one TOML table: each value is checked where it stands, keys that nobody asked
// for are reported, and every error names its place and what was expected.

#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "agent/scenario.h"
#include "agent/scenario_names.h"
#include "agent/toml.h"

namespace agent {

// Collects the errors of one file, up to a limit: what follows a typing slip is seldom worth more.
class ErrorList {
 public:
  static constexpr std::size_t kMostErrors = 20;

  void add(const toml::source_region& where, const std::string& text);
  bool empty() const { return errors_.empty(); }
  std::size_t count() const { return errors_.size(); }
  bool full() const { return errors_.size() >= kMostErrors; }
  std::vector<ScenarioError> take() { return std::move(errors_); }

 private:
  std::vector<ScenarioError> errors_;
};

struct Range {
  std::int64_t least = 0;
  std::int64_t greatest = std::numeric_limits<std::uint32_t>::max();
};

// Reads the keys of one table. `name` is how errors call the table. A key that is absent leaves the
// caller's default; a key that is wrong is reported and leaves it as well. Call finish() when all
// known keys have been asked for.
class TableReader {
 public:
  TableReader(const toml::table& table, std::string name, ErrorList& errors)
      : table_(table), name_(std::move(name)), errors_(errors) {}

  const std::string& name() const { return name_; }
  ErrorList& errors() { return errors_; }
  const toml::source_region& where() const { return table_.source(); }
  const toml::source_region& where(std::string_view key) const;
  bool has(std::string_view key) const { return table_.contains(key); }
  bool has_text(std::string_view key) const;

  template <typename Integer>
  void integer(std::string_view key, Integer& value, Range range = whole_range<Integer>()) {
    if (const auto read = read_integer(key, range))
      value = static_cast<Integer>(*read);
  }
  template <typename Integer>
  void required_integer(std::string_view key, Integer& value,
                        Range range = whole_range<Integer>()) {
    require(key);
    integer(key, value, range);
  }
  void number(std::string_view key, double& value, double least, double greatest);
  void flag(std::string_view key, bool& value);
  // At most `greatest_length` bytes, no zero byte.
  void text(std::string_view key, std::string& value, std::size_t greatest_length);
  void required_text(std::string_view key, std::string& value, std::size_t greatest_length);
  void uuid(std::string_view key, uuid_t& value);
  // Seconds since 1970: a number, a date-time (without zone: UTC), or "now" with an optional offset
  // in seconds ("now-3600").
  void time(std::string_view key, std::uint32_t now, std::optional<std::uint32_t>& value);
  // "2.1": two numbers of 16 bits.
  void version(std::string_view key, std::uint16_t& major, std::uint16_t& minor);

  template <typename Enum, std::size_t N>
  void choice(std::string_view key, Enum& value, const Choice<Enum> (&choices)[N]) {
    const auto text = any_text(key);
    if (!text)
      return;
    std::vector<std::string_view> names;
    for (const auto& one : choices) {
      if (one.name == *text) {
        value = one.value;
        return;
      }
      names.push_back(one.name);
    }
    refuse_choice(key, *text, names);
  }

  // The table or array under the key; null when absent or (reported) of another type.
  const toml::table* table(std::string_view key);
  const toml::array* array(std::string_view key);
  // The elements of an array of tables, at most `most`.
  std::vector<const toml::table*> tables(std::string_view key, std::size_t most);
  // Any node under the key, for values that have several forms.
  const toml::node* node(std::string_view key);

  // Reports that the key is missing.
  void require(std::string_view key);
  // Reports "name.key: <problem>" at the key's value, or at the table when it is absent.
  void refuse(std::string_view key, std::string_view problem);
  // Reports what is wrong with the table as a whole, at the table.
  void refuse_table(std::string_view problem);
  void finish();

 private:
  template <typename Integer>
  static constexpr Range whole_range() {
    return {std::numeric_limits<Integer>::min(), std::numeric_limits<Integer>::max()};
  }
  std::optional<std::int64_t> read_integer(std::string_view key, Range range);
  std::optional<std::string> any_text(std::string_view key);
  void refuse_type(std::string_view key, const toml::node& found, std::string_view expected);
  void refuse_choice(std::string_view key, std::string_view found,
                     const std::vector<std::string_view>& names);

  const toml::table& table_;
  std::string name_;
  ErrorList& errors_;
  std::set<std::string, std::less<>> asked_;
};

// "text", "whole number", … : how errors name what stands in the file.
std::string_view type_name(const toml::node& node);
// The text with control characters escaped and cut to a readable length, in quotes.
std::string quoted(std::string_view text);

}  // namespace agent
