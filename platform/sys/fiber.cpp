// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/fiber.h"

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <deque>
#include <exception>
#include <set>
#include <thread>

#include "platform/sys/fiber_helpers.h"
#include "platform/sys/fiber_stack.h"

namespace sys {
namespace {

using Clock = std::chrono::steady_clock;

thread_local Fiber* running = nullptr;

// The time left as poll takes it, rounded up so that no wait ends just before its deadline.
int milliseconds_left(const WaitDeadline& deadline) {
  if (!deadline)
    return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, INT_MAX));
}

int poll_one(int descriptor, short events, const WaitDeadline& deadline) {
  for (;;) {
    pollfd entry{descriptor, events, 0};
    // poll passes over negative descriptors.
    const int ready = descriptor < 0 ? 1 : ::poll(&entry, 1, milliseconds_left(deadline));
    if (ready == 0)
      return 0;
    if (ready > 0 && entry.revents != 0 && (entry.revents & POLLNVAL) == 0)
      return entry.revents;
    if (ready > 0)
      errno = EBADF;
    if (ready > 0 || errno != EINTR)
      return -1;
  }
}

}  // namespace

// What an event of the loop's epoll set is for: a watch, or the fiber that waits.
struct EventTarget {
  std::function<void()> ready;
  Fiber* waiting = nullptr;
  int events = 0;
};

class Fiber {
 public:
  explicit Fiber(FiberLoop::Core& loop) : core(loop), stack([this] { run_jobs(); }) {}

  FiberLoop::Core& core;
  LocalValues values;
  std::size_t job = 0;
  bool ended = false;  // the job; the fiber is free for another
  bool stopping = false;
  bool parked = false;
  bool timed_out = false;
  WaitDeadline deadline;  // while parked
  FiberStack stack;

 private:
  void run_jobs();
};

class FiberLoop::Core {
 public:
  Core(FiberLoop& door, unsigned most)
      : door_(door), most_(std::max(most, 1U)), epoll_(epoll_create1(EPOLL_CLOEXEC)) {}
  ~Core() {
    helped_.reset();
    helpers_.reset();
    values.clear();
    if (epoll_ >= 0)
      close(epoll_);
  }
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  void run(std::size_t count, const std::function<void(std::size_t)>& job);
  void run_one(std::size_t job) noexcept;

  bool park(Fiber& fiber, const WaitDeadline& deadline);
  void wake(Fiber& fiber, bool timed_out);
  int wait_ready(Fiber& fiber, int descriptor, short events, const WaitDeadline& deadline);
  bool add(int descriptor, std::uint32_t events, EventTarget& target);
  void remove(int descriptor) { epoll_ctl(epoll_, EPOLL_CTL_DEL, descriptor, nullptr); }

  FiberLoop& door() { return door_; }
  FiberHelpers& helpers();

  LocalValues values;

 private:
  void begin_jobs(std::size_t count);
  Fiber* idle_fiber();
  void enter(Fiber& fiber);
  void run_ready();
  void wait_for_events();
  void end_waits_that_are_due();

  FiberLoop& door_;
  const unsigned most_;
  const int epoll_;
  std::unique_ptr<FiberHelpers> helpers_;
  std::unique_ptr<Watch> helped_;

  const std::function<void(std::size_t)>* job_ = nullptr;
  std::exception_ptr failure_;
  std::size_t next_job_ = 0;
  std::size_t busy_ = 0;
  std::vector<std::unique_ptr<Fiber>> fibers_;
  std::vector<Fiber*> idle_;
  std::deque<Fiber*> ready_;
  std::set<std::pair<Clock::time_point, Fiber*>> deadlines_;  // of parked fibers that have one
};

// --- A fiber's life

void Fiber::run_jobs() {
  while (!stopping) {
    core.run_one(job);
    values.clear();
    ended = true;
    stack.leave();
  }
  stack.leave(true);
}

void FiberLoop::Core::run_one(std::size_t job) noexcept {
  try {
    (*job_)(job);
  } catch (...) {
    if (failure_ == nullptr)
      failure_ = std::current_exception();
  }
}

void FiberLoop::Core::enter(Fiber& fiber) {
  running = &fiber;
  fiber.stack.enter();
  running = nullptr;
  if (fiber.ended && !fiber.stopping) {
    idle_.push_back(&fiber);
    --busy_;
  }
}

Fiber* FiberLoop::Core::idle_fiber() {
  if (!idle_.empty()) {
    Fiber* fiber = idle_.back();
    idle_.pop_back();
    return fiber;
  }
  if (fibers_.size() >= most_ || epoll_ < 0)
    return nullptr;
  auto made = std::make_unique<Fiber>(*this);
  if (!made->stack.valid())
    return nullptr;
  fibers_.push_back(std::move(made));
  return fibers_.back().get();
}

void FiberLoop::Core::begin_jobs(std::size_t count) {
  while (next_job_ < count) {
    Fiber* fiber = idle_fiber();
    if (fiber == nullptr) {
      if (fibers_.empty())
        run_one(next_job_++);  // no fibers to be had
      else
        return;
      continue;
    }
    fiber->job = next_job_++;
    fiber->ended = false;
    ++busy_;
    enter(*fiber);
  }
}

void FiberLoop::Core::run(std::size_t count, const std::function<void(std::size_t)>& job) {
  job_ = &job;
  next_job_ = 0;
  begin_jobs(count);
  while (busy_ > 0) {
    wait_for_events();
    end_waits_that_are_due();
    run_ready();
    begin_jobs(count);
  }
  for (const auto& fiber : fibers_) {
    fiber->stopping = true;
    enter(*fiber);
  }
  fibers_.clear();
  idle_.clear();
  if (failure_ != nullptr)
    std::rethrow_exception(std::exchange(failure_, nullptr));
}

// --- Waiting

bool FiberLoop::Core::park(Fiber& fiber, const WaitDeadline& deadline) {
  fiber.parked = true;
  fiber.deadline = deadline;
  if (deadline)
    deadlines_.emplace(*deadline, &fiber);
  fiber.stack.leave();
  return !fiber.timed_out;
}

void FiberLoop::Core::wake(Fiber& fiber, bool timed_out) {
  if (!fiber.parked)
    return;
  if (fiber.deadline)
    deadlines_.erase({*fiber.deadline, &fiber});
  fiber.parked = false;
  fiber.timed_out = timed_out;
  ready_.push_back(&fiber);
}

bool FiberLoop::Core::add(int descriptor, std::uint32_t events, EventTarget& target) {
  epoll_event event{};
  event.events = events;
  event.data.ptr = &target;
  return epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

int FiberLoop::Core::wait_ready(Fiber& fiber, int descriptor, short events,
                                const WaitDeadline& deadline) {
  static_assert(POLLIN == EPOLLIN && POLLOUT == EPOLLOUT && POLLERR == EPOLLERR);
  EventTarget target;
  target.waiting = &fiber;
  if (!add(descriptor, static_cast<std::uint32_t>(events), target))
    return errno == EPERM ? events : -1;  // a plain file is always ready
  park(fiber, deadline);
  remove(descriptor);
  return target.events;
}

void FiberLoop::Core::wait_for_events() {
  WaitDeadline deadline;
  if (!ready_.empty())
    deadline = Clock::now();
  else if (!deadlines_.empty())
    deadline = deadlines_.begin()->first;
  std::array<epoll_event, 64> events;
  const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()),
                               milliseconds_left(deadline));
  for (int i = 0; i < count; ++i) {
    const epoll_event& event = events[static_cast<std::size_t>(i)];
    auto& target = *static_cast<EventTarget*>(event.data.ptr);
    if (target.waiting == nullptr) {
      target.ready();
      continue;
    }
    target.events = static_cast<int>(event.events);
    wake(*target.waiting, false);
  }
}

void FiberLoop::Core::end_waits_that_are_due() {
  const auto now = Clock::now();
  while (!deadlines_.empty() && deadlines_.begin()->first <= now)
    wake(*deadlines_.begin()->second, true);
}

void FiberLoop::Core::run_ready() {
  // Those that become ready meanwhile wait for the next turn, behind the network's news.
  for (std::size_t turn = ready_.size(); turn > 0; --turn) {
    Fiber* fiber = ready_.front();
    ready_.pop_front();
    enter(*fiber);
  }
}

FiberHelpers& FiberLoop::Core::helpers() {
  if (helpers_ == nullptr) {
    helpers_ = std::make_unique<FiberHelpers>();
    helped_ = std::make_unique<Watch>(door_, helpers_->descriptor(), [this] {
      for (Fiber* each : helpers_->take_finished())
        wake(*each, false);
    });
  }
  return *helpers_;
}

// --- The door

FiberLoop::FiberLoop(unsigned most) : core_(std::make_unique<Core>(*this, most)) {}
FiberLoop::~FiberLoop() = default;

void FiberLoop::run(std::size_t count, const std::function<void(std::size_t)>& job) {
  if (running == nullptr) {
    core_->run(count, job);
    return;
  }
  for (std::size_t i = 0; i < count; ++i)
    job(i);
}

FiberLoop* FiberLoop::current() {
  return running == nullptr ? nullptr : &running->core.door();
}

FiberLoop::Watch::Watch(FiberLoop& loop, int descriptor, std::function<void()> ready)
    : core_(*loop.core_), descriptor_(descriptor), target_(std::make_unique<EventTarget>()) {
  target_->ready = std::move(ready);
  valid_ = core_.add(descriptor_, EPOLLIN, *target_);
}

FiberLoop::Watch::~Watch() {
  if (valid_)
    core_.remove(descriptor_);
}

Fiber* current_fiber() {
  return running;
}

bool park(const WaitDeadline& deadline) {
  return running->core.park(*running, deadline);
}

void wake(Fiber& fiber) {
  fiber.core.wake(fiber, false);
}

int wait_ready(int descriptor, short events, const WaitDeadline& deadline) {
  if (running == nullptr)
    return poll_one(descriptor, events, deadline);
  return running->core.wait_ready(*running, descriptor, events, deadline);
}

void sleep_until(std::chrono::steady_clock::time_point when) {
  if (running != nullptr)
    park(when);
  else
    std::this_thread::sleep_until(when);
}

void run_beside(const std::function<void()>& work) {
  if (running == nullptr || !running->core.helpers().begin(work, *running))
    work();
  else
    park(std::nullopt);
}

// --- Values

void LocalValues::clear() {
  while (!values_.empty()) {
    const auto last = std::move(values_.back());  // may use the ones made before it
    values_.pop_back();
  }
}

LocalValues& LocalValues::of_job() {
  thread_local LocalValues of_thread;
  return running == nullptr ? of_thread : running->values;
}

LocalValues& LocalValues::of_loop() {
  return running == nullptr ? of_job() : running->core.values;
}

}  // namespace sys
