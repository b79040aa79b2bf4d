// SPDX-License-Identifier: Apache-2.0
// The table of a data query: two heading lines and a line for each row that was read.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "source/domain/ZTrepServerInfoObj.h"

// Formats the client's last read over these metrics, in the order of the view. Values wider than
// their column push the rest of the line to the right. Nothing when a text value does not lie
// within what was read.
std::optional<std::string> format_data_table(
    const zt_RepServerInfo_class& client, const std::vector<const rep_sMetricDescriptor*>& columns);

// The columns of values begin behind a date and time of so many letters, at least 14.
std::string format_data_headings(const std::vector<const rep_sMetricDescriptor*>& columns,
                                 std::size_t date_width = 0);
// Appends one value with the blank before it; `text` is used for text metrics alone.
void append_data_value(std::string& line, const rep_sMetricDescriptor& metric, std::int32_t number,
                       const char* text);
