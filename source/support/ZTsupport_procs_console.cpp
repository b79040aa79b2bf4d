// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): texts of fixed
// size, keywords of alarm rules, dates and times that a user typed.

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <ctime>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/sys/native_path.h"
#include "shared/general/SHcontrolObj.h"
#include "source/support/ZTsupport_procs.h"

namespace {

struct Keyword {
  std::string_view token;
  int code;
};

constexpr int kCommentCode = 10;

constexpr Keyword kKeywords[] = {
    {"//", kCommentCode}, {"/*", kCommentCode}, {"REPEAT", 1},   {"IF", 2},
    {"VAR", 3},           {"THEN", 4},          {"ALARM", 5},    {"FINISH", 6},
    {"FOR", 7},           {"AND", 8},           {"OR", 9},       {"SEVERITY", 11},
    {"TYPE", 12},         {"MINUTE", 13},       {"MINUTES", 13}, {"HOLDOFF", 14},
    {"SHUTDOWN", 105},
};

// The numbers of a text in which everything but digits separates; at most `most` of them. Nothing
// when one does not fit an int.
std::optional<std::vector<int>> NumbersIn(std::string_view text, std::size_t most) {
  std::vector<int> numbers;
  bool in_number = false;
  for (const char c : text) {
    const bool digit = c >= '0' && c <= '9';
    if (digit && !in_number) {
      if (numbers.size() == most)
        break;
      numbers.push_back(0);
    }
    if (digit && (__builtin_mul_overflow(numbers.back(), 10, &numbers.back()) ||
                  __builtin_add_overflow(numbers.back(), c - '0', &numbers.back())))
      return std::nullopt;
    in_number = digit;
  }
  return numbers;
}

}  // namespace

void MoveString(char* output_string, const char* input_string, int string_size) {
  std::size_t length = ::strnlen(input_string, static_cast<std::size_t>(std::max(string_size, 0)));
  while (length > 0 && input_string[length - 1] == ' ')
    --length;
  std::memmove(output_string, input_string, length);
  output_string[length] = '\0';
}

void StringToPacked(const char* input_string, char* output_string, int max_string_size) {
  const auto size = static_cast<std::size_t>(std::max(max_string_size, 0));
  const std::size_t length = ::strnlen(input_string, size);
  std::memmove(output_string, input_string, length);
  std::memset(output_string + length, ' ', size - length);
}

int ptc_strncasecmp(const char* string1, const char* string2, int len) {
  const auto length = static_cast<std::size_t>(std::max(len, 0));
  if (::strnlen(string1, length) < length || ::strnlen(string2, length) < length)
    return -1;
  return ptc_strcasecmp(std::string(string1, length).c_str(), std::string(string2, length).c_str());
}

int ParseToken(const char* token) {
  for (const Keyword& keyword : kKeywords) {
    if (keyword.token == token)
      return keyword.code;
  }
  return *token == '#' || *token == '*' ? kCommentCode : -1;
}

std::int64_t GetFileModTime(const char* FileName) {
  struct ::stat status {};
  return sys::_stat(FileName, &status) == 0 ? static_cast<std::int64_t>(status.st_mtime) : 0;
}

int ReadTime(const char* time_string, int& minute, int& hour) {
  const std::optional<std::vector<int>> numbers = NumbersIn(time_string, 3);
  if (!numbers || numbers->size() < 2)
    return 0;
  hour = (*numbers)[0];
  minute = (*numbers)[1];
  return 1;
}

int ReadDate(const char* date_string, int& month, int& day, int& year) {
  if (std::strcmp(date_string, "today") == 0) {
    const std::time_t now = std::time(nullptr);
    const std::tm* const today = std::localtime(&now);
    month = today->tm_mon;
    day = today->tm_mday;
    year = today->tm_year;
    return 1;
  }

  int year_place = 0;
  int month_place = 0;
  int day_place = 0;
  LocalDateSequence(&year_place, &month_place, &day_place);
  const std::optional<std::vector<int>> numbers = NumbersIn(date_string, 3);
  if (!numbers || numbers->size() < 3)
    return 0;
  const auto number = [&numbers](int place) { return (*numbers)[static_cast<std::size_t>(place)]; };
  if (number(month_place) < 1)
    return 0;
  month = number(month_place) - 1;
  day = number(day_place);
  year = number(year_place);
  if (year > 99)
    year -= 1900;
  if (year < 80)
    year += 100;
  return 1;
}

void LocalDateSequence(int* YearSequence, int* MonthSequence, int* DaySequence) {
  int* const places[] = {YearSequence, MonthSequence, DaySequence};
  for (int* const place : places)
    *place = -1;

  const char* const configured = BASE_CONTROL_OBJ::GetDateFormatString();
  const std::string_view format = configured == nullptr ? "" : configured;
  int next = 0;
  for (std::size_t i = format.find('%'); i != std::string_view::npos; i = format.find('%', i)) {
    while (i < format.size() && std::isalpha(static_cast<unsigned char>(format[i])) == 0)
      ++i;
    if (i == format.size())
      break;
    int* place = nullptr;
    if (std::strchr("Bbm", format[i]) != nullptr)
      place = MonthSequence;
    else if (std::strchr("de", format[i]) != nullptr)
      place = DaySequence;
    else if (std::strchr("YyEo", format[i]) != nullptr)
      place = YearSequence;
    if (place != nullptr)
      *place = next++;
  }

  const auto unusable = [](const int* place) { return *place < 0 || *place > 2; };
  if (std::any_of(std::begin(places), std::end(places), unusable)) {
    *MonthSequence = 0;
    *DaySequence = 1;
    *YearSequence = 2;
  }
}
