// SPDX-License-Identifier: Apache-2.0
// How fast the data query's cells are formatted: 256 rows of 16 metrics, against the snprintf calls
// for the same cells.

#include <cstdio>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "source/domain/ZTdataTable.h"

namespace {

constexpr std::int32_t kRows = 256;
constexpr std::size_t kColumns = 16;

// Every fourth column holds texts.
bool is_text(std::size_t column) {
  return column % 4 == 3;
}

std::vector<rep_sMetricDescriptor> metrics() {
  std::vector<rep_sMetricDescriptor> result(kColumns);
  for (std::size_t i = 0; i < kColumns; ++i) {
    std::snprintf(result[i].Descriptor.fName, sizeof result[i].Descriptor.fName,
                  "GBL_CPU_TOTAL_UTIL_%zu", i);
    result[i].ColumnWidth = 10;
    result[i].DataType = is_text(i) ? 3 : 1;
    result[i].Scale10 = static_cast<std::int16_t>(i % 3);
  }
  return result;
}

std::string format_cells(const std::vector<rep_sMetricDescriptor>& columns) {
  std::string table;
  for (std::int32_t row = 0; row < kRows; ++row) {
    for (const auto& metric : columns)
      append_data_value(table, metric, row * 137, "/dev/dsk1");
    table += '\n';
  }
  return table;
}

std::string snprintf_cells() {
  std::string table;
  char cell[64];
  for (std::int32_t row = 0; row < kRows; ++row) {
    for (std::size_t i = 0; i < kColumns; ++i) {
      double value = row * 137;
      for (std::size_t place = 0; place < i % 3; ++place)
        value /= 10;
      const int length = is_text(i) ? std::snprintf(cell, sizeof cell, " %-*s", 10, "/dev/dsk1")
                                    : std::snprintf(cell, sizeof cell, " %-*.*f", 10,
                                                    static_cast<int>(i % 3), value);
      table.append(cell, static_cast<std::size_t>(length));
    }
    table += '\n';
  }
  return table;
}

// The time of one of many runs.
double each(const std::function<std::string()>& work) {
  constexpr int kRuns = 300;
  return bench::seconds_of([&] {
           for (int run = 0; run < kRuns; ++run) {
             const std::string table = work();
             bench::keep(table);
           }
         }) /
         kRuns;
}

}  // namespace

int main() {
  const auto columns = metrics();
  bench::require(format_cells(columns) == snprintf_cells(), "the two tables differ");
  bench::report({.what = "formatting a table of 256 rows by 16 metrics",
                 .ours = [&] { return each([&] { return format_cells(columns); }); },
                 .against = "the snprintf calls of its cells",
                 .baseline = [] { return each(snprintf_cells); },
                 .unit = bench::kMicroseconds,
                 .goal = "2 or less"});
}
