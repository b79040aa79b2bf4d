// SPDX-License-Identifier: Apache-2.0
// Pieces of scenario files and of expected reports that several tests put together.

#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace endtoend {

// 2024-01-15 12:00:00 UTC.
inline constexpr long kNoon = 1705320000;

// A data source as a scenario has it; classes and metrics are numbered in their order.
class SourceText {
 public:
  explicit SourceText(std::string name);
  // `settings` are the further lines of the table.
  SourceText& with_class(const std::string& name, std::string_view settings = {});
  SourceText& metric(const std::string& name, std::string_view settings = {});
  const std::string& text() const { return text_; }

 private:
  std::string name_;
  std::string text_;
  int classes_ = 0;
  int metrics_ = 0;
};

// The system alpha on 127.0.1.1 with a repository server for each source, each with these further
// lines, and an alarm server.
std::string system_alpha(std::initializer_list<std::string_view> sources,
                         std::string_view settings = {});

// What a run prints ahead of its checks; a target without an address is one.
std::string heading(const std::string& command_line, const std::string& target,
                    const std::string& address = {});
std::string heading_of_alpha(const std::string& command_line);

// Whether a text holds a report of a sanitizer.
bool sanitizer_spoke(std::string_view err);

}  // namespace endtoend
