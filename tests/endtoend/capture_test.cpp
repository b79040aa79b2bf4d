// SPDX-License-Identifier: Apache-2.0
// An independent judge of what we send: a packet dissector reads a capture of whole checks.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/endtoend/harness.h"

namespace endtoend {
namespace {

// What a command prints on standard output.
std::string printed_by(const std::string& command) {
  std::string result;
  FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
  std::array<char, 4096> buffer{};
  while (const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), pipe))
    result.append(buffer.data(), size);
  ::pclose(pipe);
  return result;
}

bool installed(const std::string& program) {
  return !printed_by("command -v " + program).empty();
}

class Capture {
 public:
  Capture() : file_((folder_.path() / "capture.pcapng").string()) {
    pid_ = ::fork();
    if (pid_ == 0) {
      const int null = ::open("/dev/null", O_RDWR);
      ::dup2(null, STDOUT_FILENO);
      ::dup2(null, STDERR_FILENO);
      // Bounded in time, should this test die.
      ::execlp("dumpcap", "dumpcap", "-q", "-i", "lo", "-a", "duration:60", "-w", file_.c_str(),
               static_cast<char*>(nullptr));
      ::_exit(127);
    }
    // The file has its header once the capture runs.
    for (int i = 0; i < 500; ++i) {
      std::error_code error;
      if (std::filesystem::file_size(file_, error) > 0 && !error)
        break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
  }
  ~Capture() { stop(); }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  void stop() {
    if (pid_ <= 0)
      return;
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ::kill(pid_, SIGINT);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

  // The summary lines of the packets that match a display filter.
  std::string packets(const std::string& filter) const {
    return printed_by("tshark -r " + file_ + " -Y '" + filter + "'");
  }
  std::size_t count(const std::string& filter) const {
    const std::string lines = packets(filter);
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), '\n'));
  }

 private:
  TemporaryFolder folder_;
  std::string file_;
  pid_t pid_ = -1;
};

constexpr std::string_view kSystem = R"(
source = {ONE = {id = 1, path = "/one"}, TWO = {id = 2, path = "/two"}, THREE = {id = 3, path = "/3"}}
[[system]]
name = "alpha"
address = "127.0.1.1"
repository = [{source = "ONE"}, {source = "TWO"}, {source = "THREE"}]
[system.alarm]
)";

TEST(Capture, WholeCheckDissectsWithoutAFault) {
  if (!installed("dumpcap") || !installed("tshark"))
    GTEST_SKIP() << "tshark is not installed; ./check installs it";
  for (const std::string order : {"little", "big"}) {
    SCOPED_TRACE(order);
    const Agent agent(
        replace_all(std::string(kSystem), "{source", "{byte_order = \"" + order + "\", source"));
    Capture capture;
    const Result result = ztcomm({"-s", "alpha", "-b", "-r"});
    capture.stop();
    ASSERT_EQ(result.err, "");

    EXPECT_EQ(capture.packets("_ws.malformed"), "");
    EXPECT_EQ(capture.packets("_ws.expert.severity >= warn && !tcp"), "");
    // Three look-ups and a ping; everything else is the mapper's, management or protocol.
    EXPECT_EQ(capture.count("dcerpc.dg_if_id == 5b3c82a0-17e4-0000-020a-141e28000000 && "
                            "dcerpc.pkt_type == 0"),
              3U);
    EXPECT_EQ(capture.count("dcerpc.dg_if_id == 5e61c7d3-a04b-0000-020a-141e32000000 && "
                            "dcerpc.pkt_type == 0"),
              1U);
    EXPECT_GT(capture.count("epm"), 3U);
    // Every datagram of the check was taken for what it is.
    EXPECT_EQ(capture.packets("udp && !dcerpc && !icmp"), "");
    // Nothing was sent twice.
    EXPECT_EQ(capture.packets("dcerpc.pkt_type == 1"), "");
  }
}

}  // namespace
}  // namespace endtoend
