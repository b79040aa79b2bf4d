// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/alarm_interface.h"

namespace agent {
namespace {

constexpr std::int32_t kKey = 50462986;  // 10.1.2.3

class Alarms : public testing::Test {
 protected:
  static AlarmServer settings() {
    AlarmServer result;
    result.interval = 60;
    result.systems = {{0x0A000001, true, 0, false, 0}};
    return result;
  }

  // The listed systems as "#10.1.2.3 console snmp", from the handle on.
  std::string list(std::int32_t key, std::uint16_t max_index) {
    rpc::server::Results<ag_SystemInfo_struct> results(std::uint64_t{max_index} + 1);
    std::uint16_t last = 0;
    std::uint16_t count = 0;
    alarms_.GetSystems({}, key, &handle_, max_index, &last, &count, results, &status_);
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
      text += std::string(results[i].SocketString, results[i].SocketStrLen) + " " +
              std::to_string(results[i].ZTSystem) + std::to_string(results[i].SNMPSystem) + ";";
    return text;
  }

  AlarmInterface alarms_{settings()};
  std::uint16_t handle_ = 0;
  error_status_t status_ = 0;
};

TEST_F(Alarms, SystemsComeAndGoByBothWays) {
  alarms_.RegisterZT({}, kKey, &status_);
  alarms_.Register({}, kKey, ag_cSystemSNMP, &status_);
  EXPECT_EQ(list(0, 9), "#10.0.0.1 10;#10.1.2.3 11;");
  EXPECT_EQ(list(kKey, 9), "#10.1.2.3 11;");
  alarms_.Unregister({}, kKey, ag_cSystemZT, &status_);
  EXPECT_EQ(list(0, 9), "#10.0.0.1 10;#10.1.2.3 01;");
  EXPECT_EQ(status_, 0u);
  alarms_.UnregisterZT({}, kKey, &status_);
  EXPECT_EQ(status_, kAlarmUnknownSystem);
  status_ = 0;
  alarms_.DeleteZT({}, kKey, &status_);
  EXPECT_EQ(list(kKey, 9), "#10.1.2.3 01;");
  alarms_.UnregisterSNMP({}, kKey, &status_);
  EXPECT_EQ(status_, 0u);
  EXPECT_EQ(list(kKey, 9), "");
  EXPECT_EQ(status_, kAlarmUnknownSystem);
  alarms_.Register({}, kKey, static_cast<ag_eSystemType>(2), &status_);
  EXPECT_EQ(status_, kAlarmUnknownType);
}

TEST_F(Alarms, ListsGoOnWhereTheyEnded) {
  for (int i = 0; i < 4; ++i)
    alarms_.RegisterZT({}, kKey + (i << 24), &status_);
  EXPECT_EQ(list(0, 1), "#10.0.0.1 10;#10.1.2.3 10;");
  EXPECT_EQ(handle_, 2);
  EXPECT_EQ(list(0, 1), "#10.1.2.4 10;#10.1.2.5 10;");
  EXPECT_EQ(list(0, 1), "#10.1.2.6 10;");
  EXPECT_EQ(handle_, 0);
  handle_ = 99;
  EXPECT_EQ(list(0, 1), "");
  EXPECT_EQ(status_, kAlarmUnknownSystem);
}

TEST_F(Alarms, SettingsAreKeptAndChangesTold) {
  std::int32_t changed = -1;
  alarms_.DBChanged({}, &changed, &status_);
  EXPECT_EQ(changed, 0);
  alarms_.SetEvCFlag({}, 1, &status_);
  alarms_.SetExecFlag({}, 2, &status_);
  alarms_.SetInterval({}, 3, &status_);
  alarms_.SetEvCError({}, 4, &status_);
  ag_GeneralInfo_struct info{};
  alarms_.GetGeneralInfo({}, &info, &status_);
  EXPECT_EQ(info.EvC, 1u);
  EXPECT_EQ(info.Exec, 2u);
  EXPECT_EQ(info.Interval, 3u);
  EXPECT_EQ(info.EvCError, 4u);
  alarms_.DBChanged({}, &changed, &status_);
  EXPECT_EQ(changed, 1);
  alarms_.DBChanged({}, &changed, &status_);
  EXPECT_EQ(changed, 0);
}

TEST_F(Alarms, ErrorsBelongToKnownSystems) {
  const std::uint32_t sent = 5;
  alarms_.SetZTError({}, kKey, 9, &status_);
  EXPECT_EQ(status_, kAlarmUnknownSystem);
  alarms_.GetSNMPError({}, kKey, &sent, &status_);
  EXPECT_EQ(status_, kAlarmUnknownSystem);
  alarms_.RegisterZT({}, kKey, &status_);
  status_ = 0;
  alarms_.SetZTError({}, kKey, 9, &status_);
  alarms_.GetZTError({}, kKey, &sent, &status_);
  EXPECT_EQ(status_, 0u);
}

}  // namespace
}  // namespace agent
