// SPDX-License-Identifier: Apache-2.0
// The configuration report and the data query against agents that answer.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "tests/endtoend/catalog_text.h"
#include "tests/endtoend/harness.h"
#include "tests/endtoend/scenario_text.h"

namespace endtoend {
namespace {

const std::string kByteOrders[] = {"byte_order = \"little\"", "byte_order = \"big\""};

// --- Configuration.

struct ConfigurationMetric {
  std::string name;
  std::string_view settings;
  std::string line;
};

// In another order than any the report uses.
const std::array<ConfigurationMetric, 7>& configuration_metrics() {
  static const std::array<ConfigurationMetric, 7> metrics = {{
      {"GBL_NUM_NETWORK", "constant = 2", "  Number of LANs : 2\n"},
      {"GBL_MACHINE", "type = \"text\"\ntexts = [\"x86_64\"]", "  Machine        : x86_64\n"},
      {"GBL_OSNAME", "type = \"text\"\ntexts = [\"Linux   \"]", "  OS Name        : Linux\n"},
      {"GBL_LOGFILE_VERSION", "constant = -4", "  Logfile Version: -4\n"},
      {"GBL_COLLECTOR", "type = \"text\"\ntexts = [\"tambo\\u001b 4.71  \"]",
       "  Collector      : tambo? 4.71\n"},
      {"GBL_OSRELEASE", "type = \"text\"\ntexts = [\"     \"]", "  OS Release     : \n"},
      {"GBL_SYSTEM_ID", "type = \"text\"\ntexts = [\"  a b  c \"]",
       "  System ID      :   a b  c\n"},
  }};
  return metrics;
}
// The lines as they are printed, by their places above.
constexpr std::size_t kPrinted[] = {2, 5, 1, 6, 4, 3, 0};
constexpr std::size_t kAll = 7;

std::string configuration_class(SourceText source, std::size_t without = kAll) {
  source.with_class("CONFIGURATION",
                    "rows = 3\ninterval = 86400\nfirst = " + std::to_string(kNoon));
  source.metric("GBL_OTHER", "values = [7, 8]");
  for (std::size_t i = 0; i < kAll; ++i)
    if (i != without)
      source.metric(configuration_metrics()[i].name, configuration_metrics()[i].settings);
  return source.text();
}

std::string configuration_report(std::size_t without = kAll) {
  std::string report = "CONFIGURATION data was collected at 01/15/24 12:00\n";
  for (const std::size_t i : kPrinted)
    if (i != without)
      report += configuration_metrics()[i].line;
  return report + "\n";
}

const std::map<std::string, std::string> kUtc = {{"TZ", "UTC"}};

TEST(Configuration, PrintsTheOldestRecordInItsOwnOrder) {
  for (const std::string& order : kByteOrders) {
    SCOPED_TRACE(order);
    const Agent agent(configuration_class(SourceText("TAMBO")) + system_alpha({"TAMBO"}, order));
    const Result result = ztcomm({"-s", "alpha", "-c"}, kUtc);
    EXPECT_EQ(result.out, heading_of_alpha("ztcomm -s alpha -c") + configuration_report());
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
  }
}

TEST(Configuration, AMetricThatTheClassLacksLeavesItsLineOut) {
  for (std::size_t i = 0; i < kAll; ++i) {
    SCOPED_TRACE(configuration_metrics()[i].name);
    const Agent agent(configuration_class(SourceText("TAMBO"), i) + system_alpha({"TAMBO"}));
    const Result result = ztcomm({"-s", "alpha", "-c"}, kUtc);
    EXPECT_EQ(result.out, heading_of_alpha("ztcomm -s alpha -c") + configuration_report(i));
    EXPECT_EQ(result.err, "");
  }
}

// --- Data query.

Result query(const std::string& source) {
  return ztcomm({"-s", "alpha", "-ds", source}, kUtc);
}

std::string query_heading(const std::string& source) {
  return heading_of_alpha("ztcomm -s alpha -ds " + source);
}

std::string rows_at(std::initializer_list<std::pair<long, std::string_view>> rows) {
  std::string text = "rows = [";
  for (const auto& [time, cells] : rows)
    text += "[" + std::to_string(time) + ", " + std::string(cells) + "],";
  return text + "]";
}

TEST(DataQuery, PrintsTheCollectorsChosenMetricsInTheClassesOrder) {
  SourceText source("TAMBO");
  source.with_class("OTHER").metric("GBL_NUM_DISK");
  source.with_class("GLOBAL", rows_at({{kNoon - 300, "1, 3, 12, 450"}, {kNoon, "2, 4, -5, 7"}}));
  source.metric("GBL_OTHER").metric("GBL_NUM_DISK", "width = 5\nheading2 = \"Disks\"");
  source.metric("GBL_PRI_QUEUE",
                "width = 6\nscale10 = 1\nheading1 = \"Run\"\nheading2 = \"Queue\"");
  source.metric("GBL_CPU_TOTAL_UTIL",
                "width = 7\nscale10 = 2\nheading1 = \"CPU\"\nheading2 = \"Total %\"");
  const std::string table =
      "Data source TAMBO, class GLOBAL\n"
      "                     Run    CPU    \n"
      "Date     Time  Disks Queue  Total %\n"
      "01/15/24 11:55 3     1.2    4.50   \n"
      "01/15/24 12:00 4     -0.5   0.07   \n"
      "\n";
  for (const std::string& order : kByteOrders) {
    const Agent agent(source.text() + system_alpha({"TAMBO"}, order));
    // Typed in small letters it is found, and shown as the server has it.
    for (const std::string typed : {"TAMBO", "tambo", "Tambo"}) {
      SCOPED_TRACE(order + " " + typed);
      const Result result = query(typed);
      EXPECT_EQ(result.out, query_heading(typed) + table);
      EXPECT_EQ(result.err, "");
      EXPECT_EQ(result.status, 0);
    }
  }
}

TEST(DataQuery, PrintsMetricsTwoToFourOfTheFirstClass) {
  const std::string lines[] = {
      "",
      "",
      "                 \nDate     Time  h2\n01/15/24 12:00 2 \n",
      "                    \nDate     Time  h2 h3\n01/15/24 12:00 2  3 \n",
      "                       \nDate     Time  h2 h3 h4\n01/15/24 12:00 2  3  4 \n",
      "                       \nDate     Time  h2 h3 h4\n01/15/24 12:00 2  3  4 \n",
  };
  for (int count = 1; count <= 5; ++count) {
    SCOPED_TRACE(count);
    std::string cells = "1";
    for (int i = 2; i <= count; ++i)
      cells += ", " + std::to_string(i);
    SourceText source("ORDERS");
    source.with_class("FIRST", rows_at({{kNoon, cells}}));
    for (int i = 1; i <= count; ++i)
      source.metric("M" + std::to_string(i),
                    "width = 2\nheading2 = \"h" + std::to_string(i) + "\"");
    source.with_class("SECOND").metric("S1").metric("S2");
    const Agent agent(source.text() + system_alpha({"ORDERS"}));
    const Result result = query("ORDERS");
    std::string expected = query_heading("ORDERS");
    if (count > 1)
      expected += "Data source ORDERS, class FIRST\n" + lines[count] + "\n";
    EXPECT_EQ(result.out, expected);
    EXPECT_EQ(result.err.substr(0, result.err.find('\n') + 1),
              count > 1 ? "" : message(20, 129, "FIRST"));
  }
}

TEST(DataQuery, PushesLongTextsAndHeadingsToTheRight) {
  SourceText source("TEXTS");
  source.with_class("C", rows_at({{kNoon - 60, R"(1, "abc", "too long here", 5)"},
                                  {kNoon, R"(1, "\u001b[2J", "", 6)"}}));
  source.metric("M1");
  source.metric("M2", "type = \"text\"\nwidth = 5\nheading1 = \"abcdefg\"");
  source.metric("M3", "type = 9\nwidth = 4\nheading2 = \"a\\u0007b\"");
  source.metric("M4", "type = 2\nwidth = 3\nheading1 = \"x\"\nheading2 = \"y z\"");
  const Agent agent(source.text() + system_alpha({"TEXTS"}));
  const Result result = query("TEXTS");
  EXPECT_EQ(result.out, query_heading("TEXTS") +
                            "Data source TEXTS, class C\n"
                            "               abcdefg      x  \n"
                            "Date     Time        a?b  y z\n"
                            "01/15/24 11:59 abc   too long here 5  \n"
                            "01/15/24 12:00 ?[2J       6  \n"
                            "\n");
  EXPECT_EQ(result.err, "");
}

TEST(DataQuery, UsesTheConnectionOfTheCheckBefore) {
  SourceText orders("ORDERS");
  orders.with_class("C", rows_at({{kNoon, "1, 2"}})).metric("A").metric("B", "width = 1");
  const std::string scenario = configuration_class(SourceText("TAMBO")) + orders.text() +
                               system_alpha({"TAMBO", "ORDERS"}, "port = 0");
  // Connections to the location broker: one stands as long as the connection to the system, one is
  // made for each listing of the servers and one for the alarm server.
  const auto connections = [&](const std::vector<std::string>& checks) {
    const Agent agent(scenario);
    std::vector<std::string> arguments = {"-s", "alpha"};
    arguments.insert(arguments.end(), checks.begin(), checks.end());
    const Result result = ztcomm(arguments, kUtc);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    const std::string log = agent.log();
    int count = 0;
    const std::string mark = "broker connection";
    for (std::size_t at = 0; (at = log.find(mark, at)) != std::string::npos; ++at)
      count += log.substr(at, log.find('\n', at) - at).ends_with("is accepted");
    return count;
  };
  EXPECT_EQ(connections({"-b"}), 3);
  EXPECT_EQ(connections({"-ds", "ORDERS"}), 3);
  EXPECT_EQ(connections({"-b", "-ds", "ORDERS"}), 4);
  EXPECT_EQ(connections({"-c"}), 3);
  EXPECT_EQ(connections({"-c", "-ds", "ORDERS"}), 4);
  EXPECT_EQ(connections({"-b", "-c", "-ds", "ORDERS"}), 7);
}

TEST(DataQuery, AllChecksOfARunFollowEachOther) {
  SourceText orders("ORDERS");
  orders.with_class("C", rows_at({{kNoon, "1, 2"}})).metric("A").metric("B", "width = 1");
  const Agent agent(configuration_class(SourceText("TAMBO")) + orders.text() +
                    system_alpha({"TAMBO"}, "port = 1045") +
                    "[[system.repository]]\nsource = \"ORDERS\"\nport = 1046\n");
  const Result result = ztcomm({"-s", "alpha", "-ds", "orders", "-c", "-b"}, kUtc);
  EXPECT_EQ(result.err, "");
  const std::string expected_end = configuration_report() +
                                   "Data source ORDERS, class C\n"
                                   "                \n"
                                   "Date     Time   \n"
                                   "01/15/24 12:00 2\n\n";
  ASSERT_GE(result.out.size(), expected_end.size());
  EXPECT_EQ(result.out.substr(result.out.size() - expected_end.size()), expected_end);
  EXPECT_NE(result.out.find("Found almserver registered at:"), std::string::npos);
}

}  // namespace
}  // namespace endtoend
