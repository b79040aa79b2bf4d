// SPDX-License-Identifier: Apache-2.0
// ztsys list: the systems as a table for people, as CSV, or a JSON object a line. The file is read
// once; what is shown is kept until its end, since columns have the width of the longest text.

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <numeric>
#include <string_view>

#include "source/support/ZTprintable.h"
#include "tools/ztsys/csv.h"
#include "tools/ztsys/database.h"
#include "tools/ztsys/description.h"
#include "tools/ztsys/fields.h"
#include "tools/ztsys/system_store.h"

namespace ztsys {

namespace {

constexpr std::size_t kColumns = 6;
constexpr std::size_t kColumnGap = 2;
constexpr std::size_t kWriteAt = 64 * 1024;
using Widths = std::array<std::size_t, kColumns>;
constexpr std::array<const char*, kColumns> kHeading = {"NAME", "ADDRESS", "GROUP",
                                                        "TYPE", "ALARMS",  "STATUS"};

// Collects what is printed, for few and large writes.
class Output {
 public:
  ~Output() { Write(); }
  std::string& text() { return text_; }
  void EndLine() {
    text_ += '\n';
    if (text_.size() >= kWriteAt)
      Write();
  }

 private:
  void Write() {
    std::fwrite(text_.data(), 1, text_.size(), stdout);
    text_.clear();
  }
  std::string text_;
};

// Characters of a text in UTF-8, for alignment.
std::size_t Width(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// The cells of one system at a time.
class Row {
 public:
  struct Cell {
    std::string_view text;
    std::size_t width = 0;
  };

  Row() {
    for (std::size_t column = 0; column < kColumns; ++column)
      SetPlain(column, kHeading[column]);
  }

  // The texts of `info` are used as long as the row shows it.
  void Show(const zt_SystemInfo_class& info) {
    FormatSystemKey(info.ReturnSystemKey(), address_);
    SetText(0, info.ReturnSystemName());
    SetPlain(1, address_);
    SetText(2, info.ReturnGroupName());
    if (cells_[2].text.empty())
      SetPlain(2, kNone);
    if (const char* code = ReturnSystemTypeCode(info.ReturnSystemType()); code != nullptr)
      SetPlain(3, code);
    else
      SetPlain(3, scratch_[3] = TypeText(info.ReturnSystemType()));
    SetPlain(4, MonitoringText(info.ReturnMonitorAlarms()));
    SetPlain(5, info.ReturnAlarmMgrStatusText());
  }

  const std::array<Cell, kColumns>& cells() const { return cells_; }

 private:
  void SetPlain(std::size_t column, std::string_view text) { cells_[column] = {text, text.size()}; }
  void SetText(std::size_t column, std::string_view text) {
    const bool plain =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c < 0x7f; });
    if (plain)
      return SetPlain(column, text);
    scratch_[column] = printable(text);
    cells_[column] = {scratch_[column], Width(scratch_[column])};
  }

  std::array<Cell, kColumns> cells_;
  std::array<std::string, kColumns> scratch_;
  char address_[kKeyTextSize];
};

void Widen(Widths& widths, const Row& row) {
  for (std::size_t column = 0; column < kColumns; ++column)
    widths[column] = std::max(widths[column], row.cells()[column].width);
}

void PrintRow(Output& output, const Row& row, const Widths& widths) {
  for (std::size_t column = 0; column < kColumns; ++column) {
    const Row::Cell& cell = row.cells()[column];
    output.text() += cell.text;
    if (column + 1 < kColumns)
      output.text().append(widths[column] - cell.width + kColumnGap, ' ');
  }
  output.EndLine();
}

using Filter = std::function<bool(const zt_SystemInfo_class&)>;

// Reports a value that is none.
Status FilterOf(const Arguments& arguments, Filter& filter) {
  std::optional<int> type;
  if (arguments.type && !(type = ParseType(*arguments.type)))
    return FailUsage(RefusalOfType(*arguments.type));
  std::optional<std::string> group = arguments.group;
  if (group == kNone)
    group = "";
  filter = [group, type, match = arguments.match](const zt_SystemInfo_class& info) {
    return (!group || *group == info.ReturnGroupName()) &&
           (!type || *type == info.ReturnSystemType()) &&
           (!match || fnmatch(match->c_str(), info.ReturnSystemName(), 0) == 0);
  };
  return kDone;
}

using Less = bool (*)(const zt_SystemInfo_class&, const zt_SystemInfo_class&);

struct SortKey {
  std::string_view name;
  Less less;
};

std::uint32_t Octets(const zt_SystemInfo_class& info) {
  return __builtin_bswap32(static_cast<std::uint32_t>(info.ReturnSystemKey()));
}

constexpr SortKey kSortKeys[] = {
    {"name",
     [](const auto& a, const auto& b) {
       return std::strcmp(a.ReturnSystemName(), b.ReturnSystemName()) < 0;
     }},
    {"address", [](const auto& a, const auto& b) { return Octets(a) < Octets(b); }},
    {"group",
     [](const auto& a, const auto& b) {
       return std::strcmp(a.ReturnGroupName(), b.ReturnGroupName()) < 0;
     }},
    {"updated", [](const auto& a, const auto& b) {
       return static_cast<std::uint32_t>(a.ReturnRecUpdateTime()) >
              static_cast<std::uint32_t>(b.ReturnRecUpdateTime());
     }}};

// Systems that are equal by the key stay in the order of the file.
std::vector<std::uint32_t> OrderOf(const SystemStore& systems, const std::string& key) {
  std::vector<std::uint32_t> order(systems.size());
  std::iota(order.begin(), order.end(), 0U);
  for (const SortKey& sort : kSortKeys)
    if (sort.name == key)
      std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
        return sort.less(systems[a], systems[b]);
      });
  return order;
}

void PrintCsv(Output& output, const zt_SystemInfo_class& info) {
  char address[kKeyTextSize];
  FormatSystemKey(info.ReturnSystemKey(), address);
  const int type = info.ReturnSystemType();
  AppendCsv(output.text(), {info.ReturnSystemName(), address, info.ReturnGroupName(),
                            type == 0 ? "" : TypeText(type)});
  output.EndLine();
}

// What is printed without a look at other systems goes out as it is read.
Status PrintAsRead(const Arguments& arguments, SystemReader& reader, const Filter& filter) {
  Output output;
  if (arguments.csv)
    output.text() += kCsvHeading;
  const BackConnectNames names = arguments.json ? ReadBackConnectNames() : BackConnectNames();
  const Status status = ForEachSystem(reader, [&](const zt_SystemInfo_class& info) {
    if (!filter(info))
      return;
    if (arguments.csv)
      return PrintCsv(output, info);
    output.text() += JsonOf(info, names);
    output.EndLine();
  });
  return status != kDone ? status : ReportTail(reader.path(), reader.tail());
}

void PrintTable(const SystemStore& systems, const std::vector<std::uint32_t>& order,
                const Widths& widths) {
  Output output;
  Row row;
  PrintRow(output, row, widths);
  for (const std::uint32_t index : order) {
    const zt_SystemInfo_class info = systems[index];
    row.Show(info);
    PrintRow(output, row, widths);
  }
}

void PrintOrdered(const Arguments& arguments, const SystemStore& systems,
                  const std::vector<std::uint32_t>& order) {
  Output output;
  if (arguments.csv)
    output.text() += kCsvHeading;
  const BackConnectNames names = arguments.json ? ReadBackConnectNames() : BackConnectNames();
  for (const std::uint32_t index : order) {
    if (arguments.csv) {
      PrintCsv(output, systems[index]);
    } else {
      output.text() += JsonOf(systems[index], names);
      output.EndLine();
    }
  }
}

}  // namespace

Status RunList(const Arguments& arguments) {
  if (arguments.json && arguments.csv)
    return FailUsage("--json and --csv exclude each other");
  Filter filter;
  if (const Status status = FilterOf(arguments, filter); status != kDone)
    return status;
  SystemReader reader;
  if (const Status status = OpenReader(arguments, reader); status != kDone)
    return status;
  const bool table = !arguments.json && !arguments.csv;
  if (!table && arguments.sort.empty())
    return PrintAsRead(arguments, reader, filter);

  SystemStore systems;
  Row row;
  Widths widths{};
  Widen(widths, row);
  const Status status = ForEachSystem(reader, [&](const zt_SystemInfo_class& info) {
    if (!filter(info))
      return;
    systems.Add(info);
    row.Show(info);
    Widen(widths, row);
  });
  const std::vector<std::uint32_t> order = OrderOf(systems, arguments.sort);
  if (table)
    PrintTable(systems, order, widths);
  else
    PrintOrdered(arguments, systems, order);
  return status != kDone ? status : ReportTail(reader.path(), reader.tail());
}

}  // namespace ztsys
