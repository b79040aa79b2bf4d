// SPDX-License-Identifier: Apache-2.0
// Lines of files that anybody may have written.

#pragma once

#include <cstddef>
#include <istream>
#include <string>

namespace ztsys {

inline constexpr std::size_t kLongestLine = 4096;

// The next line without its end; false when there is none. A line that is longer than kLongestLine
// is cut one octet behind that, and its rest, which may have no end, left unread.
bool ReadLine(std::istream& in, std::string& line);

}  // namespace ztsys
