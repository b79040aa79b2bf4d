// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): messages with
// printf arguments, and the date of a log entry.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>

#include "platform/sys/catalog.h"
#include "shared/general/SHNLSmsg.h"

namespace {

// Takes the digits or the asterisk of a width or precision; false for more than three digits, which
// no line of text needs.
bool TakeSize(std::string_view& format, std::string& arguments) {
  if (format.starts_with('*')) {
    arguments += '*';
    format.remove_prefix(1);
    return true;
  }
  const std::size_t digits = std::min(format.find_first_not_of("0123456789"), format.size());
  format.remove_prefix(digits);
  return digits <= 3;
}

// The arguments that a format reads, as the letters of its conversions; nothing for a format that
// printf must not be given.
std::optional<std::string> ArgumentsOf(std::string_view format) {
  std::string arguments;
  for (;;) {
    const std::size_t percent = format.find('%');
    if (percent == std::string_view::npos)
      return arguments;
    format.remove_prefix(percent + 1);
    if (format.starts_with('%')) {
      format.remove_prefix(1);
      continue;
    }
    format.remove_prefix(std::min(format.find_first_not_of("-+ #0'"), format.size()));
    if (!TakeSize(format, arguments))
      return std::nullopt;
    if (format.starts_with('.')) {
      format.remove_prefix(1);
      if (!TakeSize(format, arguments))
        return std::nullopt;
    }
    const std::size_t length = std::min(format.find_first_not_of("hlqjzt"), format.size());
    arguments += format.substr(0, length);
    format.remove_prefix(length);
    if (format.empty() || std::strchr("diouxXeEfFgGaAcsp", format.front()) == nullptr)
      return std::nullopt;
    const char letter = format.front();
    if (std::strchr("diouxX", letter) != nullptr)
      arguments += 'd';
    else if (std::strchr("eEfFgGaA", letter) != nullptr)
      arguments += 'f';
    else
      arguments += letter;
    format.remove_prefix(1);
  }
}

std::string FormatText(const char* format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (length < 0)
    return {};
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, arguments);
  text.pop_back();
  return text;
}

}  // namespace

const char* NLS_MESSAGE_OBJ::GetNLSmessage(int set, int message, const char* default_text) {
  NLSmessage = catalog::catgets(NLScatd, set, message, default_text);
  return NLSmessage;
}

std::string NLS_MESSAGE_OBJ::CreateNLSmessage(int set, int message, const char* default_text, ...) {
  std::va_list arguments;
  va_start(arguments, default_text);
  std::string text = CreateNLSmessage_valist(set, message, default_text, arguments);
  va_end(arguments);
  return text;
}

std::string NLS_MESSAGE_OBJ::CreateNLSmessage_valist(int set, int message, const char* default_text,
                                                     std::va_list arguments) {
  const char* const fallback = default_text == nullptr ? "" : default_text;
  if (NLScatd == -1)
    return fallback;
  const char* const text = catalog::catgets(NLScatd, set, message, fallback);
  const std::optional<std::string> read = ArgumentsOf(text);
  const bool fits = read && (default_text == nullptr || read == ArgumentsOf(default_text));
  return FormatText(fits ? text : fallback, arguments);
}

const char* NLS_MESSAGE_OBJ::GetNLSDateTime() {
  const std::time_t now = std::time(nullptr);
  if (std::strftime(NLSDateTime, 30, "%x %X", std::localtime(&now)) == 0)
    NLSDateTime[0] = '\0';
  return NLSDateTime;
}
