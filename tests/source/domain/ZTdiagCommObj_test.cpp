// SPDX-License-Identifier: Apache-2.0
// The checks and their reports, and the order in which pending messages are shown.

#include "source/domain/ZTdiagCommObj.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "captured.h"
#include "scripted_agent.h"
#include "shared/general/SHNLSmsg.h"
#include "source/domain/ZTalarmNotifyObj.h"
#include "source/domain/ZTenvInit.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

std::string message(int number, int set = 20) {
  return "<message catalog missing message " + std::to_string(number) + " in set " +
         std::to_string(set) + ">\n";
}

bool local_host_resolves() {
  SystemKey key = 0;
  return GetLocalSystemKey(key) == 0;
}

class DiagComm : public ::testing::Test {
 protected:
  DiagComm() {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    script_one_server("DATA");
    diagnostic_ = std::make_unique<zt_DiagComm_class>();
    EXPECT_EQ(1, diagnostic_->ValidSystemName("127.0.0.1"));
  }

  // Runs a check and what follows its failure, as the program does.
  template <typename Check>
  Captured run(const Check& check) {
    return capture([&] {
      result_ = check();
      if (result_ == 0)
        diagnostic_->DisplayErrors();
    });
  }

  std::unique_ptr<zt_DiagComm_class> diagnostic_;
  int result_ = -1;
};

TEST_F(DiagComm, ListsServersAndTheAlarmServer) {
  if (!local_host_resolves())
    GTEST_SKIP() << "the local host name has no address here";
  agent.servers = {{"Label\x1b[2J", "ONE", 1, "/p\none", 2001}, {"", "TWO", 2, "/two", 2002}};
  const std::string listing =
      "Found registered rep_servers at:\n"
      "\n"
      "  Server: Port[2001] - Label?[2J\n"
      "  Path  : /p?one\n"
      "\n"
      "  Server: Port[2002] - TWO\n"
      "  Path  : /two\n"
      "\n";
  struct Case {
    ptc_LookupLosses losses;
    std::vector<ScriptedServer> alarm_servers;
    std::string alarm, err;
  };
  ptc_LookupLosses dead, unread;
  dead.server.status = 1722;
  unread.mapper.status = 1820;
  const std::string none = "No almserver registered.\n\n";
  const std::string missing = message(138) + message(124);
  const Case cases[] = {
      {{}, {}, none, ""},
      {dead, {}, none, missing + message(307, 13) + message(124)},
      {unread, {}, none, missing + message(306, 13) + message(124)},
      {{}, {{"", "alm", 0, "", 3001}}, "Found almserver registered at:\n\n  Port[3001]\n\n", ""},
  };
  for (const Case& test : cases) {
    agent.losses = test.losses;
    agent.alarm_servers = test.alarm_servers;
    const Captured report = run([&] { return diagnostic_->Breakout(); });
    EXPECT_EQ(1, result_);
    EXPECT_EQ(listing + test.alarm, report.out);
    EXPECT_EQ(test.err, report.err);
    EXPECT_EQ(0, agent.records_held);
  }
}

TEST_F(DiagComm, ARefusalIsToldAsOneEveryTime) {
  agent.probe_port = refusing_port();
  for (int check = 0; check < 2; ++check) {
    const std::string told = run([&] { return diagnostic_->Breakout(); }).err;
    EXPECT_TRUE(told.starts_with(message(114))) << told;
  }
}

// --- The configuration report.

void script_configuration() {
  script_one_server("TAMBO");
  agent.classes = {
      make_class(1, "CONFIGURATION",
                 {"TIME", "GBL_MACHINE", "GBL_OSNAME", "GBL_SYSTEM_ID", "GBL_OSRELEASE",
                  "GBL_COLLECTOR", "GBL_NUM_NETWORK", "GBL_LOGFILE_VERSION"})};
  agent.reads = {{{911404800, 0xFFFFFFFF},
                  {0, 8, 14, 20, 24, 0xFFFFFFFF, 2},
                  std::string("DNX    \0node1\0B.10 \0m9\t\0TAMBO 4\0", 32),
                  {}}};
}

TEST_F(DiagComm, AnUnreadableConfigurationIsNotPrintedAndItsViewDestroyed) {
  const std::string runtime = message(32, 11) + message(90, 13) + message(124);
  struct Case {
    const char* name;
    void (*breakage)();
    std::string shown;
  };
  const Case cases[] = {
      {"read fails", [] { agent.statuses["repView_Read"] = 1726; }, runtime},
      {"no rows", [] { agent.reads[0].positions = {}; }, message(101) + message(124)},
      {"text outside", [] { agent.reads[0].integers[3] = 32; }, runtime},
      {"text without end", [] { agent.reads[0].characters.pop_back(); }, runtime},
  };
  for (const Case& test : cases) {
    script_configuration();
    test.breakage();
    const Captured report = run([&] { return diagnostic_->PrintConfigInfo(); });
    EXPECT_EQ(0, result_) << test.name;
    EXPECT_EQ("", report.out) << test.name;
    EXPECT_EQ(test.shown, report.err) << test.name;
    EXPECT_EQ(1, agent.count("repView_Destroy")) << test.name;
  }
}

TEST_F(DiagComm, ADataSourceWithoutAClassHasNothingToShow) {
  EXPECT_EQ("", run([&] { return diagnostic_->QueryServer("DATA"); }).out);
  EXPECT_EQ(0, result_);
}

// --- The alarm link's other operations.

TEST(AlarmLink, RecordsTheOutcomeInTheSystemsRecord) {
  if (!local_host_resolves())
    GTEST_SKIP() << "the local host name has no address here";
  script_one_server("DATA");
  zt_SystemInfo_struct record{};
  zt_SystemInfo_class system(record, kLoopback);
  zt_RPCAlarmNoticeLink_class link;
  EXPECT_EQ(nullptr, link.ReturnEndPoint());
  EXPECT_EQ(-1, link.ContactNode(system, 1));
  EXPECT_EQ(message(6, 17), capture([&] { link.DisplayErrors(); }).err);

  agent.alarm_servers = {{"", "alm", 0, "", 3001}};
  EXPECT_EQ(0, link.ContactNode(system, 1));
  EXPECT_EQ(1, system.ReturnMonitorAlarms());
  EXPECT_EQ(2, system.ReturnAlarmMonitorStatus());
  EXPECT_STREQ("3001", link.ReturnEndPoint());
  EXPECT_EQ(0, link.ContactNode(system, 0));
  EXPECT_EQ(0, system.ReturnMonitorAlarms());
  EXPECT_EQ(0, system.ReturnAlarmMonitorStatus());

  agent.statuses = {{"ag_RegisterZT", 1726}, {"ag_UnregisterZT", 1726}};
  EXPECT_EQ(-1, link.ContactNode(system, 1));
  EXPECT_EQ(message(308, 13), capture([&] { link.DisplayErrors(); }).err);
  EXPECT_EQ(-1, link.ContactNode(system, 0));
  EXPECT_EQ(message(309, 13), capture([&] { link.DisplayErrors(); }).err);
  EXPECT_EQ(0, system.ReturnMonitorAlarms());
  EXPECT_EQ(0, agent.records_held);
}

}  // namespace
