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
constexpr const char* kFirstHeading = "              ";
constexpr const char* kSecondHeading = "Date     Time ";

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

std::string format_data_headings(const std::vector<const rep_sMetricDescriptor*>& columns) {
  std::string first = kFirstHeading;
  std::string second = kSecondHeading;
  for (const rep_sMetricDescriptor* metric : columns) {
    const int width = width_of(*metric);
    const char* heading = metric->HeadOneLength == 0 ? "" : metric->HeadingOne;
    append_text(first, " %-*s", width, printable(heading).c_str());
    append_text(second, " %-*s", width, printable(metric->HeadingTwo).c_str());
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
  append_text(line, " %-*s", width, printable(variable.GetString()).c_str());
}

std::optional<std::string> format_data_table(
    const zt_RepServerInfo_class& client,
    const std::vector<const rep_sMetricDescriptor*>& columns) {
  std::string table = format_data_headings(columns);
  const std::uint32_t* value = client.ReturnIntResults();
  for (std::size_t row = 0; row < client.ReturnRowCount(); ++row) {
    DateTime time;
    time.SetGmt(client.ReturnTimeStamps()[row]);
    table += time.FmtDateTime();
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
  return table;
}
