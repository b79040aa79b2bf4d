// SPDX-License-Identifier: Apache-2.0
#include "agent/log.h"

#include <algorithm>
#include <chrono>
#include <ctime>

#include "platform/sys/printable.h"

namespace agent {

namespace {

// How a kind of event reads. {key} is a field's value; what stands in brackets is left out unless
// all its fields are there.
struct Form {
  std::string_view kind;
  std::string_view text;
};

#define PACKET \
  "{packet}[ {operation} ({interface})][ call {call}][ fragment {fragment}][ status {status}]"
constexpr Form kForms[] = {
    {"received", "received " PACKET ", {octets} octets, from {peer}[, {fate}]"},
    {"lost_in", "lost before it was received: " PACKET ", {octets} octets, from {peer}[, {fate}]"},
    {"swallowed", "deaf to " PACKET ", {octets} octets, from {peer}[, {fate}]"},
    {"sent", "sent " PACKET ", {octets} octets, to {peer}[, {fate}]"},
    {"lost_out", "lost, not sent: " PACKET ", {octets} octets, to {peer}[, {fate}]"},
    {"call",
     "{operation}([{arguments}]) of {peer} {outcome}[ {number}][, status {status}]"
     "[, {octets} octets]"},
    {"behaviour", "{operation} of {peer}: rule {rule}, {action}"},
    {"call_back", "who are you? {peer}: {outcome}"},
    {"context", "{object} {context} {change}"},
    {"rejected", "a call of {peer} is rejected with {number}"},
    {"cancelled", "a call of {peer} is cancelled"},
    {"violation", "{detail}[, in {operation}], from {peer}"},
    {"damaged", "the bad network's doing: {detail}[, in {operation}], from {peer}"},
    {"connection", "connection of {peer} {change}"},
    {"request", "{peer} asks {command}, status {status}"},
    {"state", "{change}"},
    {"counters",
     "counters[ of {operation}]: {calls} calls, {repeats} repeats, {lost_in} lost in, "
     "{lost_out} lost out, {doubled} doubled, {faults} faults, {rejects} rejects, "
     "{contexts} contexts alive"},
};
#undef PACKET

std::string_view form_of(std::string_view kind) {
  const auto found = std::find_if(std::begin(kForms), std::end(kForms),
                                  [kind](const Form& form) { return form.kind == kind; });
  return found != std::end(kForms) ? found->text : std::string_view();
}

std::string value_text(const LogEvent::Value& value) {
  if (const auto* number = std::get_if<std::int64_t>(&value))
    return std::to_string(*number);
  return std::get<std::string>(value);
}

// "2026-11-25 12:03:44.120" here, or "2026-11-25T11:03:44.120Z".
std::string time_text(bool universal) {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm parts{};
  universal ? gmtime_r(&seconds, &parts) : localtime_r(&seconds, &parts);
  char date[32];
  char text[48];
  std::strftime(date, sizeof date, universal ? "%Y-%m-%dT%H:%M:%S" : "%Y-%m-%d %H:%M:%S", &parts);
  std::snprintf(text, sizeof text, "%s.%03d%s", date, static_cast<int>(milliseconds),
                universal ? "Z" : "");
  return text;
}

bool write_line(std::FILE* stream, const std::string& line) {
  return std::fwrite(line.data(), 1, line.size(), stream) == line.size() &&
         std::fflush(stream) == 0;
}

}  // namespace

LogEvent& LogEvent::status(std::string_view key, std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, value < 0x10000 ? "%u" : "0x%08X", value);
  return this->text(key, text);
}

std::string LogEvent::expand(std::string_view form, bool& complete) const {
  std::string result;
  while (!form.empty()) {
    const char c = form.front();
    if (c == '[') {
      const std::size_t end = form.find(']');
      bool whole = true;
      const std::string part = expand(form.substr(1, end - 1), whole);
      result += whole ? part : "";
      form.remove_prefix(end + 1);
    } else if (c == '{') {
      const std::size_t end = form.find('}');
      const std::string_view key = form.substr(1, end - 1);
      const auto field = std::find_if(fields_.begin(), fields_.end(),
                                      [key](const auto& each) { return each.first == key; });
      if (field != fields_.end())
        result += value_text(field->second);
      else
        complete = false;
      form.remove_prefix(end + 1);
    } else {
      result += c;
      form.remove_prefix(1);
    }
  }
  return result;
}

std::string LogEvent::as_text() const {
  bool complete = true;
  std::string text = kind_ == "violation" ? "violation " : "";
  (text += server_) += ' ';
  text += expand(form_of(kind_), complete);
  return sys::printable(text);
}

std::string LogEvent::as_json() const {
  std::string text =
      "\"event\":" + sys::json_quoted(kind_) + ",\"server\":" + sys::json_quoted(server_);
  for (const auto& [key, value] : fields_) {
    text += "," + sys::json_quoted(key) + ":";
    text += std::holds_alternative<std::int64_t>(value)
                ? value_text(value)
                : sys::json_quoted(std::get<std::string>(value));
  }
  return text;
}

void Log::write(const LogEvent& event) const {
  if (failed_ || !enabled())
    return;
  bool written = true;
  if (text_ != nullptr)
    written = write_line(text_, time_text(false) + " " + event.as_text() + "\n");
  if (json_ != nullptr)
    written =
        write_line(json_, "{\"time\":\"" + time_text(true) + "\"," + event.as_json() + "}\n") &&
        written;
  failed_ = !written;
  if (failed_ && on_failure_)
    on_failure_();
}

}  // namespace agent
