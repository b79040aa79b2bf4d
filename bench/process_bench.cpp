// SPDX-License-Identifier: Apache-2.0
// Whole programs, measured from outside and compared with a baseline of the same run. Needs ports
// 135 and 382 of loopback addresses: run it through tests/endtoend/in_namespace.sh.

#include <netinet/in.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/measure.h"
#include "source/domain/ZTdataTable.h"
#include "source/domain/ZTrepServerInfoObj.h"
#include "tests/endtoend/harness.h"
#include "tests/endtoend/scenario_text.h"

namespace {

using endtoend::Agent;
using endtoend::Result;
using endtoend::SourceText;

const std::vector<std::string> kQuiet;  // what is measured are our programs, not the server's log

double kilobytes(long count) {
  return static_cast<double>(count) * 1024;
}

// The median wall time of so many runs of a program, in seconds.
double wall_of(int runs, const std::string& program, const std::vector<std::string>& arguments) {
  std::vector<double> times;
  for (int run = 0; run < runs; ++run) {
    const Result result = endtoend::run(program, arguments);
    bench::require(result.status == 0 || arguments == std::vector<std::string>{"-unknown"},
                   program + " failed: " + result.err);
    times.push_back(result.seconds);
  }
  return bench::median(times);
}

double empty_program(int runs) {
  return wall_of(runs, "empty_program", {});
}

constexpr std::size_t kLargestDatagram = 8000;

// The median time in which another thread answers a datagram of 100 octets with so many, in
// datagrams of kLargestDatagram at most, over loopback.
double bare_exchange(std::size_t answer = 100) {
  const int server = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ::bind(server, reinterpret_cast<sockaddr*>(&address), size);
  ::getsockname(server, reinterpret_cast<sockaddr*>(&address), &size);
  constexpr int kExchanges = 2000;
  std::thread echo([server, answer] {
    char buffer[kLargestDatagram] = {};
    for (int i = 0; i < kExchanges; ++i) {
      sockaddr_in from{};
      socklen_t from_size = sizeof from;
      ::recvfrom(server, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &from_size);
      for (std::size_t sent = 0; sent < answer; sent += kLargestDatagram)
        ::sendto(server, buffer, std::min(kLargestDatagram, answer - sent), 0,
                 reinterpret_cast<sockaddr*>(&from), from_size);
    }
  });
  const int client = ::socket(AF_INET, SOCK_DGRAM, 0);
  std::vector<double> times;
  char buffer[kLargestDatagram] = {};
  for (int i = 0; i < kExchanges; ++i) {
    times.push_back(bench::seconds_of([&] {
      ::sendto(client, buffer, 100, 0, reinterpret_cast<sockaddr*>(&address), sizeof address);
      for (std::size_t received = 0; received < answer; received += kLargestDatagram)
        ::recv(client, buffer, sizeof buffer, 0);
    }));
  }
  echo.join();
  ::close(client);
  ::close(server);
  return bench::median(times);
}

void usage() {
  bench::report({.what = "`ztcomm` with its usage",
                 .ours = [] { return wall_of(100, "ztcomm", {"-unknown"}); },
                 .against = "an empty program",
                 .baseline = [] { return empty_program(100); },
                 .unit = bench::kMilliseconds,
                 .goal = "2 or less",
                 .compared = bench::Compared::difference});
}

// Exchanges of a default check with three servers: two broker negotiations and a probe, each with
// its connection; for each look-up of the map one call; for each server the listening probe, the
// call and the call-back that comes before it.
constexpr int kExchanges = 3 + 2 + 2 + 4 * 3;

// How often the file that is opened most is opened by a run, of those that name hosts and services
// and the catalog.
double most_opens(const std::vector<std::string>& arguments) {
  const std::vector<std::string> files{"/etc/hosts",     "/etc/services",    "/etc/nsswitch.conf",
                                       "/etc/host.conf", "/etc/resolv.conf", ZT_CATALOG};
  const int watch = ::inotify_init1(IN_NONBLOCK);
  std::map<int, int> opens;
  for (const std::string& file : files)
    opens[::inotify_add_watch(watch, file.c_str(), IN_OPEN)] = 0;
  endtoend::ztcomm(arguments);
  alignas(inotify_event) char buffer[4096];
  ssize_t size = 0;
  while ((size = ::read(watch, buffer, sizeof buffer)) > 0)
    for (char* at = buffer; at < buffer + size;) {
      const auto* const event = reinterpret_cast<const inotify_event*>(at);
      ++opens[event->wd];
      at += sizeof *event + event->len;
    }
  ::close(watch);
  opens.erase(-1);
  bench::require(!opens.empty(), "no file could be watched");
  return std::max_element(opens.begin(), opens.end(),
                          [](const auto& a, const auto& b) { return a.second < b.second; })
      ->second;
}

void default_check() {
  const Agent agent(SourceText("ONE").text() + SourceText("TWO").text() +
                        SourceText("THREE").text() +
                        endtoend::system_alpha({"ONE", "TWO", "THREE"}),
                    kQuiet);
  const std::vector<std::string> arguments{"-s", "alpha"};
  bench::report({.what = "default check with three servers, everything in",
                 .ours = [&] { return wall_of(50, "ztcomm", arguments); },
                 .against = "an empty program and " + std::to_string(kExchanges) +
                            " bare exchanges of 100 octets",
                 .baseline = [] { return empty_program(50) + kExchanges * bare_exchange(); },
                 .unit = bench::kMilliseconds,
                 .goal = "1.2 or less in all",
                 .compared = bench::Compared::difference});
  bench::report("default check, peak memory", bench::measure([&] {
                  return kilobytes(endtoend::ztcomm(arguments).peak_kilobytes);
                }),
                bench::kMebibytes, "12 or less");
  bench::report("default check, opens of the file that it opens most",
                bench::measure([&] { return most_opens(arguments); }), {"", 1, 0}, "1");
}

// --- The configuration report, which loads the whole catalogue first.

constexpr int kMostClasses = 251;

// The collector's data source with so many metrics in each of its classes, of a server that sends
// fragments as large as loopback carries.
std::string collector(int metrics) {
  SourceText source("TAMBO");
  source.with_class("CONFIGURATION", "rows = 1\ninterval = 60")
      .metric("GBL_OSNAME", "type = \"text\"\ntexts = [\"Linux\"]");
  source.with_class("CLASS",
                    "rows = 1\ninterval = 60\ncount = " + std::to_string(kMostClasses - 1));
  for (int i = 1; i <= metrics; ++i)
    source.metric("METRIC_" + std::to_string(i), "width = 8");
  return source.text() + endtoend::system_alpha({"TAMBO"}, "fragment_size = 8000");
}

// Request, answer and acknowledgements of the look-ups of metrics, by the server's log.
double datagrams_of_a_call(const std::string& scenario) {
  const Agent agent(scenario);
  endtoend::ztcomm({"-s", "alpha", "-c"});
  double datagrams = 0, requests = 0;
  std::istringstream log(agent.log());
  for (std::string line; std::getline(log, line);) {
    if (line.find(" rep_LookupMetric (rep) call ") == std::string::npos)
      continue;
    ++datagrams;
    requests += line.find(" received request ") != std::string::npos ? 1 : 0;
  }
  bench::require(requests >= kMostClasses, "the configuration report failed");
  return datagrams / requests;
}

void configuration_of(int metrics, const std::string& time_goal, const std::string& memory_goal) {
  // Of a metric's descriptor without texts but its name, as it travels.
  constexpr std::size_t kDescriptor = 100;
  const std::string scenario = collector(metrics);
  const std::string name = "`-c` with " + std::to_string(kMostClasses) + " classes of " +
                           std::to_string(metrics) + " metrics";
  const std::vector<std::string> arguments{"-s", "alpha", "-c"};
  std::vector<double> memory;
  {
    const Agent agent(scenario, kQuiet);
    bench::report(
        {.what = name,
         .ours =
             [&] {
               std::vector<double> times;
               for (int run = 0; run < 9; ++run) {
                 const Result result = endtoend::ztcomm(arguments);
                 bench::require(result.status == 0 && result.out.find("Linux") != std::string::npos,
                                "the configuration report failed: " + result.err);
                 times.push_back(result.seconds);
                 memory.push_back(kilobytes(result.peak_kilobytes));
               }
               return bench::median(times);
             },
         .against = "an empty program and as many bare exchanges of the same sizes",
         .baseline =
             [&] {
               return empty_program(9) +
                      kMostClasses * bare_exchange(kDescriptor * static_cast<std::size_t>(metrics));
             },
         .unit = bench::kMilliseconds,
         .goal = time_goal,
         .compared = bench::Compared::difference});
  }
  bench::report(name + ", peak memory", bench::figure_of(memory), bench::kMebibytes, memory_goal);
  bench::report(name + ", datagrams a call",
                bench::measure([&] { return datagrams_of_a_call(scenario); }), {"", 1, 2},
                metrics == 25 ? "2.2 or less" : "");
}

void configuration() {
  configuration_of(25, "12 or less in all", "");
  configuration_of(500, "90 or less in all", "40 or less");
}

// --- Reading data, by the product's classes in this process.

constexpr SystemKey kAlpha = 0x0101007F;  // 127.0.1.1

// A data source of such classes, with 300 rows each; every fourth metric is a text.
SourceText source_of(int classes, int metrics) {
  SourceText source("DATA");
  source.with_class("CLASS", "rows = 300\ninterval = 60\ncount = " + std::to_string(classes));
  for (int i = 1; i <= metrics; ++i) {
    source.metric("METRIC_" + std::to_string(i),
                  i % 4 == 0 ? "type = \"text\"\ntexts = [\"/dev/dsk1\", \"/dev/dsk2\"]"
                             : "width = 8\nramp = {from = 0, to = 100000, step = 137}\nscale10 = " +
                                   std::to_string(i % 3));
  }
  return source;
}

// One query of 256 rows by 16 metrics, from the connection to the table.
void query() {
  zt_RepServerInfo_class client(kAlpha, "alpha");
  bench::require(client.ConnectToServer("DATA") != 0, "the query's connection failed");
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
  bench::require(table && client.ReturnRowCount() == 256 && ids.size() == 16, "the query failed");
  client.DisconnectFromClass();
}

void queries_over(const std::string& road, const std::string& network, const std::string& goal) {
  const Agent agent(source_of(1, 16).text() + endtoend::system_alpha({"DATA"}, network), kQuiet);
  std::vector<double> wall, waiting;
  const auto round = [&] {
    std::vector<double> times, shares;
    for (int i = 0; i < 10; ++i) {
      const double busy =
          bench::processor_seconds_of([&] { times.push_back(bench::seconds_of(query)); });
      shares.push_back(100 * (1 - busy / times.back()));
    }
    wall.push_back(bench::median(times));
    return bench::median(shares);
  };
  const bench::Figure share = bench::measure(round);
  wall.erase(wall.begin());  // the round that warms
  bench::report("query of 256 rows by 16 metrics over " + road, bench::figure_of(wall),
                bench::kMilliseconds, "");
  bench::report("its share of waiting", share, {"%", 1, 0}, goal);
}

void data_query() {
  queries_over("loopback", "", "");
  queries_over("a network of 5 ms", "network = {outgoing = {delay_ms = 5}}\n", "90 or more");
}

// --- How it grows.

// Processor time of this process for each class of a connection to a catalogue of so many.
double per_class(int classes) {
  const Agent agent(source_of(classes, 500).text() + endtoend::system_alpha({"DATA"}), kQuiet);
  zt_RepServerInfo_class client(kAlpha, "alpha");
  return bench::processor_seconds_of([&] {
           bench::require(
               client.ConnectToServer("DATA") != 0 && client.ReturnNumClasses() == classes,
               "the catalogue failed");
         }) /
         classes;
}

void large_catalogue() {
  bench::report({.what = "a class of 500 metrics in a catalogue of 251 classes",
                 .ours = [] { return per_class(251); },
                 .against = "in one of 25",
                 .baseline = [] { return per_class(25); },
                 .unit = bench::kMilliseconds,
                 .goal = "about 1"});
}

// Points of wall time and peak memory of a program over a number of things.
void points(const std::string& series, int x, const std::function<Result()>& work) {
  std::vector<double> memory;
  const bench::Figure time = bench::measure([&] {
    const Result result = work();
    memory.push_back(kilobytes(result.peak_kilobytes));
    return result.seconds;
  });
  bench::report_point(series + ", time", x, time, bench::kMilliseconds);
  bench::report_point(series + ", memory", x, bench::figure_of(memory), bench::kMebibytes);
}

void many_classes() {
  for (const int classes : {1, 10, 50, 100, 250}) {
    const Agent agent(source_of(classes, 100).text() + endtoend::system_alpha({"DATA"}), kQuiet);
    points("data query by classes", classes, [] {
      const Result result = endtoend::ztcomm({"-s", "alpha", "-ds", "DATA"});
      bench::require(result.status == 0 && result.err.empty(), "the query failed: " + result.err);
      return result;
    });
  }
}

// A database folder with so many systems, and the settings that name it.
class Console {
 public:
  explicit Console(int systems) {
    std::filesystem::create_directory(folder_.path() / "datafiles");
    settings_ = folder_.write("zentrace.reg",
                              "Windows Registry Editor Version 5.00\n\n"
                              "[HKEY_LOCAL_MACHINE\\Software\\Moraine\\Zentrace Analyzer\\"
                              "CurrentVersion]\n\"CommonDataPath\"=\"" +
                                  folder_.path().string() + "\"\n");
    std::vector<std::string> add{"add"};
    for (int host = kFirstHost; host < kFirstHost + systems; ++host)
      add.push_back("127.0." + std::to_string(host / 256) + "." + std::to_string(host % 256));
    bench::require(endtoend::run("ztsys", add, {{"ZT_REGISTRY", settings_}}, 300).status == 0,
                   "the systems were not added");
  }

  Result sweep() const {
    const Result result = endtoend::ztcomm({"-zt"}, {{"ZT_REGISTRY", settings_}}, 300);
    bench::require(result.status == 0 && result.out.find("Failed") == std::string::npos &&
                       result.out.find("Succeeded") != std::string::npos,
                   "the sweep failed: " + result.err);
    return result;
  }

 private:
  static constexpr int kFirstHost = 10 * 256 + 1;
  endtoend::TemporaryFolder folder_;
  std::string settings_;
};

std::string systems_text(int systems) {
  return R"(
[source.ONE]
id = 1
path = "/one"
[[system]]
name = "many"
address = "127.0.10.1"
count = )" +
         std::to_string(systems) + R"(
[[system.repository]]
source = "ONE"
[system.alarm]
)";
}

void many_systems() {
  bench::report("hxasim with 500 systems, ready after", bench::measure([] {
                  return bench::seconds_of([] { const Agent agent(systems_text(500), kQuiet); });
                }),
                bench::kMilliseconds, "2000 or less");
  for (const int systems : {1, 10, 100, 300, 1000}) {
    const Agent agent(systems_text(systems), kQuiet);
    const Console console(systems);
    points("sweep by systems", systems, [&] { return console.sweep(); });
  }
}

}  // namespace

// All of them, or those that are named on the command line.
int main(int argc, char** argv) {
  const std::pair<std::string, void (*)()> benches[] = {
      {"usage", usage},         {"check", default_check},       {"configuration", configuration},
      {"query", data_query},    {"catalogue", large_catalogue}, {"classes", many_classes},
      {"systems", many_systems}};
  const std::vector<std::string> wanted(argv + 1, argv + argc);
  for (const auto& [name, bench] : benches) {
    if (wanted.empty() || std::find(wanted.begin(), wanted.end(), name) != wanted.end())
      bench();
  }
}
