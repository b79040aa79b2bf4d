// SPDX-License-Identifier: Apache-2.0
// What happens, as events: -v prints each as a line of text, --log writes it as a line of JSON, and
// both are views of the same fields. docs/formats/hxasim-log.md lists the events.

#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace agent {

class LogEvent {
 public:
  using Value = std::variant<std::int64_t, std::string>;

  // `kind` is one of the kinds that the log knows.
  LogEvent(std::string_view kind, std::string_view server) : kind_(kind), server_(server) {}

  template <typename Integer>
  LogEvent& number(std::string_view key, Integer value) {
    fields_.emplace_back(key, static_cast<std::int64_t>(value));
    return *this;
  }
  // An empty text is no field.
  LogEvent& text(std::string_view key, std::string value) {
    if (!value.empty())
      fields_.emplace_back(key, std::move(value));
    return *this;
  }
  // A status, in hexadecimal.
  LogEvent& status(std::string_view key, std::uint32_t value);

  // Without time. Control characters print as '?' and are escaped in JSON.
  std::string as_text() const;
  std::string as_json() const;  // the members behind "time"

 private:
  std::string expand(std::string_view form, bool& complete) const;

  std::string_view kind_;
  std::string_view server_;
  std::vector<std::pair<std::string_view, Value>> fields_;
};

class Log {
 public:
  // Writes text and JSON lines to streams that are not owned; either may be null. `on_failure` is
  // called once, when a line cannot be written.
  explicit Log(std::FILE* text = nullptr, std::FILE* json = nullptr,
               std::function<void()> on_failure = {})
      : text_(text), json_(json), on_failure_(std::move(on_failure)) {}

  // Callers ask first where composing an event would cost.
  bool enabled() const { return text_ != nullptr || json_ != nullptr; }
  void write(const LogEvent& event) const;
  bool failed() const { return failed_; }

 private:
  std::FILE* text_;
  std::FILE* json_;
  std::function<void()> on_failure_;
  mutable bool failed_ = false;
};

}  // namespace agent
