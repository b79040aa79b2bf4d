// SPDX-License-Identifier: Apache-2.0
// One thread that waits for descriptors (epoll) and timers and calls what was asked for. Handlers
// may add and remove descriptors and timers, their own included.

#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>

namespace rpc::server {

class EventLoop {
 public:
  using Clock = std::chrono::steady_clock;
  // `events` is what epoll reports (EPOLLIN, EPOLLOUT, EPOLLERR, EPOLLHUP).
  using DescriptorHandler = std::function<void(std::uint32_t events)>;
  using TimerNumber = std::uint64_t;  // never 0

  EventLoop();
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Level-triggered. The descriptor stays the caller's, who must unwatch it before it closes it.
  // False when the system refuses it (errno says why).
  bool watch(int descriptor, std::uint32_t events, DescriptorHandler handler);
  // Other events for a watched descriptor.
  bool change(int descriptor, std::uint32_t events);
  void unwatch(int descriptor);

  // Calls `handler` once.
  TimerNumber at(Clock::time_point time, std::function<void()> handler);
  TimerNumber after(Clock::duration delay, std::function<void()> handler);
  // A timer that has fired or is unknown is ignored.
  void cancel(TimerNumber timer);

  // Runs until stop() is called, from a handler or (the only call allowed there) a signal handler
  // or another thread.
  void run();
  // Handles what is ready now or becomes ready within `longest`.
  void run_once(Clock::duration longest);
  void stop();

 private:
  struct Watch;
  int wait_milliseconds(std::optional<Clock::duration> longest) const;
  void turn(std::optional<Clock::duration> longest);
  void run_timers();

  int epoll_ = -1;
  int wake_ = -1;
  bool stopped_ = false;
  std::unordered_map<int, std::shared_ptr<Watch>> watches_;
  std::map<std::pair<Clock::time_point, TimerNumber>, std::function<void()>> timers_;
  std::unordered_map<TimerNumber, Clock::time_point> timer_times_;
  TimerNumber last_timer_ = 0;
};

}  // namespace rpc::server
