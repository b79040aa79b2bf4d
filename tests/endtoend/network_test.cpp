// SPDX-License-Identifier: Apache-2.0
// Networks that lose, double and reorder, and servers that keep the console waiting.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
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
    int port = 1041;
    for (const char* const name : {"ONE", "TWO", "THREE"}) {
      const std::string source = std::string("source = \"") + name + "\"\n";
      one = replace_all(one, source, source + "port = " + std::to_string(port++) + "\n");
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
        results[static_cast<std::size_t>(at)] =
            ztcomm({"-s", address_of(at + 1)}, {{"ZT_RPC_TIMEOUT", "5"}}, 120);
    });
  }
  for (std::thread& thread : threads)
    thread.join();

  for (int seed = 1; seed <= kSeeds; ++seed) {
    SCOPED_TRACE(seed);
    const std::string address = address_of(seed);
    const Result& result = results[static_cast<std::size_t>(seed - 1)];
    EXPECT_EQ(result.out, heading("ztcomm -s " + address, address) +
                              "Found registered rep_servers at:\n\n"
                              "  Server: Port[1041] - ONE\n  Path  : /one\n\n"
                              "  Server: Port[1042] - TWO\n  Path  : /two\n\n"
                              "  Server: Port[1043] - THREE\n  Path  : /three\n\n"
                              "Found almserver registered at:\n\n  Port[1050]\n\n");
    EXPECT_EQ(result.err, message(20, 203, "5") + "\n");
    EXPECT_EQ(result.status, 0);
  }
}

// A server repeats what is not acknowledged, which is what the end of the query is when the report
// waits for its reader.
TEST(BadNetwork, ASlowReaderMakesNoServerRepeat) {
  SourceText source("WIDE");
  source.with_class("GLOBAL", "rows = 400\ninterval = 10").metric("TIME").metric("A").metric("B");
  const Agent agent(source.text() + system_alpha({"WIDE"}));
  const TemporaryFolder folder;
  const std::string pipe = (folder.path() / "pipe").string();
  ASSERT_EQ(0, ::mkfifo(pipe.c_str(), 0600));
  std::size_t read = 0;
  std::thread reader([&] {
    const int end = ::open(pipe.c_str(), O_RDONLY);
    ::fcntl(end, F_SETPIPE_SZ, 4096);
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    char part[4096];
    for (ssize_t size = 1; size > 0; read += static_cast<std::size_t>(std::max<ssize_t>(size, 0)))
      size = ::read(end, part, sizeof part);
    ::close(end);
  });
  const Result result = run("ztcomm", {"-s", "alpha", "-ds", "WIDE"}, {}, 60, pipe);
  reader.join();
  EXPECT_EQ(result.status, 0);
  EXPECT_GT(read, 8192U);
  const std::string sent = "sent response repView_Destroy", log = agent.log();
  EXPECT_NE(log.find(sent), std::string::npos);
  EXPECT_EQ(log.find(sent), log.rfind(sent)) << log;
}

}  // namespace
}  // namespace endtoend
