// SPDX-License-Identifier: Apache-2.0
#include "present/util/short_date.h"

#include <vector>

#include "platform/sys/locale.h"

namespace {

// How long the run of `letter` at `position` is; moves behind it.
template <typename Char>
std::size_t TakeRun(std::basic_string_view<Char> picture, std::size_t& position, char letter) {
  const std::size_t start = position;
  while (position < picture.size() && picture[position] == static_cast<Char>(letter))
    ++position;
  return position - start;
}

// The walk that both kinds of picture share; month(run), day(run) and year(run) give the format of
// a run of so many letters.
template <typename Char, typename Month, typename Day, typename Year>
std::string Walk(std::basic_string_view<Char> picture, const std::string& separator, Month month,
                 Day day, Year year) {
  std::string format;
  std::size_t position = 0;
  while (position < picture.size()) {
    const std::size_t start = position;
    if (const std::size_t run = TakeRun(picture, position, 'M'))
      format += month(run);
    if (const std::size_t run = TakeRun(picture, position, 'd'))
      format += day(run);
    if (const std::size_t run = TakeRun(picture, position, 'y'))
      format += year(run);
    if (position > start && position < picture.size())
      format += separator;
    ++position;
  }
  return format;
}

// A separator is printed as it is, so strftime must not see a directive in it.
std::string WithoutDirectives(std::string_view separator) {
  std::string text;
  for (const char c : separator)
    text.append(c == '%' ? 2 : 1, c);
  return text;
}

const char* YearFormat(std::size_t run) {
  return run == 4 ? "%Y" : "%y";
}

std::u16string WideItem(locale::LCTYPE item) {
  const locale::LCID user = locale::GetUserDefaultLCID();
  const int size = locale::GetLocaleInfoW(user, item, nullptr, 0);
  std::vector<char16_t> text(static_cast<std::size_t>(size));
  if (size == 0 || locale::GetLocaleInfoW(user, item, text.data(), size) == 0)
    return {};
  return text.data();
}

std::string NarrowItem(locale::LCTYPE item) {
  const locale::LCID user = locale::GetUserDefaultLCID();
  const int size = locale::GetLocaleInfoA(user, item, nullptr, 0);
  std::vector<char> text(static_cast<std::size_t>(size));
  if (size == 0 || locale::GetLocaleInfoA(user, item, text.data(), size) == 0)
    return {};
  return text.data();
}

}  // namespace

std::string ShortDateFormatFromWide(std::u16string_view picture, std::u16string_view separator) {
  std::string narrow;
  for (const char16_t c : separator)
    narrow += static_cast<char>(c);
  return Walk(
      picture, WithoutDirectives(narrow), [](std::size_t) { return "%m"; },
      [](std::size_t) { return "%d"; }, YearFormat);
}

std::string ShortDateFormatFromNarrow(std::string_view picture, std::string_view separator) {
  // "%-m": the C library's form for a number without its leading zero.
  return Walk(
      picture, WithoutDirectives(separator),
      [](std::size_t run) { return run >= 3   ? "%b"
                                   : run == 2 ? "%m"
                                              : "%-m"; },
      [](std::size_t run) { return run >= 2 ? "%d" : "%-d"; }, YearFormat);
}

std::string UserShortDateFormat() {
  const std::u16string picture = WideItem(locale::LOCALE_SSHORTDATE);
  if (!picture.empty())
    return ShortDateFormatFromWide(picture, WideItem(locale::LOCALE_SDATE));
  return ShortDateFormatFromNarrow(NarrowItem(locale::LOCALE_SSHORTDATE),
                                   NarrowItem(locale::LOCALE_SDATE));
}
