// SPDX-License-Identifier: Apache-2.0
// Thousands of simulated systems at once. Runs through tests/endtoend/in_namespace.sh; those that
// take a minute run once, and five times with --five.

#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/far_network.h"
#include "bench/measure.h"
#include "platform/sys/fiber.h"
#include "source/domain/ZTsweep.h"
#include "source/support/ZTglobal.h"
#include "tests/endtoend/harness.h"

namespace {

using endtoend::Agent;
using endtoend::Result;

int long_rounds = 1;

// The address that lies so far behind this one.
std::string address(std::uint32_t first, int offset) {
  const std::uint32_t at = first + static_cast<std::uint32_t>(offset);
  return std::to_string(at >> 24) + '.' + std::to_string(at >> 16 & 255) + '.' +
         std::to_string(at >> 8 & 255) + '.' + std::to_string(at & 255);
}

constexpr std::uint32_t kNear = 0x7F010001;    // 127.1.0.1
constexpr std::uint32_t kFar = 0x0A010001;     // 10.1.0.1
constexpr std::uint32_t kSilent = 0x0AC80001;  // 10.200.0.1

Agent live_systems(int systems, std::uint32_t first = kNear) {
  return Agent("[source.ONE]\nid = 1\npath = \"/one\"\n[[system]]\naddress = \"" +
                   address(first, 0) + "\"\ncount = " + std::to_string(systems) +
                   "\n[[system.repository]]\nsource = \"ONE\"\n[system.alarm]\n",
               {"--anywhere"});
}

std::vector<std::string> addresses(int live, int silent, std::uint32_t first = kNear) {
  std::vector<std::string> list;
  for (int i = 0; i < live + silent; ++i) {
    const bool is_silent = silent > 0 && i % ((live + silent) / silent) == 0;
    const int before =
        silent > 0 ? (i + (live + silent) / silent - 1) / ((live + silent) / silent) : 0;
    list.push_back(is_silent ? address(kSilent, before) : address(first, i - before));
  }
  return list;
}

// A database of these systems, and the settings that name it.
class Console {
 public:
  explicit Console(const std::vector<std::string>& systems) : systems_(systems.size()) {
    std::filesystem::create_directory(folder_.path() / "datafiles");
    environment_["ZT_REGISTRY"] = folder_.write(
        "zentrace.reg",
        "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\Software\\Moraine\\Zentrace "
        "Analyzer\\CurrentVersion]\n\"CommonDataPath\"=\"" +
            folder_.path().string() + "\"\n");
    std::string list;
    for (const std::string& each : systems)
      list += each + '\n';
    const Result made =
        endtoend::run("ztsys", {"import", folder_.write("list", list)}, environment_, 300);
    bench::require(made.status == 0, "the systems were not added: " + made.err);
  }

  // Asks all of them; as many must succeed, and the others be silent.
  Result check(std::size_t live) const {
    const Result result = endtoend::run("ztsys", {"check"}, environment_, 600);
    const std::string silent = std::to_string(systems_ - live) + " not available";
    bench::require(
        result.out.find('\n' + std::to_string(systems_) + " systems: " + std::to_string(live) +
                        " succeeded" + (live < systems_ ? ", " + silent : "") + "; ") !=
            std::string::npos,
        "the check failed: " + result.err + result.out.substr(result.out.size() / 2));
    return result;
  }

  double sweep(std::size_t live, std::map<std::string, std::string> more = {}) const {
    more.insert(environment_.begin(), environment_.end());
    const Result result = endtoend::ztcomm({"-zt"}, more, 600);
    std::size_t succeeded = 0;
    for (std::size_t at = 0; (at = result.out.find("  Succeeded -", at)) != std::string::npos; ++at)
      ++succeeded;
    bench::require(result.status == 0 && succeeded == live, "the sweep failed: " + result.out);
    return result.seconds;
  }

 private:
  std::size_t systems_;
  endtoend::TemporaryFolder folder_;
  std::map<std::string, std::string> environment_;
};

std::string once(const std::string& what) {
  return long_rounds > 1 ? what : what + " (one run)";
}

// --- What silent hosts cost. Level 3, eight seconds each, but where it is said otherwise.

void check_with_silent_hosts() {
  const bench::FarNetwork network({});
  const Agent agent = live_systems(9500);
  const Console console(addresses(9500, 500));
  std::vector<double> memory;
  const bench::Figure time = bench::measure(
      [&] {
        const Result result = console.check(9500);
        memory.push_back(static_cast<double>(result.peak_kilobytes) * 1024);
        return result.seconds;
      },
      long_rounds);
  bench::report(once("check of 10,000 systems, 500 of them silent hosts"), time, bench::kSeconds,
                "60 or less");
  bench::report(once("its peak memory"), bench::figure_of(memory), bench::kMebibytes,
                "150 or less");
}

void sweep_with_silent_hosts() {
  const bench::FarNetwork network({});
  const Agent agent = live_systems(950);
  const Console console(addresses(950, 50));
  bench::report(once("-zt of 1,000 systems, 50 of them silent hosts"),
                bench::measure([&] { return console.sweep(950); }, long_rounds), bench::kSeconds,
                "25 or less");
  const Console few(addresses(95, 5));
  bench::report({.what = "-zt of 100 systems, 5 of them silent hosts, level 0",
                 .ours =
                     [&] {
                       return few.sweep(95, {{"ZT_RPC_TIMEOUT", "0"}});
                     },
                 .against = "one after another",
                 .baseline =
                     [&] {
                       return few.sweep(95, {{"ZT_RPC_TIMEOUT", "0"}, {"ZT_SWEEP_JOBS", "1"}});
                     },
                 .unit = bench::kSeconds,
                 .goal = ""});
}

// A file in the place of another one, as long as this lives.
class InPlace {
 public:
  InPlace(const std::string& file, const char* place) : place_(place) {
    bench::require(::mount(file.c_str(), place, nullptr, MS_BIND, nullptr) == 0,
                   std::string("nothing can be put in the place of ") + place);
  }
  ~InPlace() { ::umount(place_); }
  InPlace(const InPlace&) = delete;
  InPlace& operator=(const InPlace&) = delete;

 private:
  const char* place_;
};

void silent_name_server() {
  constexpr const char* kSwitch = "/etc/nsswitch.conf";
  const bench::FarNetwork network({});
  const Agent agent = live_systems(1000);
  const Console console(addresses(1000, 0));
  const endtoend::TemporaryFolder folder;
  const std::string servers =
      folder.write("resolv.conf", "nameserver " + address(kSilent, 0) + "\n");
  const std::string with = folder.write("with", "hosts: files dns\nservices: files\n");
  const std::string without = folder.write("without", "hosts: files\nservices: files\n");
  ::umount(kSwitch);  // the namespace's own, whose file is gone
  bench::report({.what = "check of 1,000 systems by address, the name server silent",
                 .ours =
                     [&] {
                       const InPlace order(with, kSwitch);
                       const InPlace server(servers, "/etc/resolv.conf");
                       return console.check(1000).seconds;
                     },
                 .against = "without a name server",
                 .baseline =
                     [&] {
                       const InPlace order(without, kSwitch);
                       return console.check(1000).seconds;
                     },
                 .unit = bench::kSeconds,
                 .goal = "about 1"});
}

void names_in_the_hosts_file() {
  constexpr int kSystems = 8000;
  const Agent agent = live_systems(kSystems);
  const std::vector<std::string> list = addresses(kSystems, 0);
  const Console by_address(list);
  std::string hosts = "127.0.0.2 console\n";
  std::vector<std::string> names;
  for (int i = 0; i < kSystems; ++i) {
    names.push_back("host" + std::to_string(i));
    hosts += list[static_cast<std::size_t>(i)] + ' ' + names.back() + '\n';
  }
  const endtoend::TemporaryFolder folder;
  const InPlace file(folder.write("hosts", hosts), "/etc/hosts");
  const Console by_name(names);
  bench::report({.what = "-zt of 8,000 names in the hosts file",
                 .ours = [&] { return by_name.sweep(kSystems); },
                 .against = "check by address",
                 .baseline = [&] { return by_address.check(kSystems).seconds; },
                 .unit = bench::kSeconds,
                 .goal = ""});
}

void round_trip() {
  using namespace std::chrono_literals;
  const bench::FarNetwork network(20ms);
  std::unique_ptr<const Agent> agent;
  network.there([&] { agent.reset(new Agent(live_systems(1000, kFar))); });
  const Console console(addresses(1000, 0, kFar));
  bench::report("check of 1,000 systems behind 20 ms of round trip",
                bench::measure([&] { return console.check(1000).seconds; }), bench::kSeconds,
                "5 or less");
}

// --- What a live system costs.

// A thousand systems as often as it takes to have asked as many.
void processor_time() {
  const Agent agent = live_systems(16000);
  const Console few(addresses(1000, 0));
  for (const int thousands : {10, 16}) {
    const int systems = 1000 * thousands;
    const Console many(addresses(systems, 0));
    const auto each = [&](const Console& console, int in_each) {
      double seconds = 0;
      for (int asked = 0; asked < systems; asked += in_each)
        seconds += console.check(static_cast<std::size_t>(in_each)).processor_seconds;
      return seconds / systems;
    };
    bench::report(
        {.what = "check of " + std::to_string(systems) + " live systems, processor time of each",
         .ours = [&] { return each(many, systems); },
         .against = "of 1,000, as often",
         .baseline = [&] { return each(few, 1000); },
         .unit = bench::kMilliseconds,
         .goal = "0.9 to 1.1, and 0.5 ms or less"});
  }
}

// --- One loop, or a loop in each of several threads, in this process.

double sweep_by_threads(const std::vector<std::string>& list, unsigned threads) {
  constexpr unsigned kJobs = 128;
  const SweepSettings settings(kDefaultComTimeout);
  std::vector<std::vector<SweepSystem>> parts(threads);
  for (std::size_t i = 0; i < list.size(); ++i)
    parts[i % threads].push_back(
        {.name = list[i], .key = static_cast<SystemKey>(sockets::inet_addr(list[i].c_str()))});
  std::atomic<std::size_t> succeeded = 0;
  const double seconds = bench::seconds_of([&] {
    std::vector<std::thread> pool;
    for (auto& part : parts)
      pool.emplace_back([&] {
        sys::FiberLoop loop(kJobs / threads);
        zt_Sweep(loop, part, settings.road(), {.done = [&](std::size_t, const SweepResult& each) {
                   succeeded += each.report.failure ? 0 : 1;
                 }});
      });
    for (std::thread& each : pool)
      each.join();
  });
  bench::require(succeeded == list.size(), "a sweep by threads failed");
  return seconds;
}

void loops() {
  const Agent agent = live_systems(2000);
  const std::vector<std::string> list = addresses(2000, 0);
  for (const unsigned threads : {2U, 4U})
    bench::report(
        {.what = "2,000 live systems, a loop in each of " + std::to_string(threads) + " threads",
         .ours = [&] { return sweep_by_threads(list, threads); },
         .against = "one loop",
         .baseline = [&] { return sweep_by_threads(list, 1); },
         .unit = bench::kSeconds,
         .goal = ""});
}

}  // namespace

// All of them, or those that are named on the command line.
int main(int argc, char** argv) {
  const std::pair<std::string, void (*)()> benches[] = {{"check", check_with_silent_hosts},
                                                        {"sweep", sweep_with_silent_hosts},
                                                        {"names", silent_name_server},
                                                        {"round-trip", round_trip},
                                                        {"hosts", names_in_the_hosts_file},
                                                        {"processor", processor_time},
                                                        {"loops", loops}};
  std::vector<std::string> wanted(argv + 1, argv + argc);
  if (std::erase(wanted, "--five") > 0)
    long_rounds = bench::kRounds;
  for (const auto& [name, bench] : benches) {
    if (wanted.empty() || std::find(wanted.begin(), wanted.end(), name) != wanted.end())
      bench();
  }
}
