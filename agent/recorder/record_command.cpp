// SPDX-License-Identifier: Apache-2.0
#include "agent/recorder/record_command.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <optional>
#include <set>
#include <utility>

#include "agent/output_file.h"
#include "agent/recorder/agent_walk.h"
#include "agent/recorder/anonymizer.h"
#include "agent/recorder/file_texts.h"
#include "agent/recorder/loopback.h"
#include "agent/recorder/scenario_writer.h"
#include "platform/rpc/names/network_address.h"
#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/rpc.h"
#include "platform/sys/fiber.h"
#include "platform/sys/printable.h"

namespace agent::recorder {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kExitFailure = 1;
constexpr int kMostHours = 24 * 366;
constexpr int kMostJobs = 256;
constexpr int kMostMinutes = 24 * 60;
constexpr int kMostLevel = 9;  // the last one with a limit

// The first SIGINT or SIGTERM ends the walks, which give back what they hold; the next one ends the
// program as ever.
class Interrupt {
 public:
  explicit Interrupt(sys::FiberLoop& loop) {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    descriptor_ = signalfd(-1, &signals_, SFD_CLOEXEC | SFD_NONBLOCK);
    watch_.emplace(loop, descriptor_, [this] { take(); });
  }
  ~Interrupt() {
    watch_.reset();
    ::close(descriptor_);
    pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
  }
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  bool came() const { return came_; }

 private:
  void take() {
    signalfd_siginfo signal;
    while (::read(descriptor_, &signal, sizeof signal) == sizeof signal)
      came_ = true;
    std::fputs("hxasim: ends after the calls that run; once more to end at once\n", stderr);
    pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
  }

  sigset_t signals_{};
  int descriptor_ = -1;
  bool came_ = false;
  std::optional<sys::FiberLoop::Watch> watch_;
};

struct Host {
  std::string name;
  std::uint32_t address = 0;
  std::vector<System> systems;
  std::vector<std::string> missing;
};

// Lines for standard error, of texts that come from servers. On a terminal what is being done
// stands in one line, which the next one takes away.
class Teller {
 public:
  void line(const std::string& name, const std::string& text) const {
    std::fprintf(stderr, "%shxasim: %s: %s\n", clear_, sys::printable(name).c_str(),
                 sys::printable(text).c_str());
  }
  void passing(const std::string& name, const std::string& text) const {
    if (*clear_ != '\0')
      std::fprintf(stderr, "%shxasim: %s: %s", clear_, sys::printable(name).c_str(),
                   sys::printable(text).c_str());
  }

 private:
  const char* const clear_ = ::isatty(STDERR_FILENO) != 0 ? "\r\x1b[K" : "";
};

std::string counted(std::size_t number, const char* what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

bool can_be_made(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  return ::access(folder.c_str(), W_OK | X_OK) == 0;
}

int cannot_write(const std::string& path) {
  std::fprintf(stderr, "hxasim: %s cannot be written: %s; give another file with -o\n",
               path.c_str(), std::strerror(errno));
  return kExitFailure;
}

class Recording {
 public:
  explicit Recording(const RecordArguments& arguments)
      : arguments_(arguments), loop_(static_cast<unsigned>(arguments.jobs)) {}

  int run(const std::vector<std::string>& names) {
    Interrupt interrupt(loop_);
    interrupt_ = &interrupt;
    hosts_.resize(names.size());
    loop_.run(names.size(), [&](std::size_t i) { walk(names[i], hosts_[i]); });
    interrupt_ = nullptr;
    std::vector<System> systems = gather();
    if (systems.empty()) {
      std::fputs("hxasim: nothing was recorded, and no file written\n", stderr);
      return 1;
    }
    LoopbackAddresses addresses;
    if (arguments_.anonymous)
      hide(systems, addresses);
    move_to_loopback(systems, addresses);
    mend_texts(systems);
    give_source_keys(systems);
    if (!write(systems))
      return 1;
    return lost_hosts_ == 0 ? 0 : 1;
  }

 private:
  void walk(const std::string& name, Host& host) {
    host.name = name;
    const rpc::ResolvedHost resolved = rpc::resolve_host(name);
    if (resolved.status != RPC_S_OK) {
      teller_.line(name, "not recorded: the name gives no address; give the dotted address");
      return;
    }
    if (!taken_.insert(resolved.host).second) {
      teller_.line(name, "not recorded: " + rpc::dotted(resolved.host) + " is recorded already");
      return;
    }
    host.address = resolved.host;
    const Clock::time_point end = Clock::now() + std::chrono::minutes(arguments_.minutes);
    Walk walk;
    walk.hours = static_cast<std::uint32_t>(arguments_.hours);
    walk.level = static_cast<unsigned>(arguments_.level);
    walk.room = &room_;
    walk.step = [&](const std::string& text) { teller_.line(name, text); };
    walk.detail = [&](const std::string& text) { teller_.passing(name, text); };
    walk.missing = [&](const std::string& text) {
      host.missing.push_back(text);
      teller_.line(name, "could not be had: " + text);
    };
    walk.ended = [&]() -> std::string {
      if (interrupt_->came())
        return "interrupted";
      return Clock::now() < end
                 ? ""
                 : "its " + std::to_string(arguments_.minutes) + " minutes are over (--minutes)";
    };
    host.systems = record_agent(name, resolved.host, walk);
  }

  // All systems, in the order of the command line.
  std::vector<System> gather() {
    std::vector<System> all;
    for (Host& host : hosts_) {
      lost_hosts_ += host.systems.empty() ? 1 : 0;
      for (const std::string& text : host.missing)
        missing_.push_back(host.name + ": " + text);
      std::move(host.systems.begin(), host.systems.end(), std::back_inserter(all));
    }
    return all;
  }

  void hide(std::vector<System>& systems, LoopbackAddresses& addresses) {
    for (const System& system : systems)
      addresses.of(system.address);
    const std::size_t dropped = anonymize(systems, addresses);
    if (dropped != 0)
      miss("left out: " + counted(dropped, "element") + " of endpoint maps that cannot be read");
  }

  void mend_texts(std::vector<System>& systems) {
    for (const ReplacedOctets& lost : make_utf8(systems))
      miss(lost.where + ": written as '?': " + counted(lost.count, "octet") + " that " +
           (lost.count == 1 ? "is" : "are") + " no UTF-8");
  }

  // What the file lacks of what the hosts told.
  void miss(const std::string& text) {
    missing_.push_back(text);
    teller_.line(arguments_.output, text);
  }

  bool write(const std::vector<System>& systems) const {
    std::size_t sources = 0;
    std::size_t rows = 0;
    for (const System& system : systems)
      for (const RepositoryServer& repository : system.repositories) {
        ++sources;
        for (const ClassData& data : repository.source->classes)
          rows += data.rows.size();
      }
    const std::string text = scenario_text(systems, comments(systems));
    if (!write_whole(arguments_.output, text)) {
      cannot_write(arguments_.output);
      return false;
    }
    teller_.line(arguments_.output, counted(systems.size(), "system") + ", " +
                                        counted(sources, "data source") + ", " +
                                        counted(rows, "row") + "; " +
                                        counted(missing_.size(), "thing") + " could not be had");
    return true;
  }

  std::vector<std::string> comments(const std::vector<System>& systems) const {
    std::vector<std::string> lines = {"A recording, made by hxasim record. For a hosts file:"};
    for (const System& system : systems)
      lines.push_back("  " + rpc::dotted(system.address) + " " + system.name);
    lines.push_back(counted(missing_.size(), "thing") + " could not be had" +
                    (missing_.empty() || arguments_.anonymous ? "." : ":"));
    if (!arguments_.anonymous)  // they have names in them
      for (const std::string& text : missing_)
        lines.push_back("  " + text);
    return lines;
  }

  const RecordArguments& arguments_;
  const Teller teller_;
  sys::FiberLoop loop_;
  const Interrupt* interrupt_ = nullptr;
  Room room_;
  std::set<std::uint32_t> taken_;
  std::vector<Host> hosts_;
  std::size_t lost_hosts_ = 0;
  std::vector<std::string> missing_;
};

}  // namespace

sys::Command record_command(RecordArguments& arguments) {
  return {.name = "record",
          .operands = "HOST ...",
          .summary = "write a scenario of what running agents are",
          .least_operands = 1,
          .most_operands = sys::kAnyNumber,
          .options = {
              {"--output", "-o", "FILE", "the scenario to write", &arguments.output},
              {"--hours", "", "N", "rows of each class's last N hours (1)",
               sys::Integer{&arguments.hours, 1, kMostHours}},
              {"--jobs", "", "N", "record so many hosts beside one another (8)",
               sys::Integer{&arguments.jobs, 1, kMostJobs}},
              {"--anonymous", "", "", "put made-up names in place of those of hosts and people",
               &arguments.anonymous},
              {"--level", "", "N", "time-out level of calls, 0 to 9 (3)",
               sys::Integer{&arguments.level, 0, kMostLevel}},
              {"--minutes", "", "N", "leave a host after so long (10)",
               sys::Integer{&arguments.minutes, 1, kMostMinutes}},
          }};
}

int record(const RecordArguments& arguments, const std::vector<std::string>& hosts) {
  if (arguments.output.empty()) {
    std::fputs("hxasim: record: the option -o FILE is missing\n", stderr);
    return sys::kExitUsage;
  }
  if (!can_be_made(arguments.output))
    return cannot_write(arguments.output);
  return Recording(arguments).run(hosts);
}

}  // namespace agent::recorder
