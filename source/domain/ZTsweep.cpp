// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTsweep.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "shared/dce/hublnk_client.h"
#include "shared/dce/ncs2dce.h"

namespace {

using Clock = std::chrono::steady_clock;

// As a target has them: the first address of the name, and the official name of the address.
void look_up(SweepSystem& system) {
  std::string name = system.name;  // the look-up cuts trailing blanks in place
  SystemKey key = kNoSystemKey;
  if (ARPANameToSystemKey(name.data(), key) != 0)
    key = kNoSystemKey;
  name.resize(std::char_traits<char>::length(name.c_str()));
  system.name = name;
  system.key = key;
  char official[kHostNameSize] = "";
  if (system.look_up == SweepSystem::LookUp::address_and_name && key != kNoSystemKey &&
      SystemKeyToARPAName(key, official, kHostNameSize) == 0)
    system.name = official;
}

// Jobs that end out of order leave in the order in which they came.
class InOrder {
 public:
  void come(std::size_t index) { inside_.emplace(index, nullptr); }
  void leave(std::size_t index) {
    while (inside_.begin()->first != index) {
      inside_[index] = sys::current_fiber();
      sys::park(std::nullopt);
    }
    inside_.erase(inside_.begin());
    if (!inside_.empty() && inside_.begin()->second != nullptr)
      sys::wake(*inside_.begin()->second);
  }

 private:
  std::map<std::size_t, sys::Fiber*> inside_;
};

// The addresses that are being asked, each by one job; others wait for its answer.
class Asked {
 public:
  std::shared_ptr<const RoadReport> ask(SystemKey key, const RoadSettings& settings) {
    for (auto known = asked_.find(key); known != asked_.end(); known = asked_.find(key)) {
      const std::shared_ptr<Answer> asking = known->second;
      asking->waiting.push_back(sys::current_fiber());
      sys::park(std::nullopt);
      if (asking->report)
        return {asking, &*asking->report};
    }
    const auto answer = std::make_shared<Answer>();
    const Entry entry(asked_, key, answer);
    KnownSilence silence;
    RoadSettings own = settings;
    if (own.silence == nullptr)
      own.silence = &silence;
    answer->report = ZTagentRoad(key, own).walk();
    return {answer, &*answer->report};
  }

 private:
  struct Answer {
    std::optional<RoadReport> report;  // none when the walk has thrown
    std::vector<sys::Fiber*> waiting;
  };
  using Answers = std::map<SystemKey, std::shared_ptr<Answer>>;

  // Stands among the answers while its job walks, and wakes who waits at the end.
  class Entry {
   public:
    Entry(Answers& answers, SystemKey key, const std::shared_ptr<Answer>& answer)
        : answers_(answers), place_(answers.emplace(key, answer).first) {}
    ~Entry() {
      const std::shared_ptr<Answer> answer = place_->second;
      answers_.erase(place_);
      for (sys::Fiber* each : answer->waiting)
        sys::wake(*each);
    }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

   private:
    Answers& answers_;
    Answers::iterator place_;
  };

  Answers asked_;
};

}  // namespace

void zt_Sweep(sys::FiberLoop& loop, std::span<SweepSystem> systems, const RoadSettings& settings,
              const SweepEvents& events) {
  InOrder look_ups;
  Asked asked;
  loop.run(systems.size(), [&](std::size_t index) {
    SweepSystem& system = systems[index];
    if (events.begun)
      events.begun(index);
    const auto start = Clock::now();
    if (system.look_up != SweepSystem::LookUp::none) {
      if (events.found)
        look_ups.come(index);
      look_up(system);
      if (events.found) {
        look_ups.leave(index);
        if (!events.found(index))
          return;
      }
    }
    std::shared_ptr<const RoadReport> report;
    if (system.key == kNoSystemKey || system.key == 0) {
      RoadReport unknown;
      unknown.failure = road_name_failure(system.name);
      report = std::make_shared<const RoadReport>(std::move(unknown));
    } else {
      report = asked.ask(system.key, settings);
    }
    events.done(index, {system, *report, Clock::now() - start});
  });
}

SweepSettings::SweepSettings(std::uint32_t timeout_level, KnownSilence* silence)
    : ignored_(kMostIgnored) {
  ignored_.resize(ept_CheckIgnoreIPs(std::span<std::int32_t, kMostIgnored>(ignored_)));
  road_.timeout_level = timeout_level;
  road_.broker_port = sockets::ntohs(hublnk_Port());
  road_.ignored = &ignored_;
  road_.silence = silence;
}

unsigned zt_SweepJobs(unsigned wanted) {
  // Sockets that all jobs share, the helpers' files and sockets, the loop's own.
  constexpr rlim_t kBeside = 80;
  // The same for one system alone.
  constexpr rlim_t kForOne = 8;
  rlimit limit{};
  const int lowest_free = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  if (lowest_free < 0 || getrlimit(RLIMIT_NOFILE, &limit) != 0)
    return 0;
  close(lowest_free);
  const rlim_t beside = static_cast<rlim_t>(lowest_free) + kBeside;
  if (limit.rlim_cur < beside + wanted) {
    rlimit raised = limit;
    raised.rlim_cur = std::min(limit.rlim_max, beside + wanted);
    if (setrlimit(RLIMIT_NOFILE, &raised) == 0)
      limit = raised;
  }
  if (limit.rlim_cur < static_cast<rlim_t>(lowest_free) + kForOne)
    return 0;
  const rlim_t room = limit.rlim_cur > beside ? limit.rlim_cur - beside : 1;
  return static_cast<unsigned>(std::min<rlim_t>(room, wanted));
}

std::string zt_SweepField(RoadState state) {
  constexpr std::size_t kWidth = 17;
  std::string field(road_state_words(state));
  field += ' ';
  field.resize(kWidth, '-');
  return field;
}
