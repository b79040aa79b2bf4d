// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTdataTable.h"

#include <algorithm>

#include "present/util/util.h"
#include "present/util/variable.h"
#include "source/support/ZTformat.h"
#include "source/support/ZTprintable.h"

namespace {

constexpr int kClassType = 1;
constexpr std::uint16_t kWidest = 1023;  // the description's 10 bits
constexpr unsigned kDecimalBits = 0x7;
constexpr unsigned kScaleBits = 0x3FF;
constexpr std::size_t kLeastDateWidth = 14;  // of a short date of eight characters, and the time
constexpr std::size_t kTimeWidth = 6;        // with the blank before it

// The letters of a text, or its octets when it is no UTF-8.
std::size_t letters_of(std::string_view text) {
  std::size_t letters = 0;
  for (std::string_view rest = text; !rest.empty(); ++letters) {
    const std::size_t length = utf8_length(rest);
    if (length == 0)
      return text.size();
    rest.remove_prefix(length);
  }
  return letters;
}

// Appends a text with the blank before it, padded to the column's width.
void append_column(std::string& line, std::size_t width, const std::string& text) {
  line += ' ' + text;
  line.append(width - std::min(width, letters_of(text)), ' ');
}

bool is_number(const rep_sMetricDescriptor& metric) {
  return metric.DataType >= 0 && metric.DataType <= 2;
}

int width_of(const rep_sMetricDescriptor& metric) {
  return std::min(metric.ColumnWidth, kWidest);
}

FieldParm description_of(const rep_sMetricDescriptor& metric) {
  const bool number = is_number(metric);
  const auto scale = static_cast<std::uint16_t>(metric.Scale10);
  FieldParm description;
  description.metricNo = static_cast<int>(metric.Descriptor.fId);
  description.numeric = number ? 1 : 0;
  description.leftJust = number ? 0 : 1;
  description.width = static_cast<unsigned>(width_of(metric)) & kScaleBits;
  description.dec = scale & kDecimalBits;
  description.scale = scale & kScaleBits;
  return description;
}

}  // namespace

std::string format_data_headings(const std::vector<const rep_sMetricDescriptor*>& columns,
                                 std::size_t date_width) {
  date_width = std::max(date_width, kLeastDateWidth);
  std::string first(date_width, ' ');
  std::string second = "Date";
  second.append(date_width - kTimeWidth - second.size() + 1, ' ');
  second += "Time ";
  for (const rep_sMetricDescriptor* metric : columns) {
    const auto width = static_cast<std::size_t>(width_of(*metric));
    append_column(first, width, printable(metric->HeadOneLength == 0 ? "" : metric->HeadingOne));
    append_column(second, width, printable(metric->HeadingTwo));
  }
  return first + "\n" + second + "\n";
}

void append_data_value(std::string& line, const rep_sMetricDescriptor& metric, std::int32_t number,
                       const char* text) {
  const FieldParm description = description_of(metric);
  const int width = static_cast<int>(description.width);
  Variable variable(metric.Descriptor.fName, description, kClassType);
  if (variable.numeric()) {
    variable = number;
    append_text(line, " %-*.*f", width, static_cast<int>(description.dec), variable.GetNumber());
    return;
  }
  variable = text;
  append_column(line, static_cast<std::size_t>(width), printable(variable.GetString()));
}

std::optional<std::string> format_data_table(
    const zt_RepServerInfo_class& client,
    const std::vector<const rep_sMetricDescriptor*>& columns) {
  std::string table;
  std::size_t date_width = 0;
  const std::uint32_t* value = client.ReturnIntResults();
  for (std::size_t row = 0; row < client.ReturnRowCount(); ++row) {
    DateTime time;
    time.SetGmt(client.ReturnTimeStamps()[row]);
    const std::string date = time.FmtDateTime();
    date_width = std::max(date_width, letters_of(date));
    table += date;
    for (const rep_sMetricDescriptor* metric : columns) {
      std::optional<std::string_view> text = std::string_view();
      if (!is_number(*metric))
        text = client.ReturnText(*value);
      if (!text)
        return std::nullopt;
      append_data_value(table, *metric, static_cast<std::int32_t>(*value), text->data());
      ++value;
    }
    table += '\n';
  }
  return format_data_headings(columns, date_width) + table;
}
