// SPDX-License-Identifier: Apache-2.0
// hxasim: reads a scenario, opens its sockets, says "ready", and serves until it is told to end.

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "agent/command_line.h"
#include "agent/scenario.h"
#include "agent/simulator.h"
#include "platform/sys/standard_streams.h"

namespace {

constexpr int kExitFailure = 1;

rpc::server::EventLoop* running_loop = nullptr;

void stop_running_loop(int) {
  running_loop->stop();
}

void end_on_signals(rpc::server::EventLoop& loop) {
  running_loop = &loop;
  struct sigaction action {};
  action.sa_handler = stop_running_loop;
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

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

// The file appears with its line in it, never empty.
bool write_ready_file(const std::string& path, const std::string& line) {
  const std::string fresh = path + ".new";
  const int descriptor = ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (descriptor < 0)
    return false;
  const bool written = write_all(descriptor, line);
  return ::close(descriptor) == 0 && written && std::rename(fresh.c_str(), path.c_str()) == 0;
}

bool announce(const agent::Arguments& arguments, std::size_t systems) {
  const std::string text =
      "hxasim: ready, " + std::to_string(systems) + (systems == 1 ? " system\n" : " systems\n");
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
  if (arguments.ready_descriptor >= 0) {
    if (!write_all(arguments.ready_descriptor, text)) {
      std::perror("hxasim: --ready-fd");
      return false;
    }
    if (arguments.ready_descriptor > STDERR_FILENO)
      ::close(arguments.ready_descriptor);
  }
  if (!arguments.ready_file.empty() && !write_ready_file(arguments.ready_file, text)) {
    std::perror(("hxasim: " + arguments.ready_file).c_str());
    return false;
  }
  return true;
}

int run(const agent::Arguments& arguments, const std::string& scenario) {
  const auto parsed =
      agent::load_scenario(scenario, static_cast<std::uint32_t>(std::time(nullptr)));
  for (const agent::ScenarioError& error : parsed.errors)
    std::fprintf(stderr, "%s\n", agent::error_text(scenario, error).c_str());
  if (!parsed.errors.empty())
    return kExitFailure;
  if (arguments.check)
    return 0;

  raise_descriptor_limit();
  rpc::server::EventLoop loop;
  end_on_signals(loop);
  const agent::Log log(arguments.verbose ? stdout : nullptr);
  agent::Simulator simulator(loop, log, parsed.scenario);
  const std::vector<std::string> failures = simulator.open();
  for (const std::string& failure : failures)
    std::fprintf(stderr, "hxasim: %s\n", failure.c_str());
  if (!failures.empty() || !announce(arguments, simulator.systems().size()))
    return kExitFailure;
  loop.run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (!sys::KeepStandardStreams())
    return kExitFailure;
  agent::Arguments arguments;
  const sys::Command program = agent::command_line(arguments);
  const sys::CommandLine line = sys::read_command_line(program, argc, argv);
  if (const auto status = sys::answer_command_line(program, line, ZT_VERSION))
    return *status;
  return run(arguments, line.operands.front());
}
