// SPDX-License-Identifier: Apache-2.0
// ztsys check: asks many systems at once whether they can be reached, and says why not.

#include "tools/ztsys/check.h"

#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <utility>

#include "platform/rpc/rpc.h"
#include "platform/sys/sockets.h"
#include "platform/sys/standard_streams.h"
#include "source/domain/ZTenvInit.h"
#include "source/support/ZTformat.h"
#include "source/support/ZTglobal.h"
#include "source/support/ZTprintable.h"

namespace ztsys {

namespace {

constexpr int kEndedBySignal = 128;
constexpr std::chrono::milliseconds kProgressStep{200};

// Where the results go: standard output, a file that readers see only when it is whole, or a pipe
// or device that has a name.
class Output {
 public:
  explicit Output(const std::optional<std::string>& path) {
    if (!path) {
      file_ = stdout;
      return;
    }
    struct stat now {};
    const bool exists = stat(path->c_str(), &now) == 0;
    if (exists && !S_ISREG(now.st_mode)) {
      file_ = std::fopen(path->c_str(), "w");
      return;
    }
    // What a symbolic link points to is replaced, and not the link.
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path->c_str(), nullptr), std::free);
    path_ = real != nullptr ? real.get() : *path;
    beside_ = path_ + ".XXXXXX";
    const int descriptor = mkstemp(beside_.data());
    if (descriptor < 0)
      return;
    constexpr mode_t kAsOpened = 0666;
    const mode_t mask = umask(0);
    umask(mask);
    static_cast<void>(!fchmod(descriptor, kAsOpened & ~mask));
    file_ = fdopen(descriptor, "w");
  }
  ~Output() { Discard(); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  std::FILE* file() const { return file_; }
  bool replaces() const { return !beside_.empty(); }

  // Leaves the file as it was before.
  void Discard() {
    if (file_ != nullptr && file_ != stdout)
      std::fclose(file_);
    file_ = nullptr;
    if (replaces())
      unlink(beside_.c_str());
  }

  // Gives the file its name. False with errno. Standard output is judged where the program ends.
  bool Finish() {
    if (file_ == stdout)
      return true;
    if (std::fflush(file_) != 0 || std::ferror(file_) != 0)
      return false;
    if (!replaces())
      return true;
    if (fsync(fileno(file_)) != 0 || std::rename(beside_.c_str(), path_.c_str()) != 0)
      return false;
    beside_.clear();
    return true;
  }

 private:
  std::string path_;
  std::string beside_;  // empty: nothing is renamed
  std::FILE* file_ = nullptr;
};

// A descriptor of the kernel's that the loop watches.
class Event {
 public:
  Event(sys::FiberLoop& loop, int descriptor, std::function<void()> ready)
      : descriptor_(descriptor), watch_(loop, descriptor, std::move(ready)) {}
  ~Event() { close(descriptor_); }
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

 private:
  int descriptor_;
  sys::FiberLoop::Watch watch_;
};

Status FailOutput() {
  return Fail("cannot write the output: " + std::string(std::strerror(errno)));
}

class Run {
 public:
  Run(const Arguments& arguments, unsigned jobs, CheckList& list, Output& output)
      : list_(list),
        output_(output),
        writer_(MakeCheckWriter(arguments, output.file())),
        loop_(jobs) {
    totals_.systems = list.systems().size();
  }

  const CheckTotals& Go(const RoadSettings& settings) {
    writer_->Begin();
    const auto signals = WatchSignals();
    const auto ticks = WatchTicks();
    zt_Sweep(
        loop_, list_.systems(), settings,
        {.begun = [this](std::size_t index) { asked_.insert(index); },
         .found = [this](std::size_t index) { return Found(index); },
         .done = [this](std::size_t index, const SweepResult& result) { Done(index, result); }});
    ClearProgress();
    TakeTime();
    writer_->End(totals_);
    return totals_;
  }

 private:
  bool Found(std::size_t index) {
    if (list_.Claim(&list_.systems()[index]))
      return true;
    asked_.erase(index);
    --totals_.systems;
    writer_->LeftOut(index);
    return false;
  }

  void Done(std::size_t index, const SweepResult& result) {
    asked_.erase(index);
    ++totals_.done;
    ++totals_.by_state[static_cast<std::size_t>(result.report.state())];
    ClearProgress();
    writer_->System(index, result);
    if (std::ferror(output_.file()) == 0)
      return;
    // Nobody reads on, and the systems that are left may be thousands.
    const Status status = FailOutput();
    output_.Discard();
    Leave(status);
  }

  void TakeTime() {
    totals_.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

  // Signals that end the program do so at once, with what is done by then; a file that would be
  // replaced stays as it was.
  std::unique_ptr<Event> WatchSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
      struct sigaction now {};
      if (sigaction(number, nullptr, &now) == 0 && now.sa_handler != SIG_IGN)
        sigaddset(&set, number);
    }
    const int descriptor = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor < 0)
      return nullptr;
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return std::make_unique<Event>(loop_, descriptor, [this, descriptor] {
      signalfd_siginfo signal{};
      if (read(descriptor, &signal, sizeof signal) == sizeof signal)
        Stop(static_cast<int>(signal.ssi_signo));
    });
  }

  [[noreturn]] void Stop(int signal) {
    ClearProgress();
    TakeTime();
    if (output_.replaces()) {
      Tell("stopped after " + std::to_string(totals_.done) + " of " +
           std::to_string(totals_.systems) + " systems; the output file stays as it was");
      output_.Discard();
    } else {
      writer_->Stopped(totals_);
      std::fflush(output_.file());
    }
    Leave(kEndedBySignal + signal);
  }

  // Without unwinding the jobs, which may be in the middle of anything.
  [[noreturn]] static void Leave(int status) {
    std::fflush(stdout);
    RpcMgmtAcknowledge();
    std::_Exit(status);
  }

  std::unique_ptr<Event> WatchTicks() {
    if (isatty(STDERR_FILENO) == 0)
      return nullptr;
    const int descriptor = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    if (descriptor < 0)
      return nullptr;
    itimerspec every{};
    every.it_interval.tv_nsec = every.it_value.tv_nsec =
        std::chrono::nanoseconds(kProgressStep).count();
    timerfd_settime(descriptor, 0, &every, nullptr);
    return std::make_unique<Event>(loop_, descriptor, [this, descriptor] {
      std::uint64_t times = 0;
      static_cast<void>(!read(descriptor, &times, sizeof times));
      ShowProgress();
    });
  }

  void ShowProgress() {
    std::string line = format_text("%zu of %zu, %zu did not succeed", totals_.done, totals_.systems,
                                   totals_.failed());
    if (!asked_.empty())  // begun in the order of the list
      line += "; waiting for " + printable(list_.systems()[*asked_.begin()].name);
    // A longer line would go on in the next one, which is not cleared.
    winsize window{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 0 &&
        line.size() >= window.ws_col) {
      std::size_t end = window.ws_col - 1U;
      while (end > 0 && (line[end] & 0xC0) == 0x80)  // the middle of a character
        --end;
      line.resize(end);
    }
    std::fprintf(stderr, "\r\033[K%s", line.c_str());
    std::fflush(stderr);
    progress_shown_ = true;
  }

  void ClearProgress() {
    if (!std::exchange(progress_shown_, false))
      return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
  }

  CheckList& list_;
  Output& output_;
  std::unique_ptr<CheckWriter> writer_;
  sys::FiberLoop loop_;
  CheckTotals totals_;
  std::set<std::size_t> asked_;  // and not done
  bool progress_shown_ = false;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

std::string WrongOptions(const Arguments& arguments) {
  if (arguments.json + arguments.html + arguments.prometheus + arguments.plugin > 1)
    return "only one of --json, --html, --prometheus and --plugin can be given";
  if (arguments.failed && (arguments.html || arguments.prometheus || arguments.plugin))
    return "--failed does not go with --html, --prometheus or --plugin";
  if (arguments.html && !arguments.output)
    return "--html needs --output FILE";
  return "";
}

}  // namespace

Status RunCheck(const Arguments& arguments) {
  sys::BeforeSlowOutput(RpcMgmtAcknowledge);
  if (arguments.plugin)
    FailAsPlugin();
  if (const std::string wrong = WrongOptions(arguments); !wrong.empty())
    return FailUsage(wrong);
  CheckList list;
  if (const Status status = list.Read(arguments); status != kDone)
    return status;
  const auto wanted = static_cast<unsigned>(arguments.jobs);
  const unsigned jobs = zt_SweepJobs(wanted);
  if (jobs == 0)
    return Fail("this process may open too few files to ask a system (ulimit -n)");
  if (jobs < wanted)
    Tell(format_text("%u system%s asked at once and not %u", jobs, jobs == 1 ? " is" : "s are",
                     wanted) +
         ": this process may open no more files (ulimit -n)");
  Output output(arguments.output);
  if (output.file() == nullptr)
    return FailUsage("cannot open '" + *arguments.output + "': " + std::strerror(errno));

  std::string ignored_parameter;
  int ignored_number = 0;
  Init_ZT_RPC_TIMEOUT(ignored_parameter, ignored_number);
  const SweepSettings settings(
      arguments.timeout >= 0 ? static_cast<std::uint32_t>(arguments.timeout) : zt_com_timeout);
  const CheckTotals totals = Run(arguments, jobs, list, output).Go(settings.road());
  if (sockets::name_server_silent())
    Tell("the name server does not answer; names were looked up in the hosts file only");
  if (!output.Finish())
    return FailOutput();
  if (arguments.plugin)
    return static_cast<Status>(PluginStatus(arguments, totals));
  return totals.failed() == 0 ? list.tail() : kFailed;
}

}  // namespace ztsys
