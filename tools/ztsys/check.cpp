// SPDX-License-Identifier: Apache-2.0
// ztsys check: asks many systems at once whether they can be reached, and says why not.

#include "tools/ztsys/check.h"

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
#include <set>
#include <utility>

#include "shared/dce/hublnk_client.h"
#include "shared/dce/ncs2dce.h"
#include "source/domain/ZTenvInit.h"
#include "source/support/ZTglobal.h"
#include "source/support/ZTprintable.h"

namespace ztsys {

namespace {

constexpr int kPluginUnknown = 3;
constexpr int kInterrupted = 130;
constexpr std::chrono::milliseconds kProgressStep{200};

// Where the results go: standard output, or a file that readers see only when it is whole.
class Output {
 public:
  explicit Output(const std::optional<std::string>& path) : path_(path.value_or("")) {
    if (path_.empty()) {
      file_ = stdout;
      return;
    }
    beside_ = path_ + ".XXXXXX";
    const int descriptor = mkstemp(beside_.data());
    if (descriptor < 0)
      return;
    constexpr mode_t kReadable = 0644;
    static_cast<void>(!fchmod(descriptor, kReadable));
    file_ = fdopen(descriptor, "w");
  }
  ~Output() {
    if (path_.empty() || file_ == nullptr)
      return;
    std::fclose(file_);
    unlink(beside_.c_str());
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  std::FILE* file() const { return file_; }

  // Gives the file its name. False with errno.
  bool Finish() {
    if (path_.empty())
      return std::fflush(file_) == 0;
    const bool written = std::ferror(file_) == 0 && std::fflush(file_) == 0 &&
                         fsync(fileno(file_)) == 0 &&
                         std::rename(beside_.c_str(), path_.c_str()) == 0;
    const int error = errno;
    if (written) {
      std::fclose(file_);
      file_ = nullptr;
    }
    errno = error;
    return written;
  }

 private:
  std::string path_;
  std::string beside_;
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

class Run {
 public:
  Run(const Arguments& arguments, std::vector<SweepSystem> systems, Output& output)
      : systems_(std::move(systems)),
        output_(output),
        writer_(MakeCheckWriter(arguments, output.file())),
        loop_(static_cast<unsigned>(arguments.jobs)) {
    totals_.systems = systems_.size();
  }

  const CheckTotals& Go(const RoadSettings& settings) {
    writer_->Begin();
    const auto interrupt = WatchInterrupt();
    const auto ticks = WatchTicks();
    zt_Sweep(
        loop_, systems_, settings,
        [this](std::size_t index, const SweepResult& result) { Done(index, result); },
        [this](std::size_t index) { asked_.insert(index); });
    ClearProgress();
    End();
    return totals_;
  }

 private:
  void Done(std::size_t index, const SweepResult& result) {
    asked_.erase(index);
    ++totals_.done;
    ++totals_.by_state[static_cast<std::size_t>(result.report.state())];
    ClearProgress();
    writer_->System(index, result);
  }

  void End() {
    totals_.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    writer_->End(totals_);
  }

  // Ends the program at once, with what is done by then.
  std::unique_ptr<Event> WatchInterrupt() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    const int descriptor = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor < 0)
      return nullptr;
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return std::make_unique<Event>(loop_, descriptor, [this] {
      ClearProgress();
      End();
      output_.Finish();
      std::_Exit(kInterrupted);
    });
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
    std::fprintf(stderr, "\r\033[K%zu of %zu, %zu did not succeed", totals_.done, totals_.systems,
                 totals_.failed());
    if (!asked_.empty())  // begun in the order of the list
      std::fprintf(stderr, "; waiting for %s", printable(systems_[*asked_.begin()].name).c_str());
    std::fflush(stderr);
    progress_shown_ = true;
  }

  void ClearProgress() {
    if (!std::exchange(progress_shown_, false))
      return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
  }

  std::vector<SweepSystem> systems_;
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

// `verdict`: the status is about the systems, and not about what kept us from checking them.
Status Check(const Arguments& arguments, bool* verdict) {
  if (const std::string wrong = WrongOptions(arguments); !wrong.empty())
    return FailUsage(wrong);
  std::vector<SweepSystem> systems;
  if (const Status status = SystemsToCheck(arguments, &systems); status != kDone)
    return status;
  Output output(arguments.output);
  if (output.file() == nullptr)
    return FailUsage("cannot open '" + *arguments.output + "': " + std::strerror(errno));

  std::string ignored_parameter;
  int ignored_number = 0;
  Init_ZT_RPC_TIMEOUT(ignored_parameter, ignored_number);
  RoadSettings settings;
  settings.timeout_level =
      arguments.timeout >= 0 ? static_cast<std::uint32_t>(arguments.timeout) : zt_com_timeout;
  // Looked at once for all systems.
  settings.broker_port = sockets::ntohs(hublnk_Port());
  std::array<std::int32_t, kMostIgnored> list{};
  const std::size_t count = ept_CheckIgnoreIPs(list);
  const std::vector<std::int32_t> ignored(list.begin(), list.begin() + static_cast<long>(count));
  settings.ignored = &ignored;

  const CheckTotals totals = Run(arguments, std::move(systems), output).Go(settings);
  if (!output.Finish())
    return Fail("cannot write the output: " + std::string(std::strerror(errno)));
  *verdict = true;
  if (arguments.plugin)
    return static_cast<Status>(PluginStatus(arguments, totals));
  return totals.failed() == 0 ? kDone : kFailed;
}

}  // namespace

Status RunCheck(const Arguments& arguments) {
  bool verdict = false;
  const Status status = Check(arguments, &verdict);
  return arguments.plugin && !verdict ? static_cast<Status>(kPluginUnknown) : status;
}

}  // namespace ztsys
