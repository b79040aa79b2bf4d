// SPDX-License-Identifier: Apache-2.0
// hxasim: reads a scenario, opens its sockets, says "ready", and serves until it is told to end.

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "agent/command_line.h"
#include "agent/output_file.h"
#include "agent/recorder/record_command.h"
#include "agent/scenario.h"
#include "agent/signals.h"
#include "agent/simulator.h"
#include "platform/sys/standard_streams.h"

namespace {

constexpr int kExitFailure = 1;

using FilePointer = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// A scenario of many systems needs more descriptors than the usual soft limit.
void raise_descriptor_limit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
    return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

bool write_all(int descriptor, const std::string& text) {
  return ::write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// Empty, or what could not be written.
std::string announce(const agent::Arguments& arguments, std::size_t systems) {
  const std::string text =
      "hxasim: ready, " + std::to_string(systems) + (systems == 1 ? " system\n" : " systems\n");
  if (arguments.ready_descriptor >= 0) {
    if (!write_all(arguments.ready_descriptor, text))
      return "--ready-fd";
    if (arguments.ready_descriptor > STDERR_FILENO)
      ::close(arguments.ready_descriptor);
  }
  if (!arguments.ready_file.empty() && !agent::write_whole(arguments.ready_file, text))
    return arguments.ready_file;
  if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0)
    return "standard output";
  return {};
}

int fail(const std::string& what) {
  std::fprintf(stderr, "hxasim: %s: %s\n", what.c_str(), std::strerror(errno));
  return kExitFailure;
}

void print_errors(const std::string& path, const std::vector<agent::ScenarioError>& errors) {
  for (const agent::ScenarioError& error : errors)
    std::fprintf(stderr, "%s\n", agent::error_text(path, error).c_str());
}

// One run over a scenario, from its reading to its end.
class Run {
 public:
  Run(const agent::Arguments& arguments, std::string scenario)
      : arguments_(arguments), path_(std::move(scenario)) {}

  int go() {
    agent::ParsedScenario parsed = agent::load_scenario(path_, started_, arguments_.anywhere);
    print_errors(path_, parsed.errors);
    if (!parsed.errors.empty())
      return kExitFailure;
    if (arguments_.check)
      return 0;
    FilePointer file(nullptr, std::fclose);
    if (!arguments_.log_file.empty()) {
      file.reset(std::fopen(arguments_.log_file.c_str(), "ae"));
      if (file == nullptr)
        return fail(arguments_.log_file);
    }
    const agent::Log log(arguments_.verbose ? stdout : nullptr, file.get(),
                         [this] { end_unwritten(); });
    return serve(log, std::move(parsed.scenario));
  }

 private:
  int serve(const agent::Log& log, agent::Scenario scenario) {
    raise_descriptor_limit();
    agent::Simulator simulator(loop_, log, std::move(scenario));
    const agent::Signals signals(loop_, {{SIGTERM, [this] { loop_.stop(); }},
                                         {SIGINT, [this] { loop_.stop(); }},
                                         {SIGHUP, [&] { reload(simulator); }},
                                         {SIGUSR1, [&] { print_counters(simulator, log); }}});
    const std::vector<std::string> failures = simulator.open();
    print_failures(failures);
    if (!failures.empty())
      return kExitFailure;
    std::unique_ptr<agent::FileWatch> watch;
    if (arguments_.watch) {
      watch = std::make_unique<agent::FileWatch>(loop_, path_, [&] { reload(simulator); });
      if (!watch->open())
        return fail(path_);
    }
    if (const std::string unwritten = announce(arguments_, simulator.systems().size());
        !unwritten.empty())
      return fail(unwritten);
    if (arguments_.verbose)
      end_with_reader();
    loop_.run();
    simulator.write_counters(log);
    if (!log.failed() && failed_write_ == 0)
      return 0;
    errno = failed_write_;
    return fail("the log cannot be written");
  }

  // A pipe tells when nobody reads it any more; other outputs tell when they are written.
  void end_with_reader() {
    loop_.watch(STDOUT_FILENO, 0, [this](std::uint32_t) {
      failed_write_ = EPIPE;
      loop_.stop();
    });
  }

  // A broken file leaves all as it was.
  void reload(agent::Simulator& simulator) const {
    agent::ParsedScenario parsed = agent::load_scenario(path_, started_, arguments_.anywhere);
    if (!parsed.errors.empty()) {
      print_errors(path_, parsed.errors);
      std::fprintf(stderr, "hxasim: %s is broken; all goes on as it was\n", path_.c_str());
      return;
    }
    print_failures(simulator.apply(std::move(parsed.scenario)));
  }

  static void print_failures(const std::vector<std::string>& failures) {
    for (const std::string& failure : failures)
      std::fprintf(stderr, "hxasim: %s\n", failure.c_str());
  }

  void print_counters(const agent::Simulator& simulator, const agent::Log& log) {
    simulator.write_counters(
        log.enabled() ? log : agent::Log(stdout, nullptr, [this] { end_unwritten(); }));
  }

  void end_unwritten() {
    failed_write_ = errno;
    loop_.stop();
  }

  const agent::Arguments& arguments_;
  const std::string path_;
  const std::uint32_t started_ = static_cast<std::uint32_t>(std::time(nullptr));
  rpc::server::EventLoop loop_;
  int failed_write_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (!sys::KeepStandardStreams())
    return kExitFailure;
  agent::Arguments arguments;
  const sys::Command program = agent::command_line(arguments);
  const sys::CommandLine line = sys::read_command_line(program, argc, argv);
  if (const auto status = sys::answer_command_line(program, line, ZT_VERSION))
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? *status : fail("standard output");
  if (line.command != &program)
    return agent::recorder::record(arguments.record, line.operands);
  return Run(arguments, line.operands.front()).go();
}
