// SPDX-License-Identifier: Apache-2.0
// System records in memory, and their printed forms.

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "shared/general/nt/SHderControlObj.h"
#include "source/sysdb/ZTsysInfoObj.h"
#include "tests/support/test_files.h"

namespace {

class SystemRecord : public testing::Test {
 protected:
  SystemRecord() {
    BASE_CONTROL_OBJ::SetDirectory(folder_.path().c_str());
    setenv("TZ", "UTC", 1);
    tzset();
  }

  // A record whose text fields are full to the brim, without a terminator.
  static zt_SystemInfo_struct Unterminated() {
    zt_SystemInfo_struct record{};
    std::memset(record.fSystemName, 'n', sizeof record.fSystemName);
    std::memset(record.fGroupName, 'g', sizeof record.fGroupName);
    return record;
  }

  test::Folder folder_;
  CONTROL_OBJ control_;
};

const std::int32_t kUnnamedKey = test::KeyNumber(192, 0, 2, 7);

zt_SystemInfo_class Unnamed(const zt_SystemInfo_struct& record) {
  return {record, kUnnamedKey};
}

TEST_F(SystemRecord, KeysAreTheirBytesInMemoryOrder) {
  EXPECT_EQ(ConvertSystemKey(test::Key(192, 0, 2, 7).data()), kUnnamedKey);
  char text[kKeyTextSize];
  FormatSystemKey(kUnnamedKey, text);
  EXPECT_STREQ(text, "192.0.2.7");
  char name[kHostNameSize] = "unchanged";
  EXPECT_EQ(GetHostName(test::KeyNumber(127, 0, 0, 1), name, sizeof name), 1);
  EXPECT_STRNE(name, "unchanged");
  char narrow[2] = "u";
  EXPECT_EQ(GetHostName(test::KeyNumber(127, 0, 0, 1), narrow, sizeof narrow), 0);
  EXPECT_STREQ(narrow, "u");
}

TEST_F(SystemRecord, TypeTablesEndAtSeven) {
  EXPECT_EQ(ReturnSupportedSystemTypeCount(), 7);
  EXPECT_EQ(ReturnSupportedAgentCount(), 2);
  EXPECT_EQ(ReturnSystemTypeCode(0), nullptr);
  EXPECT_EQ(ReturnSystemTypeCode(8), nullptr);
  EXPECT_STREQ(ReturnSystemTypeCode(3), "Birch");
  EXPECT_STREQ(ReturnSystemTypeNames()[6], "DUN/DNX desktop");
  EXPECT_STREQ(ReturnAgentTypeCodes()[1], "ZTDT");
}

TEST_F(SystemRecord, NamesResolveToKeysAndAreCut) {
  const zt_SystemInfo_class none(nullptr);
  EXPECT_EQ(none.ReturnSystemKey(), -1);
  EXPECT_STREQ(none.ReturnSystemName(), "");
  const zt_SystemInfo_class address("192.0.2.7  ", "a group name longer than it may be");
  EXPECT_EQ(address.ReturnSystemKey(), kUnnamedKey);
  EXPECT_STREQ(address.ReturnSystemName(), "192.0.2.7  ");
  EXPECT_STREQ(address.ReturnGroupName(), "a group name longer");
  const std::string long_name(300, 'x');
  EXPECT_EQ(zt_SystemInfo_class(long_name.c_str()).ReturnSystemName(), long_name.substr(0, 256));
  EXPECT_EQ(zt_SystemInfo_class("255.255.255.255").ReturnSystemKey(), -1);
}

TEST_F(SystemRecord, TakesAnotherNameOfItsAddressOnly) {
  zt_SystemInfo_class info("127.0.0.1");
  info.SetSystemName("127.0.0.2");
  info.SetSystemName("no-such-host.invalid");
  info.SetSystemName(nullptr);
  EXPECT_STREQ(info.ReturnSystemName(), "127.0.0.1");
  info.SetSystemName("localhost");
  EXPECT_STREQ(info.ReturnSystemName(), "localhost");
}

TEST_F(SystemRecord, FieldsWithoutTerminatorAreCutToTheirSize) {
  SystemKey key = 0;
  const zt_SystemInfo_class info = Unnamed(Unterminated());
  EXPECT_EQ(info.ReturnSystemName(), std::string(256, 'n'));
  EXPECT_EQ(info.ReturnGroupName(), std::string(19, 'g'));
  EXPECT_EQ(info.ReturnV3Struct(key).fSystemName, std::string(256, 'n'));
  EXPECT_EQ(key, kUnnamedKey);
}

TEST_F(SystemRecord, ConvertsFromTheOlderLayout) {
  V3_SYSTEM_INFO older{};
  std::strcpy(older.fSystemName, "sys1");
  std::strcpy(older.fWorkGroup, "dropped");
  older.fAlarmSequenceNumber = 17;
  older.fRecUpdateTime = 900'000'000;
  older.fSystemType = 6;
  older.fAlarmMgrError = -3;
  older.fAlarmMonitorStatus = 5;
  const zt_SystemInfo_class info(older, kUnnamedKey);
  EXPECT_STREQ(info.ReturnSystemName(), "sys1");
  EXPECT_STREQ(info.ReturnGroupName(), "");
  EXPECT_STREQ(info.ReturnAlarmMgrStatusText(), "IN CONTACT");
  EXPECT_EQ(info.ReturnAlarmSequence(), 17);
  EXPECT_EQ(info.ReturnRecUpdateTime(), 900'000'000);
  EXPECT_EQ(info.ReturnSystemType(), 6);
  EXPECT_EQ(info.ReturnAlarmMgrError(), -3);
  EXPECT_TRUE(info.ReturnMapEnabled());
  EXPECT_TRUE(info.ReturnIsZTAgent());
  EXPECT_EQ(info.ReturnMonitorAlarms(), 1);
  EXPECT_EQ(info.ReturnAlarmCount(), 0);
}

TEST_F(SystemRecord, KeepsAlarmStatesInHalfBytes) {
  zt_SystemInfo_class info;
  info.SetAlarmState(3, 5);
  info.SetAlarmState(16, 5);
  info.SetAlarmState(1, 400);
  info.SetAlarmState(1, -1);
  SystemKey key = 0;
  const zt_SystemInfo_struct record = info.ReturnStruct(key);
  EXPECT_EQ(record.fAlarmStates[2], 0x30);
  EXPECT_EQ(info.ReturnAlarmState(5), 3);
  EXPECT_EQ(info.ReturnAlarmState(400), 0);
  std::array<int, kMaxAlarms> states{};
  info.GetAlarmArray(states.data());
  EXPECT_EQ(std::count(states.begin(), states.end(), 0), kMaxAlarms - 1);
  info.ResetAlarmStates();
  EXPECT_EQ(info.ReturnAlarmState(5), 0);
}

TEST_F(SystemRecord, MonitoringFollowsItsSettings) {
  zt_SystemInfo_class info;
  for (const auto& [set, stored] : {std::pair{-7, -1}, {9, 1}, {0, 0}}) {
    info.SetMonitorAlarms(set);
    EXPECT_EQ(info.ReturnMonitorAlarms(), stored);
  }
  info.SetMonitorAlarms(1);
  info.SetAlarmMonitorStatus(2);
  EXPECT_EQ(info.ReturnMonitorAlarms(), 1);
  info.SetAlarmMonitorStatus(0);
  EXPECT_EQ(info.ReturnMonitorAlarms(), 0);
}

class SystemReport : public SystemRecord {
 protected:
  SystemReport() {
    std::strcpy(record_.fSystemName, "sys1");
    record_.fAlarmSequenceNumber = 12;
    record_.fRecUpdateTime = 900'000'000;  // Thu, 1998-07-09 16:00 UTC
  }

  static std::string Printed(const zt_SystemInfo_class& info,
                             void (zt_SystemInfo_class::*print)() const) {
    testing::internal::CaptureStdout();
    (info.*print)();
    return testing::internal::GetCapturedStdout();
  }

  zt_SystemInfo_struct record_{};
};

TEST_F(SystemReport, ShortFormOfAQuietSystem) {
  EXPECT_EQ(Printed(Unnamed(record_), &zt_SystemInfo_class::PrintSystemShortInfo),
            "\nsys1: Key=192.0.2.7\n"
            " Status = NOT MONITORING\n"
            " Last error = <none>\n"
            " Seq = 12, Alarms = disabled, Symbols = none\n"
            " Record update : Thu, 07/09/98 at 16:00:00\n");
}

TEST_F(SystemReport, BothFormsOfASystemWithEverythingSet) {
  record_.fAlarmMonitorStatus = -1;
  record_.fAlarmMgrError = -2;
  record_.fMapEnabled = 2;
  record_.fOldSystem = 1;
  record_.fMonitorAlarms = -1;
  record_.fRecUpdateTime = -1;  // Sun, 2106-02-07 06:28:15 UTC
  test::WriteFile(folder_ / "ztsysxref", "other  x\nsys1 sys1back\n");
  EXPECT_EQ(Printed(Unnamed(record_), &zt_SystemInfo_class::PrintSystemShortInfo),
            "\nsys1: Key=192.0.2.7 (ZT 3.0 Agent)\n"
            " Status = UNKNOWN STATE\n"
            " Last error = -2\n"
            " Seq = 12, Alarms = delete, Symbols = created\n"
            " Record update : Sun, 02/07/06 at 06:28:15\n");
  zt_SystemDBAccess_class db((folder_ / "ztdb").c_str());
  ASSERT_EQ(db.PutSystemRec(Unnamed(record_)), 0);
  EXPECT_EQ(Printed(Unnamed(record_), &zt_SystemInfo_class::PrintSystemInfo),
            "\n  System Name       : sys1  (ZT 3.0 Agent)\n"
            "    Data comm key   : 192.0.2.7\n"
            "    Alarm Status    : UNKNOWN STATE\n"
            "    Last Error      : -2\n"
            "    Sequence Number : 12\n"
            "    Monitor Alarms  : delete\n"
            "    Symbols         : none\n"
            "     NOTE: This server will connect to the alarm manager\n"
            "           with the system name \"sys1back\".\n"
            "\n Record update : Sun, 02/07/06 at 06:28:15\n");
}

TEST_F(SystemReport, HostNamePrecedesTheStoredName) {
  char host[kHostNameSize] = "";
  const std::int32_t key = test::KeyNumber(127, 0, 0, 1);
  ASSERT_EQ(GetHostName(key, host, sizeof host), 1);
  const zt_SystemInfo_class info(record_, key);
  const std::string both = std::string(host) + " (sys1)";
  EXPECT_EQ(Printed(info, &zt_SystemInfo_class::PrintSystemShortInfo).find("\n" + both + ": Key="),
            0u);
  EXPECT_EQ(Printed(info, &zt_SystemInfo_class::PrintSystemInfo)
                .find("\n  System Name       : " + both + "\n"),
            0u);
}

TEST_F(SystemReport, AlarmGridHasTwentyRowsOfTwenty) {
  zt_SystemInfo_class info = Unnamed(record_);
  info.SetAlarmState(2, 23);
  info.SetAlarmState(1, 0);
  info.SetAlarmState(3, 4);
  info.SetAlarmState(4, 5);
  info.SetAlarmState(15, 399);
  const std::string rule = "          " + std::string(65, '-') + "\n";
  std::string expected =
      std::string(35, ' ') + "\n" + rule +
      "              U = unused        N = normal         W = warning             \n"
      "              C = critical      A = acknowledge                            \n" +
      rule + "              1  2  3  4  5   6  7  8  9 10  11 12 13 14 15  16 17 18 19 20 ";
  for (int row = 1; row <= 20; ++row) {
    char number[32];
    std::snprintf(number, sizeof number, "\n         %3d  ", row);
    std::string cells(63, ' ');
    if (row == 1)
      cells.replace(0, 1, "N").replace(12, 1, "C").replace(16, 1, "A");
    if (row == 2)
      cells.replace(9, 1, "W");
    if (row == 20)
      cells.replace(61, 1, "?");
    expected += number + cells;
  }
  EXPECT_EQ(Printed(info, &zt_SystemInfo_class::PrintAlarmStates), expected + "\n" + rule);
}

TEST_F(SystemReport, GeneralInformationGivesTheVersion) {
  zt_SystemDBMgt_class manager((folder_ / "ztdb").c_str());
  testing::internal::CaptureStdout();
  manager.PrintGeneralInfo();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n  System DB Version : 4\n");
  test::WriteFile(folder_ / "ztdb", "");
  testing::internal::CaptureStdout();
  manager.PrintGeneralInfo();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n  System DB Version : unknown\n");
}

}  // namespace
