// SPDX-License-Identifier: Apache-2.0
// The registered-server check and the endpoint listing against agents that answer.

#include <gtest/gtest.h>

#include <string>

#include "tests/endtoend/catalog_text.h"
#include "tests/endtoend/harness.h"
#include "tests/endtoend/scenario_text.h"

namespace endtoend {
namespace {

constexpr std::string_view kHealthy = R"(
[source]
ORDERS = {id = 1, path = "/var/opt/orders"}
WEBLOGS = {id = 2, label = "Web logs", path = "/var/opt/weblogs"}
TAMBO = {id = 3, path = "/var/opt/tambo/logglob"}

[[system]]
name = "alpha"
address = "127.0.1.1"
[[system.repository]]
source = "ORDERS"
port = 1045
object = "0a1b2c3d-0001-0002-0304-05060708090a"
annotation = "orders server"
[[system.repository]]
source = "WEBLOGS"
port = 1046
[[system.repository]]
source = "TAMBO"
port = 1047
[system.alarm]
port = 1050
)";

constexpr std::string_view kHealthyReport =
    "Found registered rep_servers at:\n"
    "\n"
    "  Server: Port[1045] - ORDERS\n"
    "  Path  : /var/opt/orders\n"
    "\n"
    "  Server: Port[1046] - Web logs\n"
    "  Path  : /var/opt/weblogs\n"
    "\n"
    "  Server: Port[1047] - TAMBO\n"
    "  Path  : /var/opt/tambo/logglob\n"
    "\n"
    "Found almserver registered at:\n"
    "\n"
    "  Port[1050]\n"
    "\n";

TEST(RegisteredServers, PrintsServersPathsAndAlarmServerOfAHealthySystem) {
  const Agent agent(kHealthy);
  for (const std::string target : {"alpha", "127.0.1.1"}) {
    const Result result = ztcomm({"-s", target});
    EXPECT_EQ(result.out, heading_of_alpha("ztcomm -s " + target) + std::string(kHealthyReport));
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
  }
}

TEST(RegisteredServers, WorksWithEveryKindOfServer) {
  struct Case {
    std::string_view name;
    std::string_view settings;  // of each repository server and of the alarm server
  };
  const Case cases[] = {
      {"big-endian", "byte_order = \"big\"\n"},
      {"no call-back", "call_back = \"none\"\n"},
      {"call-back who_are_you", "call_back = \"who_are_you\"\n"},
      {"call-back from another port", "call_back_from_other_port = true\n"},
      {"late answers", "behaviour = [{late_ms = 700}]\n"},
      {"later than the shortest wait", "behaviour = [{late_ms = 2500}]\n"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    std::string scenario(kHealthy);
    for (const std::string port :
         {"port = 1045\n", "port = 1046\n", "port = 1047\n", "port = 1050\n"})
      scenario = replace_all(scenario, port, port + std::string(each.settings));
    const Agent agent(scenario);
    const Result result = ztcomm({"-s", "alpha"}, {{"ZT_RPC_TIMEOUT", "0"}});
    EXPECT_EQ(result.out, heading_of_alpha("ztcomm -s alpha") + std::string(kHealthyReport));
    EXPECT_EQ(result.err, message(20, 203, "0") + "\n");
    EXPECT_EQ(result.status, 0);
  }
}

TEST(RegisteredServers, ChecksTheLocalSystemWithoutATarget) {
  const Agent agent(replace_all(std::string(kHealthy), "127.0.1.1", "127.0.0.2"));
  const Result result = ztcomm({});
  EXPECT_EQ(result.out, heading("ztcomm", "console", "127.0.0.2") + std::string(kHealthyReport));
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.status, 0);
}

TEST(EndpointListing, PrintsEveryElementOfTheMap) {
  const Agent agent(kHealthy);
  const Result result = ztcomm({"-s", "alpha", "-r"});
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.status, 0);
  const std::string begin = heading_of_alpha("ztcomm -s alpha -r") +
                            "Elements of the endpoint map or location broker.\n\n"
                            "  <object>         0a1b2c3d-0001-0002-0304-05060708090a\n"
                            "  <interface id>   5b3c82a0-17e4-0000-020a-141e28000000\n"
                            "  <string binding> ncadg_ip_udp:127.0.1.1[1045]\n"
                            "  <annotation>     orders server\n\n";
  EXPECT_EQ(result.out.substr(0, begin.size()), begin);
  const std::string alarm =
      "  <interface id>   5e61c7d3-a04b-0000-020a-141e32000000\n"
      "  <string binding> ncadg_ip_udp:127.0.1.1[1050]\n";
  EXPECT_NE(result.out.find(alarm), std::string::npos) << result.out;
}

TEST(EndpointListing, FollowsTheDefaultCheckOnlyWhenBothAreAskedFor) {
  const Agent agent(kHealthy);
  const std::string listing = "Elements of the endpoint map or location broker.\n";
  const Result both = ztcomm({"-r", "-s", "alpha", "-b"});
  const std::string begin =
      heading_of_alpha("ztcomm -r -s alpha -b") + std::string(kHealthyReport) + listing;
  EXPECT_EQ(both.out.substr(0, begin.size()), begin);
  const Result only = ztcomm({"-r", "-s", "alpha"});
  EXPECT_EQ(only.out.find("Found registered"), std::string::npos);
  EXPECT_NE(only.out.find(listing), std::string::npos);
}

TEST(Trace, ShowsEveryRemoteCallTwiceAndNestsOperations) {
  const Agent agent(kHealthy);
  const Result result = ztcomm({"-s", "alpha", "-trace"}, {{"ZT_TRACE_INTERNAL", "2"}});
  EXPECT_EQ(result.out, heading_of_alpha("ztcomm -s alpha -trace") + std::string(kHealthyReport));
  std::size_t calls = 0;
  for (std::size_t at = 0; (at = result.err.find("RPC_TRACE: ", at)) != std::string::npos; ++at)
    ++calls;
  EXPECT_EQ(calls, 8U) << result.err;  // three look-ups and a ping, each on entry and on exit
  EXPECT_NE(result.err.find("[ 0] Enter zt_DiagComm_class::Breakout\n"), std::string::npos);
  EXPECT_NE(result.err.find("[ 1]   Enter zt_DiagComm_class::ConnectToSystem\n"),
            std::string::npos);
  EXPECT_NE(result.err.find(message(20, 205, "2") + "\n"), std::string::npos);
}

}  // namespace
}  // namespace endtoend
