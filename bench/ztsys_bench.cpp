// SPDX-License-Identifier: Apache-2.0
// ztsys as it is built, on large databases in the folder named on the command line, by default the
// current one. Each figure is that of a process from its start to its end, with what it prints
// thrown away.

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "bench/large_database.h"
#include "bench/measure.h"

namespace {

constexpr int kImported = 100'000;
constexpr int kListed = 1'000'000;
constexpr std::size_t kBlock = 64 * 1024;

using Words = std::vector<std::string>;

pid_t Start(const Words& words, bool traced) {
  std::vector<char*> arguments{const_cast<char*>("ztsys")};
  for (const std::string& word : words)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
    if (traced) {
      ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      raise(SIGSTOP);
    }
    execv(ZTSYS_PROGRAM, arguments.data());
    _exit(127);
  }
  return child;
}

struct Cost {
  double seconds = 0;
  double processor = 0;  // seconds of it that the process was running
  double peak = 0;       // octets
};

Cost CostOf(const Words& words) {
  Cost cost;
  int status = 0;
  rusage usage{};
  cost.seconds = bench::seconds_of([&] { wait4(Start(words, false), &status, 0, &usage); });
  for (const timeval& time : {usage.ru_utime, usage.ru_stime})
    cost.processor += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  cost.peak = static_cast<double>(usage.ru_maxrss) * 1024;
  bench::require(status == 0, "ztsys " + words[2]);
  return cost;
}

// All but those that write the output.
long SystemCallsOf(const Words& words) {
  const pid_t child = Start(words, true);
  int status = 0;
  waitpid(child, &status, 0);
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  long calls = 0;
  while (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 && waitpid(child, &status, 0) > 0 &&
         WIFSTOPPED(status)) {
    __ptrace_syscall_info about{};
    if (WSTOPSIG(status) != (SIGTRAP | 0x80) ||
        ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof about, &about) <= 0)
      continue;
    if (about.op == PTRACE_SYSCALL_INFO_ENTRY && about.entry.nr != SYS_write)
      ++calls;
  }
  bench::require(WIFEXITED(status) && WEXITSTATUS(status) == 0, "ztsys under trace");
  return calls;
}

// All figures of five runs; `prepare` comes before each and is not measured.
void Report(
    const std::string& what, const Words& words, const std::string& seconds_goal,
    const std::string& peak_goal, const std::function<void()>& prepare = [] {}) {
  std::vector<double> peaks;
  std::vector<double> processor;
  const bench::Figure seconds = bench::measure([&] {
    prepare();
    const Cost cost = CostOf(words);
    peaks.push_back(cost.peak);
    processor.push_back(cost.processor);
    return cost.seconds;
  });
  bench::report(what, seconds, bench::kSeconds, seconds_goal);
  bench::report(what + ", processor", bench::figure_of(processor), bench::kSeconds, "");
  bench::report(what + ", peak memory", bench::figure_of(peaks), bench::kMebibytes, peak_goal);
}

// A CSV file of systems with addresses from 10.0.0.0 on.
void WriteCsv(const std::string& path, const char* group) {
  std::ofstream file(path);
  file << "name,address,group,type\n";
  for (int i = 0; i < kImported; ++i)
    file << bench::record_of(i).fSystemName << ",10." << (i >> 16) << '.' << (i >> 8 & 0xFF) << '.'
         << (i & 0xFF) << ',' << group << ",DNX\n";
}

void BenchImport(const std::string& folder) {
  const std::string path = folder + "/imported";
  const std::string csv = folder + "/systems.csv";
  WriteCsv(csv, "web");
  Report("import of 100,000 systems into an empty database", {"--db", path, "import", csv},
         "3 or less", "100 or less", [&] { std::filesystem::remove(path); });
  const std::string changed = folder + "/changed.csv";
  WriteCsv(changed, "db");
  Report("import --update of 100,000 changes", {"--db", path, "import", "--update", changed}, "",
         "", [&] {
           CostOf({"--db", path, "import", "--update", csv});
         });
}

void BenchReading(const std::string& folder) {
  const std::string path = folder + "/ztdb";
  bench::make_database(path, kListed);
  Report("list of 1,000,000 systems", {"--db", path, "list"}, "1.5 or less", "80 or less");
  const double blocks = static_cast<double>(std::filesystem::file_size(path)) / kBlock;
  bench::report("list of 1,000,000 systems, system calls for 64 KiB of slots", bench::measure([&] {
                  return static_cast<double>(SystemCallsOf({"--db", path, "list"})) / blocks;
                }),
                {"", 1, 2}, "1 or less");
  Report("verify of 1,000,000 systems", {"--db", path, "verify"}, "2 or less", "");
}

}  // namespace

int main(int argc, char** argv) {
  std::string folder = std::string(argc > 1 ? argv[1] : ".") + "/ztsys-bench-XXXXXX";
  bench::require(mkdtemp(folder.data()) != nullptr, "mkdtemp");
  const std::string settings = folder + "/zentrace.reg";
  std::ofstream(settings) << "Windows Registry Editor Version 5.00\n";
  setenv("ZT_REGISTRY", settings.c_str(), 1);
  BenchImport(folder);
  BenchReading(folder);
  std::filesystem::remove_all(folder);
  return 0;
}
