// SPDX-License-Identifier: Apache-2.0
// The fields of a system as a user writes and reads them: names, groups, types and addresses.

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "source/sysdb/ZTsysRecords.h"

namespace ztsys {

// What stands for no group or no type where an empty text means that the field is left alone.
inline constexpr std::string_view kNone = "-";

// Four decimal numbers without leading zeros.
std::optional<SystemKey> ParseAddress(std::string_view text);
// Whether a text can only be meant as an address, well written or not: its last part is a number.
// No such text is ever given to the resolver, which would read 7 as 0.0.0.7.
bool LooksLikeAddress(std::string_view text);
// Why no system can have an address, or nothing.
std::string RefusalOfAddress(SystemKey key);

// What keeps a text out of a record's field of that size, or nothing. `what` names the text.
std::string RefusalOf(const char* what, std::string_view text, std::size_t field_size);

// A type's number by its number, its code or "-"; nothing for any other text.
std::optional<int> ParseType(const std::string& text);
std::string RefusalOfType(const std::string& text);

// For lists: the code, the number of an unknown type, or "-".
std::string TypeText(int type);
const char* MonitoringText(int monitor_alarms);

}  // namespace ztsys
