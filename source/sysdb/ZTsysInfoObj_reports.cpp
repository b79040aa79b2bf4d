// SPDX-License-Identifier: Apache-2.0
// The printed forms of a system record and of the database.

#include <array>
#include <cstdio>
#include <ctime>
#include <string>

#include "source/support/ZTprintable.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

constexpr int kAlarmsPerRow = 20;
constexpr int kAlarmsPerBlock = 5;

constexpr char kAlarmRule[] =
    "          -----------------------------------------------------------------\n";

const char* MonitoringText(int monitor_alarms) {
  switch (monitor_alarms) {
    case 0:
      return "disabled";
    case 1:
      return "enabled";
    default:
      return "delete";
  }
}

std::string UpdateTimeText(std::int32_t seconds) {
  // Seconds since 1970 go on beyond 2038.
  const std::time_t time = static_cast<std::uint32_t>(seconds);
  std::tm local{};
  char text[80] = "";
  if (localtime_r(&time, &local) != nullptr)
    std::strftime(text, sizeof text, " Record update : %a, %x at %X", &local);
  return text;
}

const char* AlarmCell(int state) {
  static constexpr std::array<const char*, 5> kCells = {"   ", "N  ", "W  ", "C  ", "A  "};
  return state >= 0 && state < static_cast<int>(kCells.size())
             ? kCells[static_cast<std::size_t>(state)]
             : " ? ";
}

}  // namespace

const char* zt_SystemInfo_class::ReturnAlarmMgrStatusText() const {
  static constexpr std::array<const char*, 7> kTexts = {
      "NOT MONITORING", "NO CONTACT", "ALARMS REQUESTED", "DELETE REQUEST",
      "MAP MGR WAIT",   "IN CONTACT", "DELETING"};
  const int status = fSystemInfo.fAlarmMonitorStatus;
  if (status < 0 || status >= static_cast<int>(kTexts.size()))
    return "UNKNOWN STATE";
  return kTexts[static_cast<std::size_t>(status)];
}

const char* zt_SystemInfo_class::ReturnSystemTypeName() const {
  const int type = fSystemInfo.fSystemType;
  if (type < 1 || type > ReturnSupportedSystemTypeCount())
    return "UNKNOWN";
  return ReturnSystemTypeNames()[type - 1];
}

void zt_SystemInfo_class::PrintSystemShortInfo(const std::string& host) const {
  char key[kKeyTextSize];
  FormatSystemKey(fSystemKey, key);
  const std::string name = printable(ReturnSystemName());

  std::printf("\n");
  if (!host.empty())
    std::printf("%s (%s): Key=%s", host.c_str(), name.c_str(), key);
  else
    std::printf("%s: Key=%s", name.c_str(), key);
  std::printf("%s", ReturnIsZTAgent() ? " (ZT 3.0 Agent)\n" : "\n");
  std::printf(" Status = %s\n", ReturnAlarmMgrStatusText());
  if (fSystemInfo.fAlarmMgrError != 0)
    std::printf(" Last error = %d\n", fSystemInfo.fAlarmMgrError);
  else
    std::printf(" Last error = <none>\n");
  std::printf(" Seq = %d, Alarms = %s, Symbols = %s\n", fSystemInfo.fAlarmSequenceNumber,
              MonitoringText(fSystemInfo.fMonitorAlarms),
              fSystemInfo.fMapEnabled != 0 ? "created" : "none");
  std::printf("%s\n", UpdateTimeText(fSystemInfo.fRecUpdateTime).c_str());
}

void zt_SystemInfo_class::PrintSystemInfo(const std::string& host,
                                          const char* back_connect_name) const {
  char key[kKeyTextSize];
  FormatSystemKey(fSystemKey, key);
  const std::string name = printable(ReturnSystemName());

  std::printf("\n");
  if (host.empty())
    std::printf("  System Name       : %s", name.c_str());
  else
    std::printf("  System Name       : %s (%s)", host.c_str(), name.c_str());
  std::printf("%s", ReturnIsZTAgent() ? "  (ZT 3.0 Agent)\n" : "\n");
  std::printf("    Data comm key   : %s\n", key);
  std::printf("    Alarm Status    : %s\n", ReturnAlarmMgrStatusText());
  if (fSystemInfo.fAlarmMgrError != 0)
    std::printf("    Last Error      : %d\n", fSystemInfo.fAlarmMgrError);
  else
    std::printf("    Last Error      : <none>\n");
  std::printf("    Sequence Number : %d\n", fSystemInfo.fAlarmSequenceNumber);
  std::printf("    Monitor Alarms  : %s\n", MonitoringText(fSystemInfo.fMonitorAlarms));
  std::printf("    Symbols         : %s\n", ReturnMapEnabled() ? "created" : "none");
  if (back_connect_name != nullptr) {
    std::printf("     NOTE: This server will connect to the alarm manager\n");
    std::printf("           with the system name \"%s\".\n", printable(back_connect_name).c_str());
  }
  std::printf("\n%s\n", UpdateTimeText(fSystemInfo.fRecUpdateTime).c_str());
}

void zt_SystemInfo_class::PrintAlarmStates() const {
  std::array<int, kMaxAlarms> states{};
  GetAlarmArray(states.data());

  std::printf("                                   \n");
  std::printf("%s", kAlarmRule);
  std::printf("              U = unused        N = normal         W = warning             \n");
  std::printf("              C = critical      A = acknowledge                            \n");
  std::printf("%s", kAlarmRule);
  std::printf("              1  2  3  4  5   6  7  8  9 10  11 12 13 14 15  16 17 18 19 20 ");
  for (int alarm = 0; alarm < kMaxAlarms; ++alarm) {
    if (alarm % kAlarmsPerRow == 0)
      std::printf("\n         %3d  ", alarm / kAlarmsPerRow + 1);
    else if (alarm % kAlarmsPerBlock == 0)
      std::printf(" ");
    std::printf("%s", AlarmCell(states[static_cast<std::size_t>(alarm)]));
  }
  std::printf("\n%s", kAlarmRule);
}
