// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/locale.h"

#include <langinfo.h>
#include <locale.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <optional>
#include <vector>

namespace locale {
namespace {

constexpr LCID kUserDefault = 0x0400;

// The name that the environment gives a category, by POSIX's order of precedence.
std::string category_name(const char* category_variable) {
  for (const char* const variable : {"LC_ALL", category_variable, "LANG"}) {
    const char* const value = std::getenv(variable);
    if (value != nullptr && *value != '\0')
      return value;
  }
  return "C";
}

// A locale object for one category, with the character set that its texts are written in. A name
// that the system does not know gives the C locale, as for any other program.
class CategoryLocale {
 public:
  CategoryLocale(int category_mask, std::string name) : name_(std::move(name)) {
    const int mask = category_mask | LC_CTYPE_MASK;
    handle_ = ::newlocale(mask, name_.c_str(), locale_t{});
    if (handle_ == locale_t{})
      handle_ = ::newlocale(mask, "C", locale_t{});
  }
  ~CategoryLocale() {
    if (handle_ != locale_t{})
      ::freelocale(handle_);
  }
  CategoryLocale(const CategoryLocale&) = delete;
  CategoryLocale& operator=(const CategoryLocale&) = delete;

  const std::string& name() const { return name_; }

  std::string text(nl_item item) const {
    return handle_ == locale_t{} ? std::string() : ::nl_langinfo_l(item, handle_);
  }

  // The text in wide characters; nothing when it is not valid in the locale's character set.
  std::optional<std::wstring> widen(const std::string& narrow) const {
    if (handle_ == locale_t{})
      return std::nullopt;
    const locale_t before = ::uselocale(handle_);
    std::wstring wide(narrow.size(), L'\0');
    std::mbstate_t state{};
    const char* source = narrow.c_str();
    const std::size_t length = std::mbsrtowcs(wide.data(), &source, wide.size(), &state);
    ::uselocale(before);
    if (length == static_cast<std::size_t>(-1))
      return std::nullopt;
    wide.resize(length);
    return wide;
  }

 private:
  std::string name_;
  locale_t handle_{};
};

// The category's locale object. Making one reads files, so it is kept until the environment names
// another.
template <int category_mask>
const CategoryLocale& category_locale(const char* category_variable) {
  thread_local std::optional<CategoryLocale> kept;
  std::string name = category_name(category_variable);
  if (!kept || kept->name() != name)
    kept.emplace(category_mask, std::move(name));
  return *kept;
}

// What a strftime conversion is in a picture; parts of the day are told from parts of the date.
struct Conversion {
  char letter;
  bool of_day;
  const char* picture;
  const char* unpadded;  // with the flag that suppresses padding
};

constexpr Conversion kConversions[] = {
    {'m', false, "MM", "M"},      {'d', false, "dd", "d"},      {'e', false, "d", "d"},
    {'y', false, "yy", "yy"},     {'Y', false, "yyyy", "yyyy"}, {'b', false, "MMM", "MMM"},
    {'h', false, "MMM", "MMM"},   {'B', false, "MMMM", "MMMM"}, {'a', false, "ddd", "ddd"},
    {'A', false, "dddd", "dddd"}, {'H', true, "HH", "H"},       {'k', true, "H", "H"},
    {'I', true, "hh", "h"},       {'l', true, "h", "h"},        {'M', true, "mm", "m"},
    {'S', true, "ss", "s"},       {'p', true, "tt", "tt"},      {'P', true, "tt", "tt"},
    {'Z', true, "", ""},          {'z', true, "", ""},
};

// Conversions that stand for several others.
struct Composite {
  char letter;
  const char* form;
};

constexpr Composite kComposites[] = {
    {'D', "%m/%d/%y"}, {'x', "%m/%d/%y"}, {'F', "%Y-%m-%d"},
    {'T', "%H:%M:%S"}, {'X', "%H:%M:%S"}, {'r', "%I:%M:%S %p"},
    {'R', "%H:%M"},    {'n', " "},        {'t', " "},
};

template <typename Entry, std::size_t size>
const Entry* find_letter(const Entry (&table)[size], char letter) {
  const Entry* const found = std::find_if(std::begin(table), std::end(table),
                                          [letter](const Entry& e) { return e.letter == letter; });
  return found == std::end(table) ? nullptr : found;
}

bool is_ascii_letter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

enum class LeftOut { kNothing, kTimes, kWeekdays };

// Writes a picture piece by piece.
class PictureWriter {
 public:
  explicit PictureWriter(LeftOut left_out) : left_out_(left_out) {}

  void form(std::string_view form) {
    for (std::size_t i = 0; i < form.size(); ++i) {
      if (form[i] != '%') {
        literal(form[i]);
        continue;
      }
      bool unpadded = false;
      for (++i; i < form.size() && std::strchr("-_0^#EO", form[i]) != nullptr; ++i)
        unpadded = unpadded || form[i] == '-' || form[i] == '_';
      if (i == form.size())
        break;
      conversion(form[i], unpadded);
    }
  }

  std::string take() {
    end_quote();
    while (!picture_.empty() && picture_.back() == ' ')
      picture_.pop_back();
    return std::move(picture_);
  }

 private:
  void conversion(char letter, bool unpadded) {
    if (letter == '%') {
      literal('%');
    } else if (const Composite* const composite = find_letter(kComposites, letter)) {
      form(composite->form);
    } else if (const Conversion* const simple = find_letter(kConversions, letter)) {
      end_quote();
      dropping_ = IsLeftOut(*simple);
      if (!dropping_)
        picture_ += unpadded ? simple->unpadded : simple->picture;
    }
  }

  bool IsLeftOut(const Conversion& conversion) const {
    const bool weekday = conversion.picture[0] == 'd' && std::strlen(conversion.picture) > 2;
    return left_out_ == LeftOut::kTimes ? conversion.of_day
                                        : left_out_ == LeftOut::kWeekdays && weekday;
  }

  // Behind a part that is left out, what separates it from the next goes with it.
  void literal(char c) {
    dropping_ = dropping_ && c != ' ';
    if (dropping_)
      return;
    if (c == ' ' && left_out_ != LeftOut::kNothing && (picture_.empty() || picture_.back() == ' '))
      return;
    if (c == '\'') {
      picture_ += "''";
      return;
    }
    if (is_ascii_letter(c) && !in_quote_) {
      picture_ += '\'';
      in_quote_ = true;
    } else if (!is_ascii_letter(c)) {
      end_quote();
    }
    picture_ += c;
  }

  void end_quote() {
    if (in_quote_)
      picture_ += '\'';
    in_quote_ = false;
  }

  std::string picture_;
  LeftOut left_out_;
  bool dropping_ = false;
  bool in_quote_ = false;
};

std::string picture(std::string_view form, LeftOut left_out) {
  PictureWriter writer(left_out);
  writer.form(form);
  return writer.take();
}

// The character behind the first field of a date picture. Only what prints as one byte in every
// character set serves.
std::string date_separator(std::string_view picture) {
  constexpr std::string_view kFields = "dMy";
  const std::size_t field = picture.find_first_of(kFields);
  if (field != std::string_view::npos) {
    const std::size_t behind = picture.find_first_not_of(kFields, field);
    if (behind != std::string_view::npos &&
        std::string_view("/.-, ").find(picture[behind]) != std::string_view::npos)
      return std::string(1, picture[behind]);
  }
  return "/";
}

// Calls use(text, locale) with the item's text and the locale that it was read from, and gives its
// result; false when there is no such item.
template <typename Use>
bool with_item(LCID user, LCTYPE item, Use use) {
  if (user != kUserDefault)
    return false;
  if (item == LOCALE_SABBREVLANGNAME) {
    const CategoryLocale& language = category_locale<LC_MESSAGES_MASK>("LC_MESSAGES");
    return use(language_abbreviation(language.name()), language);
  }
  if (item == LOCALE_SDECIMAL) {
    const CategoryLocale& numeric = category_locale<LC_NUMERIC_MASK>("LC_NUMERIC");
    const std::string radix = numeric.text(RADIXCHAR);
    return radix.size() == 1 && use(radix, numeric);
  }

  const CategoryLocale& time = category_locale<LC_TIME_MASK>("LC_TIME");
  switch (item) {
    case LOCALE_SSHORTDATE:
      return use(short_date_picture(time.text(D_FMT)), time);
    case LOCALE_SDATE:
      return use(date_separator(short_date_picture(time.text(D_FMT))), time);
    case LOCALE_SLONGDATE:
      return use(picture(time.text(D_T_FMT), LeftOut::kTimes), time);
    case LOCALE_STIMEFORMAT:
      return use(picture(time.text(T_FMT), LeftOut::kNothing), time);
    case LOCALE_S1159:
      return use(time.text(AM_STR), time);
    case LOCALE_S2359:
      return use(time.text(PM_STR), time);
    default:
      return false;
  }
}

std::u16string to_utf16(const std::wstring& wide) {
  std::u16string units;
  for (const wchar_t c : wide) {
    const auto point = static_cast<std::uint32_t>(c);
    if (point < 0x10000) {
      units += static_cast<char16_t>(point);
    } else {
      units += static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10));
      units += static_cast<char16_t>(0xDC00 + (point & 0x3FF));
    }
  }
  return units;
}

// Hands a text out as the calls do. The units with the terminator, 0 when they do not fit.
template <typename Char>
int give(const std::basic_string<Char>& text, Char* buffer, int size) {
  const int needed = static_cast<int>(text.size() + 1);
  if (size == 0)
    return needed;
  if (size < needed)
    return 0;
  std::copy_n(text.c_str(), text.size() + 1, buffer);
  return needed;
}

struct Abbreviation {
  std::string_view language;  // with the territory where it decides
  std::string_view name;
};

constexpr Abbreviation kAbbreviations[] = {
    {"zh_TW", "CHT"}, {"zh_HK", "CHT"}, {"zh", "CHS"}, {"pt_BR", "PTB"}, {"pt", "PTG"},
    {"ar", "ARA"},    {"bg", "BGR"},    {"ca", "CAT"}, {"cs", "CSY"},    {"da", "DAN"},
    {"de", "DEU"},    {"el", "ELL"},    {"en", "ENU"}, {"es", "ESP"},    {"et", "ETI"},
    {"fi", "FIN"},    {"fr", "FRA"},    {"he", "HEB"}, {"hr", "HRV"},    {"hu", "HUN"},
    {"is", "ISL"},    {"it", "ITA"},    {"ja", "JPN"}, {"ko", "KOR"},    {"lt", "LTH"},
    {"lv", "LVI"},    {"nb", "NOR"},    {"nl", "NLD"}, {"nn", "NON"},    {"no", "NOR"},
    {"pl", "PLK"},    {"ro", "ROM"},    {"ru", "RUS"}, {"sk", "SKY"},    {"sl", "SLV"},
    {"sv", "SVE"},    {"th", "THA"},    {"tr", "TRK"}, {"uk", "UKR"},    {"vi", "VIT"},
};

char upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

}  // namespace

LCID GetUserDefaultLCID() {
  return kUserDefault;
}

int GetLocaleInfoA(LCID user, LCTYPE item, char* buffer, int size) {
  int result = 0;
  with_item(user, item, [&](const std::string& text, const CategoryLocale&) {
    result = give(text, buffer, size);
    return true;
  });
  return result;
}

int GetLocaleInfoW(LCID user, LCTYPE item, char16_t* buffer, int size) {
  int result = 0;
  with_item(user, item, [&](const std::string& text, const CategoryLocale& source) {
    if (const std::optional<std::wstring> wide = source.widen(text))
      result = give(to_utf16(*wide), buffer, size);
    return true;
  });
  return result;
}

std::string picture_from_strftime(std::string_view form) {
  return picture(form, LeftOut::kNothing);
}

std::string short_date_picture(std::string_view form) {
  return picture(form, LeftOut::kWeekdays);
}

std::string language_abbreviation(std::string_view locale_name) {
  const std::string_view name = locale_name.substr(0, locale_name.find_first_of(".@"));
  for (const Abbreviation& known : kAbbreviations) {
    if (name == known.language || name.substr(0, name.find('_')) == known.language)
      return std::string(known.name);
  }

  // A language without a name of its own there: its code and its territory's first letter.
  const std::string_view language = name.substr(0, name.find('_'));
  const bool is_code =
      (language.size() == 2 || language.size() == 3) &&
      std::all_of(language.begin(), language.end(), [](char c) { return c >= 'a' && c <= 'z'; });
  if (!is_code)
    return "ENU";
  std::string made(language);
  if (made.size() == 2) {
    const std::size_t territory = language.size() + 1;
    made += territory < name.size() && is_ascii_letter(name[territory]) ? name[territory] : 'X';
  }
  std::transform(made.begin(), made.end(), made.begin(), upper);
  return made;
}

}  // namespace locale
