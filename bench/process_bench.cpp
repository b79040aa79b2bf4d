// Whole programs, measured from outside and compared with a baseline of the same run. Needs ports
// 135 and 382 of loopback addresses: run it through tests/endtoend/in_namespace.sh.

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/endtoend/harness.h"

namespace {

using endtoend::Agent;
using endtoend::Result;
using Clock = std::chrono::steady_clock;

double milliseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

// Wall time of a program in milliseconds, without the harness's own polling.
double wall_of(const std::string& program, const std::vector<std::string>& arguments) {
  return endtoend::run(program, arguments).seconds * 1000;
}

// Runs both in turn, so that a change of the machine's speed meets both.
std::pair<double, double> medians(int rounds, const std::function<double()>& a,
                                  const std::function<double()>& b) {
  std::vector<double> of_a, of_b;
  for (int i = 0; i < rounds; ++i) {
    of_a.push_back(a());
    of_b.push_back(b());
  }
  return {median(of_a), median(of_b)};
}

// The median time of one UDP exchange of 100 bytes over loopback with another thread.
double bare_round_trip() {
  const int server = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ::bind(server, reinterpret_cast<sockaddr*>(&address), size);
  ::getsockname(server, reinterpret_cast<sockaddr*>(&address), &size);
  constexpr int kRounds = 5000;
  std::thread echo([server] {
    char buffer[200];
    for (int i = 0; i < kRounds; ++i) {
      sockaddr_in from{};
      socklen_t from_size = sizeof from;
      const ssize_t got = ::recvfrom(server, buffer, sizeof buffer, 0,
                                     reinterpret_cast<sockaddr*>(&from), &from_size);
      ::sendto(server, buffer, static_cast<std::size_t>(got), 0, reinterpret_cast<sockaddr*>(&from),
               from_size);
    }
  });
  const int client = ::socket(AF_INET, SOCK_DGRAM, 0);
  std::vector<double> times;
  char buffer[100] = {};
  for (int i = 0; i < kRounds; ++i) {
    const auto begin = Clock::now();
    ::sendto(client, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&address),
             sizeof address);
    ::recv(client, buffer, sizeof buffer, 0);
    times.push_back(milliseconds(Clock::now() - begin));
  }
  echo.join();
  ::close(client);
  ::close(server);
  return median(times);
}

constexpr std::string_view kHealthy = R"(
[source.ONE]
id = 1
path = "/one"
[source.TWO]
id = 2
path = "/two"
[source.THREE]
id = 3
path = "/three"
[[system]]
name = "alpha"
address = "127.0.1.1"
[[system.repository]]
source = "ONE"
[[system.repository]]
source = "TWO"
[[system.repository]]
source = "THREE"
[system.alarm]
)";

void usage() {
  const auto [ours, empty] = medians(
      200, [] { return wall_of("ztcomm", {"-unknown"}); },
      [] { return wall_of("empty_program", {}); });
  std::printf("usage                   %8.2f ms   empty program %8.2f ms   difference %.2f ms\n",
              ours, empty, ours - empty);
}

// Exchanges of a default check with three servers: two broker negotiations and a probe, each with
// its connection; for each look-up of the map one call; for each server the listening probe, the
// call and the call-back that comes before it.
constexpr int kExchanges = 3 + 2 + 2 + 4 * 3;

void default_check() {
  const Agent agent(kHealthy);
  long peak = 0;
  const auto [ours, empty] = medians(
      50,
      [&peak] {
        const Result result = endtoend::ztcomm({"-s", "alpha"});
        if (result.status != 0 || !result.err.empty())
          std::printf("default check failed: %s\n", result.err.c_str());
        peak = std::max(peak, result.peak_kilobytes);
        return result.seconds * 1000;
      },
      [] { return wall_of("empty_program", {}); });
  const double bare = kExchanges * bare_round_trip();
  std::printf("default check           %8.2f ms   bare exchanges %7.2f ms   over them %.2f ms\n",
              ours, bare, ours - empty - bare);
  std::printf("default check, memory   %8.1f MiB\n", static_cast<double>(peak) / 1024);
}

void many_systems() {
  std::string scenario = R"(
[source.ONE]
id = 1
path = "/one"
[[system]]
name = "many"
address = "127.0.10.1"
count = 500
[[system.repository]]
source = "ONE"
[system.alarm]
)";
  auto begin = Clock::now();
  const Agent agent(scenario);
  std::printf("hxasim, 500 systems     %8.0f ms to be ready\n", milliseconds(Clock::now() - begin));

  const endtoend::TemporaryFolder data;
  const std::string settings =
      data.write("zentrace.reg",
                 "Windows Registry Editor Version 5.00\n\n"
                 "[HKEY_LOCAL_MACHINE\\Software\\Moraine\\Zentrace Analyzer\\CurrentVersion]\n"
                 "\"CommonDataPath\"=\"" +
                     data.path().string() + "\"\n");
  std::filesystem::create_directory(data.path() / "datafiles");
  for (int i = 0; i < 500; ++i) {
    const int host = 10 * 256 + 1 + i;
    const std::string address =
        "127.0." + std::to_string(host / 256) + "." + std::to_string(host % 256);
    endtoend::run("ztsys", {"add", address}, {{"ZT_REGISTRY", settings}});
  }
  begin = Clock::now();
  const Result sweep = endtoend::ztcomm({"-zt"}, {{"ZT_REGISTRY", settings}}, 300);
  std::size_t succeeded = 0;
  for (std::size_t at = 0; (at = sweep.out.find("Succeeded", at)) != std::string::npos; ++at)
    ++succeeded;
  std::printf("sweep of 500 systems    %8.0f ms   %zu succeeded\n",
              milliseconds(Clock::now() - begin), succeeded);
}

}  // namespace

int main() {
  usage();
  default_check();
  many_systems();
}
