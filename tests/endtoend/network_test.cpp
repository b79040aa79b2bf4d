// SPDX-License-Identifier: Apache-2.0
// Networks that lose, double and reorder, and servers that keep the console waiting.

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "tests/endtoend/catalog_text.h"
#include "tests/endtoend/harness.h"
#include "tests/endtoend/scenario_text.h"

namespace endtoend {
namespace {

std::string address_of(int number) {
  return "127.0.4." + std::to_string(number);
}

TEST(BadNetwork, TheDefaultCheckSucceedsForTwentySeeds) {
  constexpr int kSeeds = 20;
  constexpr unsigned kAtATime = 10;
  std::ifstream file(std::string(ZT_SCENARIOS) + "/bad-network.toml");
  const std::string shipped{std::istreambuf_iterator<char>(file), {}};
  const std::size_t system = shipped.find("[[system]]");
  ASSERT_NE(system, std::string::npos);
  std::string scenario = shipped.substr(0, system);
  for (int seed = 1; seed <= kSeeds; ++seed) {
    std::string one = shipped.substr(system);
    one = replace_all(one, "127.0.4.1\"", address_of(seed) + "\"");
    one = replace_all(one, "name = \"bad-network\"", "name = \"bad-" + std::to_string(seed) + "\"");
    one = replace_all(one, "seed = 1\n", "seed = " + std::to_string(seed) + "\n");
    // The ports are given so that the report is known to the digit.
    for (int i = 0; i < 3; ++i) {
      const std::string source =
          std::string("source = \"") + std::vector<std::string>{"ONE", "TWO", "THREE"}[i] + "\"\n";
      one = replace_all(one, source, source + "port = " + std::to_string(1041 + i) + "\n");
    }
    scenario += replace_all(one, "[system.alarm]\n", "[system.alarm]\nport = 1050\n");
  }
  const Agent agent(scenario);

  std::vector<Result> results(kSeeds);
  std::atomic<int> next = 0;
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < kAtATime; ++i) {
    threads.emplace_back([&] {
      for (int at = next++; at < kSeeds; at = next++)
        results[at] = ztcomm({"-s", address_of(at + 1)}, {{"ZT_RPC_TIMEOUT", "5"}}, 120);
    });
  }
  for (std::thread& thread : threads)
    thread.join();

  for (int seed = 1; seed <= kSeeds; ++seed) {
    SCOPED_TRACE(seed);
    const std::string address = address_of(seed);
    EXPECT_EQ(results[seed - 1].out, heading("ztcomm -s " + address, address) +
                                         "Found registered rep_servers at:\n\n"
                                         "  Server: Port[1041] - ONE\n  Path  : /one\n\n"
                                         "  Server: Port[1042] - TWO\n  Path  : /two\n\n"
                                         "  Server: Port[1043] - THREE\n  Path  : /three\n\n"
                                         "Found almserver registered at:\n\n  Port[1050]\n\n");
    EXPECT_EQ(results[seed - 1].err, message(20, 203, "5") + "\n");
    EXPECT_EQ(results[seed - 1].status, 0);
  }
}

}  // namespace
}  // namespace endtoend
