// SPDX-License-Identifier: Apache-2.0
// Whole programs, measured from outside and compared with a baseline of the same run. Needs ports
// 135 and 382 of loopback addresses: run it through tests/endtoend/in_namespace.sh.

#include <netinet/in.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "source/domain/ZTdataTable.h"
#include "source/domain/ZTrepServerInfoObj.h"
#include "tests/endtoend/harness.h"
#include "tests/endtoend/scenario_text.h"

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
  const Agent agent(endtoend::SourceText("ONE").text() + endtoend::SourceText("TWO").text() +
                    endtoend::SourceText("THREE").text() +
                    endtoend::system_alpha({"ONE", "TWO", "THREE"}));
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

// --- Reading data, by the product's classes in this process.

constexpr SystemKey kAlpha = 0x0101007F;  // 127.0.1.1

// A data source of such classes, with 300 rows each; every fourth metric is a text.
endtoend::SourceText source_of(int classes, int metrics) {
  endtoend::SourceText source("DATA");
  source.with_class("CLASS", "rows = 300\ninterval = 60\ncount = " + std::to_string(classes));
  for (int i = 1; i <= metrics; ++i) {
    source.metric("METRIC_" + std::to_string(i),
                  i % 4 == 0 ? "type = \"text\"\ntexts = [\"/dev/dsk1\", \"/dev/dsk2\"]"
                             : "width = 8\nramp = {from = 0, to = 100000, step = 137}\nscale10 = " +
                                   std::to_string(i % 3));
  }
  return source;
}

double processor_milliseconds() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

// One query of 256 rows by 16 metrics, from the connection to the table.
void query() {
  zt_RepServerInfo_class client(kAlpha, "alpha");
  if (client.ConnectToServer("DATA") == 0)
    std::printf("the query's connection failed\n");
  std::vector<std::uint32_t> ids;
  std::vector<const rep_sMetricDescriptor*> columns;
  for (int i = 0; i < client.ReturnNumMetrics(0); ++i) {
    columns.push_back(client.ReturnMetrics(0) + i);
    ids.push_back(columns.back()->Descriptor.fId);
  }
  client.CreateBaseView(0, ids.data(), static_cast<int>(ids.size()));
  client.SetPosition(0, 0);
  client.ReadData();
  const auto table = format_data_table(client, columns);
  if (!table || client.ReturnRowCount() != 256 || ids.size() != 16)
    std::printf("the query failed\n");
  client.DisconnectFromClass();
}

void queries_over(const char* road, const std::string& network) {
  const Agent agent(source_of(1, 16).text() + endtoend::system_alpha({"DATA"}, network));
  std::vector<double> wall, busy;
  for (int i = 0; i < 50; ++i) {
    const auto begin = Clock::now();
    const double before = processor_milliseconds();
    query();
    busy.push_back(processor_milliseconds() - before);
    wall.push_back(milliseconds(Clock::now() - begin));
  }
  const double all = median(wall);
  const double own = median(busy);
  std::printf("query of 256 x 16, %-12s %6.2f ms   own processor time %.2f ms   waiting %.0f %%\n",
              road, all, own, 100 * (all - own) / all);
}

void data_query() {
  queries_over("loopback", "");
  queries_over("5 ms network", "network = {outgoing = {delay_ms = 5}}\n");
}

void large_catalogue() {
  double each[2];
  const int classes[] = {25, 251};
  for (int i = 0; i < 2; ++i) {
    const Agent agent(source_of(classes[i], 500).text() + endtoend::system_alpha({"DATA"}));
    zt_RepServerInfo_class client(kAlpha, "alpha");
    const double before = processor_milliseconds();
    if (client.ConnectToServer("DATA") == 0 || client.ReturnNumClasses() != classes[i])
      std::printf("the catalogue failed\n");
    each[i] = (processor_milliseconds() - before) / classes[i];
  }
  std::printf("catalogue, 500 metrics a class: %.2f ms a class of 251, %.2f of 25   ratio %.2f\n",
              each[1], each[0], each[1] / each[0]);
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

// All of them, or those that are named on the command line.
int main(int argc, char** argv) {
  const std::pair<const char*, void (*)()> benches[] = {{"usage", usage},
                                                        {"check", default_check},
                                                        {"query", data_query},
                                                        {"catalogue", large_catalogue},
                                                        {"systems", many_systems}};
  for (const auto& [name, bench] : benches) {
    if (argc == 1 || std::find(argv + 1, argv + argc, std::string_view(name)) != argv + argc)
      bench();
  }
}
