// SPDX-License-Identifier: Apache-2.0
// The user's locale in the workstation's terms: pictures such as MM/dd/yy instead of strftime
// forms, and three-letter language names. The process itself stays in the C locale; what the user
// wants is read from LC_ALL, the category's variable or LANG at every call.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace locale {

using LCID = std::uint32_t;
using LCTYPE = std::uint32_t;

inline constexpr LCTYPE LOCALE_SABBREVLANGNAME = 0x0003;  // ENU for C, POSIX and English
inline constexpr LCTYPE LOCALE_SDECIMAL = 0x000E;         // one byte
inline constexpr LCTYPE LOCALE_SDATE = 0x001D;            // date separator, one character
inline constexpr LCTYPE LOCALE_SSHORTDATE = 0x001F;       // picture, without a weekday
inline constexpr LCTYPE LOCALE_SLONGDATE = 0x0020;        // picture
inline constexpr LCTYPE LOCALE_S1159 = 0x0028;            // morning; empty where nobody says it
inline constexpr LCTYPE LOCALE_S2359 = 0x0029;            // afternoon
inline constexpr LCTYPE LOCALE_STIMEFORMAT = 0x1003;      // picture

// The user's locale. A mark for the calls below; it holds nothing of the locale itself.
LCID GetUserDefaultLCID();

// One item as a terminated text in the locale's own character set. Result: the bytes written with
// the terminator (with size 0: needed); 0 for an item, a locale or a size that does not serve.
int GetLocaleInfoA(LCID locale, LCTYPE item, char* buffer, int size);

// The same in UTF-16 units; 0 also when the text is not valid in the locale's character set.
int GetLocaleInfoW(LCID locale, LCTYPE item, char16_t* buffer, int size);

// A strftime form as a picture: %d.%m.%Y gives dd.MM.yyyy. Conversions that pictures cannot say
// are left out; letters of the form are quoted as pictures do it.
std::string picture_from_strftime(std::string_view form);
// The same without weekdays, whose letters would be taken for a day of the month, and without what
// separates them from the date.
std::string short_date_picture(std::string_view form);

// The three-letter language name of a locale's name: de_DE.UTF-8 gives DEU.
std::string language_abbreviation(std::string_view locale_name);

}  // namespace locale
