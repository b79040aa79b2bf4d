// SPDX-License-Identifier: Apache-2.0
// Every link between the console and the agent, broken: each is told apart in one run.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/endtoend/catalog_text.h"
#include "tests/endtoend/harness.h"
#include "tests/endtoend/scenario_text.h"

namespace endtoend {
namespace {

std::string scenario_file(const std::string& name) {
  std::ifstream file(std::string(ZT_SCENARIOS) + "/" + name);
  return {std::istreambuf_iterator<char>(file), {}};
}

struct BrokenLink {
  std::string_view name;
  std::string_view target;
  std::string expected_err;
  std::string_view expected_report;  // what follows the Target System line; '*' stands for a port
};

std::vector<BrokenLink> broken_links() {
  const std::string m = "127.0.2.";
  // No live server, and why.
  const auto nothing_found = [&](int n, const std::string& cause) {
    return message(11, 33, m + std::to_string(n)) + message(13, 2, cause);
  };
  const std::string kTimedOut = "The connection timed out.";
  const std::string kRefused = "The connection was refused; no server listens at the port.";
  const std::string kMapper = "the endpoint mapper cannot be asked. ";
  const std::string kServer = "a registered server does not answer. ";
  const auto repository_failed = [&](int n, int number, const std::string& cause) {
    return message(11, 32, m + std::to_string(n)) + message(13, number, cause);
  };
  constexpr std::string_view kServersAndAlarm =
      "Found registered rep_servers at:\n\n  Server: Port[*] - TAMBO\n"
      "  Path  : /var/opt/tambo/datafiles/logglob\n\n"
      "Found almserver registered at:\n\n  Port[*]\n\n";
  constexpr std::string_view kNoAlarm =
      "Found registered rep_servers at:\n\n  Server: Port[*] - TAMBO\n"
      "  Path  : /var/opt/tambo/datafiles/logglob\n\n"
      "No almserver registered.\n\n";
  return {
      {"broker refused", "127.0.2.2", message(20, 114), ""},
      {"broker silent", "127.0.2.3", repository_failed(3, 301, "10060"), ""},
      {"broker closes", "127.0.2.4", message(20, 112), ""},
      {"broker resets", "127.0.2.5", message(20, 112), ""},
      {"broker slow", "127.0.2.6", repository_failed(6, 301, "10060"), ""},
      {"broker reports a status", "127.0.2.7", repository_failed(7, 301, "5"), ""},
      {"agent too old", "127.0.2.8", message(20, 112), ""},
      {"mapper silent", "127.0.2.9", nothing_found(9, kMapper + kTimedOut), ""},
      {"mapper refused", "127.0.2.10", nothing_found(10, kMapper + kRefused), ""},
      {"mapper rejects", "127.0.2.11",
       nothing_found(11, kMapper + "The server does not know the interface."), ""},
      {"nothing registered", "127.0.2.12", nothing_found(12, "no server is registered."), ""},
      {"repository dead", "127.0.2.13", nothing_found(13, kServer + kRefused), ""},
      {"repository mute", "127.0.2.14", nothing_found(14, kServer + kTimedOut), ""},
      {"repository faulting", "127.0.2.16", repository_failed(16, 101, ""), ""},
      {"repository reports a status", "127.0.2.18", repository_failed(18, 4, ""), ""},
      {"alarm server missing", "127.0.2.19", "", kNoAlarm},
      {"alarm server dead", "127.0.2.20", message(13, 307, "10061"), kNoAlarm},
      {"alarm server faulting", "127.0.2.21", message(13, 307, "101"), kServersAndAlarm},
      {"alarm server silent", "127.0.2.22", message(13, 307, "1726"), kServersAndAlarm},
      {"alarm server reports a status", "127.0.2.23", message(13, 307, "5"), kServersAndAlarm},
      {"stale entry", "127.0.2.24", "", kServersAndAlarm},
      {"unused", "127.0.2.1", message(20, 114), ""},
  };
}

// The report with the number of every port replaced by '*'.
std::string without_ports(std::string text) {
  const std::string mark = "Port[";
  for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos;) {
    at += mark.size();
    text.replace(at, text.find(']', at) - at, "*");
  }
  return text;
}

TEST(BrokenLinks, EachIsToldApart) {
  const Agent agent(scenario_file("broken-links.toml"));
  for (const BrokenLink& link : broken_links()) {
    SCOPED_TRACE(link.name);
    const std::string target(link.target);
    const Result result = ztcomm({"-s", target}, {{"ZT_RPC_TIMEOUT", "0"}});
    EXPECT_EQ(result.err, message(20, 203, "0") + "\n" + link.expected_err);
    EXPECT_EQ(without_ports(result.out),
              heading("ztcomm -s " + target, target) + std::string(link.expected_report));
    EXPECT_EQ(result.status, 0);
    EXPECT_LT(result.seconds, 15);
  }
}

TEST(BrokenLinks, AnUnknownHostEndsTheRun) {
  const Result result = ztcomm({"-s", "nowhere"});
  EXPECT_EQ(result.out, "ztcomm -s nowhere\n\nLocal System : console (127.0.0.2)\n");
  EXPECT_EQ(result.err, message(20, 104, "nowhere"));
  EXPECT_EQ(result.status, 1);
}

TEST(BrokenLinks, AMissingCatalogLeavesTheNumbers) {
  const TemporaryFolder empty;
  const Result result = ztcomm({"-s", "nowhere", "-dir", empty.path().string()});
  EXPECT_EQ(result.err, "<message catalog missing message 104 in set 20>\n");
  EXPECT_EQ(result.status, 1);
}

TEST(BrokenLinks, AnUnreachableHostIsNotWaitedForLongerThanTheLevel) {
  // The namespace has no route but loopback's, so that this address is unreachable at once.
  const Result result = ztcomm({"-s", "192.0.2.1"}, {{"ZT_RPC_TIMEOUT", "0"}});
  EXPECT_EQ(result.err,
            message(20, 203, "0") + "\n" + message(20, 110) + message(20, 111, "10051"));
  EXPECT_LT(result.seconds, 5);
}

}  // namespace
}  // namespace endtoend
