// SPDX-License-Identifier: Apache-2.0
#include "agent/scenario_reader.h"

#include <charconv>
#include <cstdio>

#include "platform/rpc/rpc.h"
#include "platform/sys/printable.h"

namespace agent {

namespace {

std::string number_text(std::int64_t value) {
  return std::to_string(value);
}

std::string short_number(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%g", value);
  return buffer;
}

// Seconds since 1970 of a date-time, without leap seconds; days counted as in the proleptic
// Gregorian calendar.
std::int64_t seconds_of(const toml::date_time& when) {
  const std::int64_t year = when.date.year - (when.date.month <= 2 ? 1 : 0);
  const std::int64_t month = when.date.month + (when.date.month > 2 ? -3 : 9);
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const std::int64_t year_of_era = year - era * 400;
  const std::int64_t day_of_year = (153 * month + 2) / 5 + when.date.day - 1;
  const std::int64_t day_of_era =
      year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  const std::int64_t days = era * 146097 + day_of_era - 719468;
  std::int64_t seconds =
      days * 86400 + when.time.hour * 3600 + when.time.minute * 60 + when.time.second;
  if (when.offset)
    seconds -= when.offset->minutes * 60;
  return seconds;
}

// "now", "now-3600", "now+60".
std::optional<std::int64_t> relative_time(std::string_view text, std::uint32_t now) {
  if (!text.starts_with("now"))
    return std::nullopt;
  text.remove_prefix(3);
  if (text.empty())
    return now;
  if (text.front() != '-' && text.front() != '+')
    return std::nullopt;
  const bool back = text.front() == '-';
  text.remove_prefix(1);
  std::uint32_t offset = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), offset);
  if (error != std::errc{} || end != text.data() + text.size())
    return std::nullopt;
  return back ? std::int64_t{now} - offset : std::int64_t{now} + offset;
}

}  // namespace

void ErrorList::add(const toml::source_region& where, const std::string& text) {
  if (!full())
    errors_.push_back({where.begin.line, where.begin.column, sys::printable(text)});
}

std::string_view type_name(const toml::node& node) {
  switch (node.type()) {
    case toml::node_type::table:
      return "a table";
    case toml::node_type::array:
      return "an array";
    case toml::node_type::string:
      return "a text";
    case toml::node_type::integer:
      return "a whole number";
    case toml::node_type::floating_point:
      return "a number with a fraction";
    case toml::node_type::boolean:
      return "true or false";
    case toml::node_type::date:
      return "a date";
    case toml::node_type::time:
      return "a time of day";
    case toml::node_type::date_time:
      return "a date-time";
    case toml::node_type::none:
      break;
  }
  return "nothing";
}

std::string quoted(std::string_view text) {
  constexpr std::size_t kMost = 60;
  std::string result = "\"";
  for (const char c : text.substr(0, kMost)) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      char buffer[8];
      std::snprintf(buffer, sizeof buffer, "\\x%02X", static_cast<unsigned>(byte));
      result += buffer;
    } else {
      result += c;
    }
  }
  result += text.size() > kMost ? "…\"" : "\"";
  return result;
}

const toml::source_region& TableReader::where(std::string_view key) const {
  const toml::node* found = table_.get(key);
  return found != nullptr ? found->source() : table_.source();
}

bool TableReader::has_text(std::string_view key) const {
  const toml::node* found = table_.get(key);
  return found != nullptr && found->is_string();
}

const toml::node* TableReader::node(std::string_view key) {
  asked_.emplace(key);
  return table_.get(key);
}

void TableReader::refuse(std::string_view key, std::string_view problem) {
  errors_.add(where(key), name_ + "." + std::string(key) + ": " + std::string(problem));
}

void TableReader::refuse_table(std::string_view problem) {
  errors_.add(table_.source(), name_ + ": " + std::string(problem));
}

void TableReader::refuse_type(std::string_view key, const toml::node& found,
                              std::string_view expected) {
  refuse(key, "expected " + std::string(expected) + ", found " + std::string(type_name(found)));
}

void TableReader::refuse_choice(std::string_view key, std::string_view found,
                                const std::vector<std::string_view>& names) {
  std::string expected = "expected ";
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0)
      expected += i + 1 == names.size() ? " or " : ", ";
    expected += quoted(names[i]);
  }
  refuse(key, expected + ", found " + quoted(found));
}

void TableReader::require(std::string_view key) {
  asked_.emplace(key);
  if (!has(key))
    errors_.add(table_.source(), name_ + ": the key " + quoted(key) + " is missing");
}

std::optional<std::int64_t> TableReader::read_integer(std::string_view key, Range range) {
  const toml::node* found = node(key);
  if (found == nullptr)
    return std::nullopt;
  const std::string expected =
      "a whole number from " + number_text(range.least) + " to " + number_text(range.greatest);
  const auto* integer = found->as_integer();
  if (integer == nullptr) {
    refuse_type(key, *found, expected);
    return std::nullopt;
  }
  if (integer->get() < range.least || integer->get() > range.greatest) {
    refuse(key, "expected " + expected + ", found " + number_text(integer->get()));
    return std::nullopt;
  }
  return integer->get();
}

void TableReader::number(std::string_view key, double& value, double least, double greatest) {
  const toml::node* found = node(key);
  if (found == nullptr)
    return;
  const std::string expected =
      "a number from " + short_number(least) + " to " + short_number(greatest);
  if (!found->is_number()) {
    refuse_type(key, *found, expected);
    return;
  }
  const double read = *found->value<double>();
  if (read >= least && read <= greatest)
    value = read;
  else
    refuse(key, "expected " + expected + ", found " + short_number(read));
}

void TableReader::flag(std::string_view key, bool& value) {
  const toml::node* found = node(key);
  if (found == nullptr)
    return;
  if (const auto* boolean = found->as_boolean())
    value = boolean->get();
  else
    refuse_type(key, *found, "true or false");
}

std::optional<std::string> TableReader::any_text(std::string_view key) {
  const toml::node* found = node(key);
  if (found == nullptr)
    return std::nullopt;
  if (const auto* text = found->as_string())
    return text->get();
  refuse_type(key, *found, "a text");
  return std::nullopt;
}

void TableReader::text(std::string_view key, std::string& value, std::size_t greatest_length) {
  auto read = any_text(key);
  if (!read)
    return;
  if (read->size() > greatest_length)
    refuse(key, "expected a text of at most " + std::to_string(greatest_length) + " bytes, found " +
                    std::to_string(read->size()));
  else if (read->find('\0') != std::string::npos)
    refuse(key, "expected a text without zero characters");
  else
    value = std::move(*read);
}

void TableReader::required_text(std::string_view key, std::string& value,
                                std::size_t greatest_length) {
  require(key);
  text(key, value, greatest_length);
}

void TableReader::uuid(std::string_view key, uuid_t& value) {
  const auto read = any_text(key);
  if (read && UuidFromStringA(read->c_str(), &value) != RPC_S_OK)
    refuse(key, "expected a UUID such as \"5b3c82a0-17e4-0000-020a-141e28000000\", found " +
                    quoted(*read));
}

void TableReader::time(std::string_view key, std::uint32_t now,
                       std::optional<std::uint32_t>& value) {
  constexpr std::string_view kExpected =
      "seconds since 1970, a date-time, or \"now\" with an offset in seconds such as \"now-3600\"";
  const toml::node* found = node(key);
  if (found == nullptr)
    return;
  std::optional<std::int64_t> seconds;
  if (const auto* integer = found->as_integer())
    seconds = integer->get();
  else if (const auto* when = found->as_date_time())
    seconds = seconds_of(when->get());
  else if (const auto* text = found->as_string())
    seconds = relative_time(text->get(), now);
  else
    return refuse_type(key, *found, kExpected);
  if (seconds && *seconds >= 0 && *seconds <= std::numeric_limits<std::uint32_t>::max())
    value = static_cast<std::uint32_t>(*seconds);
  else
    refuse(key, "expected " + std::string(kExpected));
}

void TableReader::version(std::string_view key, std::uint16_t& major, std::uint16_t& minor) {
  const auto read = any_text(key);
  if (!read)
    return;
  const char* const end = read->data() + read->size();
  std::uint16_t first = 0;
  std::uint16_t second = 0;
  const auto [dot, error] = std::from_chars(read->data(), end, first);
  if (error == std::errc{} && dot != end && *dot == '.') {
    const auto [last, second_error] = std::from_chars(dot + 1, end, second);
    if (second_error == std::errc{} && last == end) {
      major = first;
      minor = second;
      return;
    }
  }
  refuse(key, "expected a version such as \"2.0\", found " + quoted(*read));
}

const toml::table* TableReader::table(std::string_view key) {
  const toml::node* found = node(key);
  if (found == nullptr)
    return nullptr;
  if (const auto* table = found->as_table())
    return table;
  refuse_type(key, *found, "a table");
  return nullptr;
}

const toml::array* TableReader::array(std::string_view key) {
  const toml::node* found = node(key);
  if (found == nullptr)
    return nullptr;
  if (const auto* array = found->as_array())
    return array;
  refuse_type(key, *found, "an array");
  return nullptr;
}

std::vector<const toml::table*> TableReader::tables(std::string_view key, std::size_t most) {
  std::vector<const toml::table*> result;
  const toml::array* found = array(key);
  if (found == nullptr)
    return result;
  if (found->size() > most) {
    refuse(key, "expected at most " + std::to_string(most) + " of them, found " +
                    std::to_string(found->size()));
    return result;
  }
  for (const toml::node& element : *found) {
    if (const auto* table = element.as_table())
      result.push_back(table);
    else
      errors_.add(element.source(), name_ + "." + std::string(key) + ": expected a table, found " +
                                        std::string(type_name(element)));
  }
  return result;
}

void TableReader::finish() {
  for (const auto& [key, value] : table_) {
    if (asked_.contains(key.str()))
      continue;
    std::string known;
    for (const auto& one : asked_)
      known += (known.empty() ? "" : ", ") + one;
    errors_.add(key.source(),
                name_ + ": unknown key " + quoted(key.str()) + "; expected one of " + known);
  }
}

}  // namespace agent
