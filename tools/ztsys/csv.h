// SPDX-License-Identifier: Apache-2.0
// Comma-separated values (RFC 4180), a record a line.

#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace ztsys {

inline constexpr std::string_view kCsvHeading = "name,address,group,type\n";

// Appends the cells of a line, without its end. Cells are quoted where they must be.
void AppendCsv(std::string& line, std::initializer_list<std::string_view> cells);

// The cells of a line. False when a quote is not closed, or something follows a closed one.
bool SplitCsv(std::string_view line, std::vector<std::string>& cells);

}  // namespace ztsys
