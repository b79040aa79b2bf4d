// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/server/event_loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace rpc::server {

struct EventLoop::Watch {
  DescriptorHandler handler;
  bool active = true;
};

EventLoop::EventLoop()
    : epoll_(epoll_create1(EPOLL_CLOEXEC)), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = wake_;
  epoll_ctl(epoll_, EPOLL_CTL_ADD, wake_, &event);
}

EventLoop::~EventLoop() {
  close(wake_);
  close(epoll_);
}

bool EventLoop::watch(int descriptor, std::uint32_t events, DescriptorHandler handler) {
  epoll_event event{};
  event.events = events;
  event.data.fd = descriptor;
  if (epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) != 0)
    return false;
  watches_[descriptor] = std::make_shared<Watch>(Watch{std::move(handler)});
  return true;
}

bool EventLoop::change(int descriptor, std::uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.fd = descriptor;
  return epoll_ctl(epoll_, EPOLL_CTL_MOD, descriptor, &event) == 0;
}

void EventLoop::unwatch(int descriptor) {
  const auto found = watches_.find(descriptor);
  if (found == watches_.end())
    return;
  found->second->active = false;
  watches_.erase(found);
  epoll_ctl(epoll_, EPOLL_CTL_DEL, descriptor, nullptr);
}

EventLoop::TimerNumber EventLoop::at(Clock::time_point time, std::function<void()> handler) {
  const TimerNumber number = ++last_timer_;
  timers_.emplace(std::pair{time, number}, std::move(handler));
  timer_times_.emplace(number, time);
  return number;
}

EventLoop::TimerNumber EventLoop::after(Clock::duration delay, std::function<void()> handler) {
  return at(Clock::now() + delay, std::move(handler));
}

void EventLoop::cancel(TimerNumber timer) {
  const auto found = timer_times_.find(timer);
  if (found == timer_times_.end())
    return;
  timers_.erase({found->second, timer});
  timer_times_.erase(found);
}

void EventLoop::run() {
  while (!stopped_)
    turn(std::nullopt);
  stopped_ = false;
}

void EventLoop::run_once(Clock::duration longest) {
  turn(longest);
  stopped_ = false;
}

void EventLoop::stop() {
  const std::uint64_t one = 1;
  // A full counter wakes the loop as well, so the result does not matter.
  [[maybe_unused]] const ssize_t written = write(wake_, &one, sizeof one);
}

// Rounded up, so that a timer is due when its wait has ended.
int EventLoop::wait_milliseconds(std::optional<Clock::duration> longest) const {
  std::optional<Clock::duration> wait = longest;
  if (!timers_.empty()) {
    const Clock::duration timer = timers_.begin()->first.first - Clock::now();
    wait = wait ? std::min(*wait, timer) : timer;
  }
  if (!wait)
    return -1;
  const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(*wait).count();
  return static_cast<int>(
      std::clamp<decltype(milliseconds)>(milliseconds, 0, std::numeric_limits<int>::max()));
}

void EventLoop::turn(std::optional<Clock::duration> longest) {
  epoll_event ready[64];
  const int count = epoll_wait(epoll_, ready, 64, wait_milliseconds(longest));
  for (int i = 0; i < count; ++i) {
    if (ready[i].data.fd == wake_) {
      std::uint64_t ignored = 0;
      [[maybe_unused]] const ssize_t taken = read(wake_, &ignored, sizeof ignored);
      stopped_ = true;
      continue;
    }
    const auto found = watches_.find(ready[i].data.fd);
    if (found == watches_.end())
      continue;
    // A handler may unwatch its own descriptor, so its function is kept until it returns.
    const std::shared_ptr<Watch> watch = found->second;
    watch->handler(ready[i].events);
  }
  run_timers();
}

// Timers that a handler sets for now or earlier run in the next turn, so that descriptors get their
// share.
void EventLoop::run_timers() {
  if (timers_.empty())
    return;
  const Clock::time_point now = Clock::now();
  const TimerNumber newest = last_timer_;
  while (!timers_.empty()) {
    const auto first = timers_.begin();
    if (first->first.first > now || first->first.second > newest)
      return;
    const std::function<void()> handler = std::move(first->second);
    timer_times_.erase(first->first.second);
    timers_.erase(first);
    handler();
  }
}

}  // namespace rpc::server
