// SPDX-License-Identifier: Apache-2.0
// ztsys list: all systems in the order of the file, as a table for people or a JSON object a line.

#include <algorithm>
#include <array>
#include <cstdio>

#include "source/support/ZTprintable.h"
#include "tools/ztsys/database.h"
#include "tools/ztsys/json.h"

namespace ztsys {

namespace {

constexpr std::size_t kColumns = 6;
constexpr int kColumnGap = 2;
using Row = std::array<std::string, kColumns>;

const char* MonitoringText(int monitor_alarms) {
  if (monitor_alarms == 0)
    return "disabled";
  return monitor_alarms == 1 ? "enabled" : "delete";
}

std::string TypeText(int type) {
  const char* code = ReturnSystemTypeCode(type);
  if (code != nullptr)
    return code;
  return type == 0 ? "-" : std::to_string(type);
}

Row RowOf(const zt_SystemInfo_class& info) {
  const std::string group = printable(info.ReturnGroupName());
  return {printable(info.ReturnSystemName()),
          AddressText(info.ReturnSystemKey()),
          group.empty() ? "-" : group,
          TypeText(info.ReturnSystemType()),
          MonitoringText(info.ReturnMonitorAlarms()),
          info.ReturnAlarmMgrStatusText()};
}

// Characters of a text in UTF-8, for alignment.
std::size_t Width(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

void PrintRow(const Row& row, const std::array<std::size_t, kColumns>& widths) {
  std::string line;
  for (std::size_t column = 0; column < kColumns; ++column) {
    line += row[column];
    if (column + 1 < kColumns)
      line.append(widths[column] - Width(row[column]) + kColumnGap, ' ');
  }
  std::printf("%s\n", line.c_str());
}

void PrintTable(const std::vector<Row>& rows) {
  std::array<std::size_t, kColumns> widths{};
  for (const Row& row : rows)
    for (std::size_t column = 0; column < kColumns; ++column)
      widths[column] = std::max(widths[column], Width(row[column]));
  for (const Row& row : rows)
    PrintRow(row, widths);
}

void PrintJson(const zt_SystemInfo_class& info) {
  JsonObject object;
  object.Text("name", info.ReturnSystemName());
  object.Text("address", AddressText(info.ReturnSystemKey()));
  object.Text("group", info.ReturnGroupName());
  object.Number("type", info.ReturnSystemType());
  object.Text("type_name", info.ReturnSystemTypeName());
  object.Text("alarms", MonitoringText(info.ReturnMonitorAlarms()));
  object.Number("status", info.ReturnAlarmMonitorStatus());
  object.Text("status_text", info.ReturnAlarmMgrStatusText());
  object.Number("last_error", info.ReturnAlarmMgrError());
  object.Number("sequence", info.ReturnAlarmSequence());
  object.Number("alarm_count", info.ReturnAlarmCount());
  object.Truth("symbols", info.ReturnMapEnabled());
  object.Truth("old_agent", info.ReturnIsZTAgent());
  object.Number("updated", info.ReturnRecUpdateTime());
  std::printf("%s\n", object.Take().c_str());
}

}  // namespace

Status RunList(const Arguments& arguments) {
  const auto db = OpenDatabase(arguments, Missing::kRefuse);
  if (db == nullptr)
    return kFailed;
  std::vector<Row> rows = {{"NAME", "ADDRESS", "GROUP", "TYPE", "ALARMS", "STATUS"}};
  zt_SystemInfo_class info;
  int status = db->GetFirstSystemRec(info);
  for (; status == 0; status = db->GetNextSystemRec(info)) {
    if (arguments.json)
      PrintJson(info);
    else
      rows.push_back(RowOf(info));
  }
  if (!arguments.json)
    PrintTable(rows);
  return status == kSysDbNoMoreSystems ? kDone : FailDatabase(*db, "cannot read", status);
}

}  // namespace ztsys
