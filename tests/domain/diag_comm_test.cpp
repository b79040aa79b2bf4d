// The checks and their reports, and the order in which pending messages are shown.

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
#include "source/domain/ZTdiagCommObj.h"
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

void set_heading(rep_sMetricDescriptor& metric, const std::string& one, const std::string& two,
                 std::uint16_t width, std::int16_t type = 0, std::int16_t scale = 0) {
  metric.HeadOneLength = static_cast<std::uint16_t>(one.size());
  metric.HeadTwoLength = static_cast<std::uint16_t>(two.size());
  metric.HeadingOne[0] = metric.HeadingTwo[0] = '\0';
  one.copy(metric.HeadingOne, sizeof metric.HeadingOne - 1);
  two.copy(metric.HeadingTwo, sizeof metric.HeadingTwo - 1);
  metric.ColumnWidth = width;
  metric.DataType = type;
  metric.Scale10 = scale;
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
  Captured query(const char* source) {
    return run([&] { return diagnostic_->QueryServer(source); });
  }
  Captured configuration() {
    return run([&] { return diagnostic_->PrintConfigInfo(); });
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
  const auto check = [&] { return diagnostic_->Breakout(); };
  Captured report = run(check);
  EXPECT_EQ(1, result_);
  EXPECT_EQ(listing + "No almserver registered.\n\n", report.out);
  EXPECT_EQ("", report.err);

  agent.losses.server = 10061;  // registered, but nobody listens
  report = run(check);
  EXPECT_EQ(1, result_);
  EXPECT_EQ(listing + "No almserver registered.\n\n", report.out);
  EXPECT_EQ(message(307, 13), report.err);

  agent.losses = {.mapper = 10060, .server = 0};
  report = run(check);
  EXPECT_EQ(1, result_);
  EXPECT_EQ(listing + "No almserver registered.\n\n", report.out);
  EXPECT_EQ(message(306, 13), report.err);
  agent.losses = {};

  const std::string alarm = "Found almserver registered at:\n\n  Port[3001]\n\n";
  agent.alarm_servers = {{"", "alm", 0, "", 3001}};
  report = run(check);
  EXPECT_EQ(1, result_);
  EXPECT_EQ(listing + alarm, report.out);
  EXPECT_EQ("", report.err);

  agent.raised["ag_Ping"] = 5;
  report = run(check);
  EXPECT_EQ(0, result_);
  EXPECT_EQ(listing + alarm, report.out);
  EXPECT_EQ(message(307, 13), report.err);
  EXPECT_EQ(0, agent.records_held);
}

TEST_F(DiagComm, TranslatesConnectionFailures) {
  struct Case {
    const char* name;
    void (*breakage)();
    std::string shown;
  };
  const Case cases[] = {
      {"refused", [] { agent.probe_port = refusing_port(); }, message(114)},
      {"too old", [] { agent.major = 0; }, message(112)},
      {"broker fails", [] { agent.broker_status = 10060; }, message(32, 11) + message(301, 13)},
      {"no server", [] { agent.servers.clear(); }, message(33, 11) + message(2, 13)},
  };
  for (const Case& test : cases) {
    script_one_server("DATA");
    test.breakage();
    const Captured report = run([&] { return diagnostic_->Breakout(); });
    EXPECT_EQ(0, result_) << test.name;
    EXPECT_EQ("", report.out) << test.name;
    EXPECT_EQ(test.shown, report.err) << test.name;
  }
}

TEST_F(DiagComm, ShowsPendingMessagesInOrder) {
  // No binding can be made of this name: two messages and the status text.
  diagnostic_->ValidSystemName("127.0.0.1");
  EXPECT_EQ(0, diagnostic_->ValidSystemName("no such name."));
  EXPECT_EQ(message(104), capture([&] { diagnostic_->DisplayErrors(); }).err);
  EXPECT_EQ("", capture([&] { diagnostic_->DisplayErrors(); }).err);
  EXPECT_STREQ("no such name.", diagnostic_->ReturnSystemName());
}

TEST_F(DiagComm, ReadsTheEnvironmentWhenItIsBuilt) {
  ::setenv("ZT_RPC_TIMEOUT", "11", 1);
  ::setenv("ZT_TRACE_INTERNAL", "2", 1);
  EXPECT_EQ(message(202) + "\n" + message(205) + "\n",
            capture([] { const zt_DiagComm_class another; }).err);
  ::unsetenv("ZT_RPC_TIMEOUT");
  ::unsetenv("ZT_TRACE_INTERNAL");
  zt_trace_level = 0;
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

TEST_F(DiagComm, PrintsTheConfiguration) {
  script_configuration();
  const Captured report = configuration();
  EXPECT_EQ(1, result_);
  EXPECT_EQ((std::vector<std::uint32_t>{102, 103, 104, 101, 105, 107, 106}), agent.metric_ids);
  EXPECT_EQ(
      "CONFIGURATION data was collected at 11/18/98 16:00\n"
      "  OS Name        : DNX\n"
      "  OS Release     : B.10\n"
      "  Machine        : m9?\n"
      "  System ID      : node1\n"
      "  Collector      : TAMBO 4\n"
      "  Logfile Version: -1\n"
      "  Number of LANs : 2\n"
      "\n",
      report.out);
  EXPECT_EQ("", report.err);
  EXPECT_EQ(1, agent.count("repView_Destroy"));
}

TEST_F(DiagComm, LeavesOutWhatTheConfigurationLacks) {
  script_configuration();
  agent.classes = {make_class(1, "CONFIGURATION", {"GBL_NUM_NETWORK", "GBL_OSNAME"})};
  agent.reads[0].integers = {0, 5};
  EXPECT_EQ(
      "CONFIGURATION data was collected at 11/18/98 16:00\n"
      "  OS Name        : DNX\n"
      "  Number of LANs : 5\n"
      "\n",
      configuration().out);
}

TEST_F(DiagComm, ReportsWhyThereIsNoConfiguration) {
  const std::string runtime = message(32, 11) + message(90, 13);
  struct Case {
    const char* name;
    void (*breakage)();
    std::string shown;
  };
  const Case cases[] = {
      {"no such data source", [] { agent.servers[0].name = "tambo"; }, message(102)},
      {"cannot be opened", [] { agent.statuses["rep_LookupTable"] = 1726; },
       runtime + message(100)},
      {"no such class", [] { agent.classes[0].table.Descriptor = descriptor(1, "OTHER"); },
       message(1)},
      {"view refused", [] { agent.statuses["repView_Create"] = 1726; }, runtime},
      {"position refused", [] { agent.statuses["repView_SetPosition"] = 1726; }, runtime},
      {"read fails", [] { agent.statuses["repView_Read"] = 1726; }, runtime},
      {"no data", [] { agent.reads[0].positions = {0xFFFFFFFF}; }, message(101)},
      {"no rows", [] { agent.reads[0].positions = {}; }, message(101)},
      {"text outside", [] { agent.reads[0].integers[3] = 32; }, runtime},
      {"text without end", [] { agent.reads[0].characters.pop_back(); }, runtime},
  };
  for (const Case& test : cases) {
    script_configuration();
    test.breakage();
    const Captured report = configuration();
    EXPECT_EQ(0, result_) << test.name;
    EXPECT_EQ("", report.out) << test.name;
    EXPECT_EQ(test.shown, report.err) << test.name;
    EXPECT_EQ(
        agent.count("repView_Create") - (agent.statuses.contains("repView_Create") ? 1 : 0),
        agent.count("repView_Destroy") + (agent.statuses.contains("repView_SetPosition") ? 1 : 0))
        << test.name;
  }
}

// --- The data query.

void script_table() {
  script_one_server("DATA");
  agent.classes = {make_class(1, "DISK", {"TIME", "UTIL", "NAME", "QUEUE", "MORE"})};
  auto& metrics = agent.classes[0].metrics;
  set_heading(metrics[1], "Disk", "Util", 8, 0, 2);
  set_heading(metrics[2], "", "Name", 6, 3);
  set_heading(metrics[3], "Queue\x07", "Length", 5, 2);
  agent.reads = {{{911404800, 911405100, 0xFFFFFFFF},
                  {1234, 0, 7, static_cast<std::uint32_t>(-5), 5, 1234567},
                  std::string("sda1\0a\x1b"
                              "b\0",
                              9),
                  {}}};
}

TEST_F(DiagComm, PrintsTheLastHourAsATable) {
  script_table();
  const Captured report = query("data");
  EXPECT_EQ(1, result_);
  EXPECT_EQ((std::vector<std::uint32_t>{101, 102, 103}), agent.metric_ids);
  EXPECT_EQ(911408400U, agent.position);
  EXPECT_EQ(
      "Data source DATA, class DISK\n"
      "               Disk            Queue?\n"
      "Date     Time  Util     Name   Length\n"
      "11/18/98 16:00 12.34    sda1   7    \n"
      "11/18/98 16:05 -0.05    a?b    1234567\n"
      "\n",
      report.out);
  EXPECT_EQ("", report.err);
}

TEST_F(DiagComm, FullBatchWithoutEndMarkIsPrintedWhole) {
  script_table();
  agent.reads[0].positions.pop_back();
  const std::string out = query("DATA").out;
  EXPECT_NE(std::string::npos, out.find("11/18/98 16:05"));
}

TEST_F(DiagComm, CollectorHasAClassAndMetricsOfItsOwn) {
  script_one_server("TAMBO");
  agent.classes = {make_class(1, "OTHER", {"X", "Y"}),
                   make_class(2, "GLOBAL", {"GBL_NUM_DISK", "Z", "GBL_CPU_TOTAL_UTIL"})};
  agent.reads = {{{911404800, 0xFFFFFFFF}, {3, 50}, "", {}}};
  const std::string out = query("tambo").out;
  EXPECT_EQ((std::vector<std::uint32_t>{200, 202}), agent.metric_ids) << "in the class's order";
  EXPECT_EQ(0U, out.find("Data source TAMBO, class GLOBAL\n"));
}

TEST_F(DiagComm, AsksForMetricsTwoToFour) {
  struct Case {
    std::size_t metrics;
    std::vector<std::uint32_t> asked;
  };
  for (const Case& test :
       {Case{5, {101, 102, 103}}, Case{3, {101, 102}}, Case{2, {101}}, Case{1, {}}, Case{0, {}}}) {
    script_table();
    agent.classes[0].metrics.resize(test.metrics);
    agent.reads[0].positions = {0xFFFFFFFF};
    const Captured report = query("DATA");
    EXPECT_EQ(test.asked, agent.metric_ids) << test.metrics;
    EXPECT_EQ(test.metrics < 2 ? 1 : 0, result_);
    EXPECT_EQ("", report.out);
    EXPECT_EQ(test.metrics < 2 ? "" : message(101), report.err);
  }
  script_table();
  agent.classes.clear();
  query("DATA");
  EXPECT_EQ(1, result_) << "a data source without a class has nothing to show";
}

TEST_F(DiagComm, ReportsWhyThereIsNoTable) {
  const std::string runtime = message(32, 11) + message(90, 13);
  struct Case {
    const char* name;
    void (*breakage)();
    std::string shown;
  };
  const Case cases[] = {
      {"unknown data source", [] { agent.servers[0].name = "OTHER"; }, message(9)},
      {"never any data", [] { agent.classes[0].table.LastX = 0; }, message(122)},
      {"no data in the hour", [] { agent.reads[0].positions = {0xFFFFFFFF}; }, message(101)},
      {"view refused", [] { agent.statuses["repView_Create"] = 0x4C010005; },
       message(32, 11) + message(6, 13)},
      {"null view", [] { agent.null_contexts = true; }, message(32, 11) + message(101, 13)},
      {"read raised", [] { agent.raised["repView_Read"] = 1783; },
       message(32, 11) + message(101, 13)},
      {"text outside", [] { agent.reads[0].integers[1] = 9; }, runtime},
      {"text of the last row outside", [] { agent.reads[0].integers[4] = 0x80000000; }, runtime},
      {"text without end", [] { agent.reads[0].characters.pop_back(); }, runtime},
      {"too few integers", [] { agent.reads[0].integers.pop_back(); }, runtime},
  };
  for (const Case& test : cases) {
    diagnostic_->DisconnectFromSystem();
    script_table();
    test.breakage();
    const Captured report = query("DATA");
    EXPECT_EQ(0, result_) << test.name;
    EXPECT_EQ("", report.out) << test.name;
    EXPECT_EQ(test.shown, report.err) << test.name;
  }
}

TEST_F(DiagComm, ZeroRowsLeaveTheHeadings) {
  script_table();
  agent.reads[0] = {};
  EXPECT_EQ(
      "Data source DATA, class DISK\n"
      "               Disk            Queue?\n"
      "Date     Time  Util     Name   Length\n"
      "\n",
      query("DATA").out);
}

TEST_F(DiagComm, FormatsScalesAndWidths) {
  struct Case {
    std::int16_t scale;
    std::uint16_t width;
    std::int32_t value;
    std::string cell;
  };
  const Case cases[] = {
      {0, 5, 7, " 7    "},
      {2, 8, 1234, " 12.34   "},
      {1, 6, -250, " -25.0 "},
      {3, 2, 12345, " 12.345"},
      {7, 12, 1, " 0.0000001   "},
      {8, 3, 100000000, " 1  "},  // eight places, of which the low three bits show
      {0, 0, 2147483647, " 2147483647"},
      {0, 0, -2147483647 - 1, " -2147483648"},
      {-1, 0, 5, " 0.0000000"},  // 1023 places and seven shown
      {1024, 0, 42, " 42"},      // beyond ten bits
      {0, 1023, 1, " 1" + std::string(1022, ' ')},
      {0, 65535, 1, " 1" + std::string(1022, ' ')},
  };
  for (const Case& test : cases) {
    script_table();
    set_heading(agent.classes[0].metrics[1], "", "", test.width, 1, test.scale);
    agent.classes[0].metrics.resize(2);
    agent.reads = {{{911404800, 0xFFFFFFFF}, {static_cast<std::uint32_t>(test.value)}, "", {}}};
    const std::string out = query("DATA").out;
    const std::string width(std::min<std::size_t>(test.width, 1023), ' ');
    EXPECT_EQ(
        "Data source DATA, class DISK\n"
        "               " +
            width +
            "\n"
            "Date     Time  " +
            width +
            "\n"
            "11/18/98 16:00" +
            test.cell + "\n\n",
        out)
        << test.scale << " " << test.width;
    diagnostic_->DisconnectFromSystem();
  }
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

TEST(AlarmLink, ReportsEachFailureOfTheLookUp) {
  if (!local_host_resolves())
    GTEST_SKIP() << "the local host name has no address here";
  struct Case {
    void (*breakage)();
    int result, number;
  };
  const Case cases[] = {
      {[] { agent.broker_status = 10061; }, 10061, 301},
      {[] { agent.major = 1; }, 300, 300},
      {[] { agent.lookup_status = 1728; }, -1, 306},
  };
  for (const Case& test : cases) {
    script_one_server("DATA");
    agent.alarm_servers = {{"", "alm", 0, "", 3001}};
    test.breakage();
    zt_RPCAlarmNoticeLink_class link;
    unsigned char registered = 9;
    EXPECT_EQ(test.result, link.PingAlmServer(kLoopback, registered));
    EXPECT_EQ(0, registered);
    EXPECT_EQ(message(test.number, 13), capture([&] { link.DisplayErrors(); }).err);
    EXPECT_EQ(test.result, link.IsRegistered(kLoopback, registered));
    EXPECT_EQ(0, agent.count("ag_Ping"));
  }
}

}  // namespace
