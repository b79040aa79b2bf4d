// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/fields.h"

#include <array>
#include <charconv>

#include "source/support/ZTprintable.h"
#include "source/support/ZTsupport_procs.h"

namespace ztsys {

namespace {

constexpr std::size_t kParts = 4;
constexpr int kMaxPart = 255;

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// One decimal part at the start of the text, which is taken off; -1 for none.
int TakePart(std::string_view& text) {
  int value = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || !IsDigit(text[0]) || error != std::errc() || value > kMaxPart)
    return -1;
  const auto length = static_cast<std::size_t>(end - text.data());
  if (text[0] == '0' && length > 1)
    return -1;
  text.remove_prefix(length);
  return value;
}

}  // namespace

std::optional<SystemKey> ParseAddress(std::string_view text) {
  std::array<char, kParts> octets{};
  for (std::size_t part = 0; part < kParts; ++part) {
    if (part > 0 && (text.empty() || text[0] != '.'))
      return std::nullopt;
    if (part > 0)
      text.remove_prefix(1);
    const int value = TakePart(text);
    if (value < 0)
      return std::nullopt;
    octets[part] = static_cast<char>(value);
  }
  if (!text.empty())
    return std::nullopt;
  return ConvertSystemKey(octets.data());
}

bool LooksLikeAddress(std::string_view text) {
  if (text.ends_with('.'))
    text.remove_suffix(1);
  const std::string_view last = text.substr(text.rfind('.') + 1);
  if (last.starts_with("0x") || last.starts_with("0X"))
    return true;
  return !last.empty() && last.find_first_not_of("0123456789") == std::string_view::npos;
}

std::string RefusalOfAddress(SystemKey key) {
  const KEY_CONVERSION octets{static_cast<std::uint32_t>(key)};
  char text[kKeyTextSize];
  FormatSystemKey(key, text);
  if (octets.Char[0] == 0)
    return std::string(text) + " is no system's address: 0.0.0.0/8 is this network";
  if (octets.Char[0] >= 240)
    return std::string(text) + " is no system's address: 240.0.0.0/4 is reserved";
  if (octets.Char[0] >= 224)
    return std::string(text) + " is no system's address: 224.0.0.0/4 is for groups";
  return "";
}

std::string RefusalOf(const char* what, std::string_view text, std::size_t field_size) {
  const std::string subject = std::string("the ") + what;
  if (text.size() >= field_size)
    return subject + " is longer than " + std::to_string(field_size - 1) + " octets";
  if (printable(text) != text)
    return subject + " has control characters";
  // Nobody sees such a blank in a list, and a look-up by name does not find what has one.
  if (!text.empty() && (text.front() == ' ' || text.back() == ' '))
    return subject + " begins or ends with a blank";
  return "";
}

std::optional<int> ParseType(const std::string& text) {
  if (text == kNone || text == "0")
    return 0;
  for (int type = 1; type <= ReturnSupportedSystemTypeCount(); ++type)
    if (text == std::to_string(type) ||
        ptc_strcasecmp(text.c_str(), ReturnSystemTypeCode(type)) == 0)
      return type;
  return std::nullopt;
}

std::string RefusalOfType(const std::string& text) {
  std::string choices;
  for (int type = 1; type <= ReturnSupportedSystemTypeCount(); ++type)
    choices += (type == 1 ? "" : ", ") + std::to_string(type) + " or " + ReturnSystemTypeCode(type);
  return "unknown type '" + text + "' (" + choices + ')';
}

std::string TypeText(int type) {
  const char* code = ReturnSystemTypeCode(type);
  if (code != nullptr)
    return code;
  return type == 0 ? std::string(kNone) : std::to_string(type);
}

const char* MonitoringText(int monitor_alarms) {
  if (monitor_alarms == 0)
    return "disabled";
  return monitor_alarms == 1 ? "enabled" : "delete";
}

}  // namespace ztsys
