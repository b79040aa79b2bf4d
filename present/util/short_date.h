// SPDX-License-Identifier: Apache-2.0
// The strftime format of the user's short date, derived from the workstation's picture of it.

#pragma once

#include <string>
#include <string_view>

// The picture's month, day and year in its order with the separator behind each that does not end
// the picture: two digits each, four for yyyy. M/d/yy with "/" gives %m/%d/%y.
std::string ShortDateFormatFromWide(std::u16string_view picture, std::u16string_view separator);

// The finer rules for a picture in bytes: MMM is the month's short name, a single M or d has no
// leading zero.
std::string ShortDateFormatFromNarrow(std::string_view picture, std::string_view separator);

// The format for the user's locale, by the wide rules wherever the locale's texts can be had wide.
std::string UserShortDateFormat();
