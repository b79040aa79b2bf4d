// SPDX-License-Identifier: Apache-2.0
#include "tests/endtoend/harness.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>

extern char** environ;

namespace endtoend {
namespace {

using Clock = std::chrono::steady_clock;

std::string slurp(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The programs stand beside this test program's folder, wherever the build is.
std::string program_path(const std::string& name) {
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / name).string();
}

std::vector<std::string> child_environment(const std::map<std::string, std::string>& extra) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    const std::string name(text.substr(0, text.find('=')));
    const bool ours = name.starts_with("ZT_") || name.starts_with("PTC_") ||
                      name.starts_with("LC_") || name == "LANG" || name == "TZ";
    if (!ours && !extra.contains(name))
      result.emplace_back(text);
  }
  for (const auto& [name, value] : extra)
    result.push_back(name + "=" + value);
  return result;
}

constexpr int kReadyDescriptor = 3;

// Starts a program with its outputs going to files, and a descriptor of ours as kReadyDescriptor if
// one is given; returns its process number.
pid_t start(const std::string& program, const std::vector<std::string>& arguments,
            const std::map<std::string, std::string>& environment, const std::string& out,
            const std::string& err, int ready = -1) {
  const std::string path = program_path(program);
  std::vector<char*> argv{const_cast<char*>(path.c_str())};
  for (const auto& argument : arguments)
    argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const auto variables = child_environment(environment);
  std::vector<char*> envp;
  for (const auto& variable : variables)
    envp.push_back(const_cast<char*>(variable.c_str()));
  envp.push_back(nullptr);

  // Not by posix_spawn: a child that begins in our memory has ours for its peak.
  const pid_t pid = ::fork();
  if (pid != 0)
    return pid;
  const int null = ::open("/dev/null", O_RDONLY);
  const int out_file = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const int err_file =
      err == out ? out_file : ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (ready >= 0)
    ::dup2(ready, kReadyDescriptor);
  ::dup2(null, STDIN_FILENO);
  ::dup2(out_file, STDOUT_FILENO);
  ::dup2(err_file, STDERR_FILENO);
  ::execve(path.c_str(), argv.data(), envp.data());
  ::_exit(127);
}

// Sleeps until the descriptor has something to tell; false when it has not in time.
bool wait_for(int descriptor, int limit_seconds) {
  pollfd waiting{descriptor, POLLIN, 0};
  return ::poll(&waiting, 1, limit_seconds * 1000) == 1;
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "ztcomm-XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr)
    throw std::runtime_error("no temporary folder");
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TemporaryFolder::write(const std::string& name, std::string_view text) const {
  std::filesystem::create_directories((path_ / name).parent_path());
  std::ofstream(path_ / name, std::ios::binary) << text;
  return (path_ / name).string();
}

std::string TemporaryFolder::read(const std::string& name) const {
  return slurp(path_ / name);
}

Result run(const std::string& program, const std::vector<std::string>& arguments,
           const std::map<std::string, std::string>& environment, int limit_seconds,
           const std::string& output_file) {
  const TemporaryFolder folder;
  const std::string out = (folder.path() / "out").string();
  const std::string err = (folder.path() / "err").string();
  const auto begin = Clock::now();
  const pid_t pid =
      start(program, arguments, environment, output_file.empty() ? out : output_file, err);

  const int ended = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  if (!wait_for(ended, limit_seconds))
    ::kill(pid, SIGKILL);
  ::close(ended);
  int state = 0;
  rusage usage{};
  ::wait4(pid, &state, 0, &usage);
  Result result;
  result.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  result.status = WIFEXITED(state) ? WEXITSTATUS(state) : 128 + WTERMSIG(state);
  result.out = slurp(out);
  result.err = slurp(err);
  for (const timeval& each : {usage.ru_utime, usage.ru_stime})
    result.processor_seconds +=
        static_cast<double>(each.tv_sec) + static_cast<double>(each.tv_usec) / 1e6;
  result.peak_kilobytes = usage.ru_maxrss;
  return result;
}

Agent::Agent(std::string_view scenario, std::vector<std::string> options) {
  const std::string file = folder_.write("scenario.toml", scenario);
  const std::string log = (folder_.path() / "log").string();
  int ready[2];
  if (::pipe2(ready, O_CLOEXEC) != 0)
    throw std::runtime_error("no pipe");
  options.insert(options.end(), {"--ready-fd", std::to_string(kReadyDescriptor), file});
  pid_ = start("hxasim", options, {}, log, log, ready[1]);
  ::close(ready[1]);
  char octet;
  const bool told = wait_for(ready[0], 20) && ::read(ready[0], &octet, 1) == 1;
  ::close(ready[0]);
  if (!told) {
    kill();
    throw std::runtime_error("hxasim did not become ready: " + slurp(log));
  }
}

Agent::~Agent() {
  if (pid_ > 0) {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
}

std::string Agent::log() const {
  return slurp(folder_.path() / "log");
}

std::vector<std::string> Agent::holders_of_contexts() const {
  const std::string log = this->log();
  std::map<std::string, std::string> held;  // by context
  const std::regex change(
      R"(\S+ \S+ (\S+) (view|filter|inquiry) (\S+) is (made|destroyed|run down))");
  for (std::sregex_iterator each(log.begin(), log.end(), change), end; each != end; ++each) {
    if ((*each)[4] == "made")
      held[(*each)[3]] = (*each)[1];
    else
      held.erase((*each)[3]);
  }
  std::vector<std::string> servers;
  for (const auto& [context, server] : held)
    servers.push_back(server);
  return servers;
}

void Agent::kill() {
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

std::string replace_all(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

}  // namespace endtoend
