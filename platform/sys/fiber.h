// SPDX-License-Identifier: Apache-2.0
// Many jobs of plain blocking code on one thread. Each job runs on a fiber, a stack of its own,
// until it waits through one of the calls below; then the thread's loop turns to another. Code need
// not know where it runs: outside fibers the same calls block the thread.
//
// A fiber never leaves its thread, and nothing is switched but by these calls: between two of them
// a job has the thread for itself. errno, exceptions and FiberLocal values are each job's own.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace sys {

using WaitDeadline = std::optional<std::chrono::steady_clock::time_point>;  // nothing: no limit

// Waits until the descriptor is ready. The events of poll that are there (errors and hang-up
// unasked), 0 at the deadline, -1 with errno (EBADF for what is no descriptor). No two jobs of one
// thread may wait for the same descriptor at once.
int wait_ready(int descriptor, short events, const WaitDeadline& deadline);

void sleep_until(std::chrono::steady_clock::time_point when);

// Runs code that blocks in calls of others (a resolver) on a helper thread while other jobs go on;
// at most eight at once. `work` must not throw, nor use FiberLocal values.
void run_beside(const std::function<void()>& work);

// --- Waiting for another job or a watch of the same loop
class Fiber;
Fiber* current_fiber();  // null outside fibers
// On a fiber only: parks the job until wake() or the deadline. False at the deadline.
bool park(const WaitDeadline& deadline);
// Does nothing to a fiber that is not parked.
void wake(Fiber& fiber);

struct EventTarget;

class FiberLoop {
  class Core;

 public:
  // At most `most` jobs at once; at least 1.
  explicit FiberLoop(unsigned most);
  ~FiberLoop();
  FiberLoop(const FiberLoop&) = delete;
  FiberLoop& operator=(const FiberLoop&) = delete;

  // Runs job(0) to job(count - 1), begun in this order, a new one as one ends; returns when all
  // have ended. An exception that leaves a job is thrown on to the caller then (the first one).
  // Called on a fiber, or where the system gives no stacks, it runs them one after another.
  void run(std::size_t count, const std::function<void(std::size_t)>& job);

  // The loop whose job is running; null outside fibers.
  static FiberLoop* current();

  // Calls `ready` from the loop, on no fiber, while run() waits and the descriptor is readable or
  // has an error. `ready` must not wait, nor end a watch. The watch ends before the loop.
  class Watch {
   public:
    Watch(FiberLoop& loop, int descriptor, std::function<void()> ready);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    bool valid() const { return valid_; }

   private:
    Core& core_;
    int descriptor_;
    std::unique_ptr<EventTarget> target_;
    bool valid_;
  };

 private:
  friend class Fiber;
  std::unique_ptr<Core> core_;
};

// --- Values of a job, of a loop, or of a thread outside fibers

// Values by slot, destroyed in the reverse order of their making.
class LocalValues {
 public:
  LocalValues() = default;
  ~LocalValues() { clear(); }
  LocalValues(const LocalValues&) = delete;
  LocalValues& operator=(const LocalValues&) = delete;

  template <typename T>
  T& get(const void* slot) {
    for (const auto& [key, value] : values_)
      if (key == slot)
        return *static_cast<T*>(value.get());
    auto made = std::make_shared<T>();
    T& result = *made;
    values_.emplace_back(slot, std::move(made));
    return result;
  }
  void clear();

  static LocalValues& of_job();   // of the running job, else of the thread
  static LocalValues& of_loop();  // of the running job's loop, else of the thread

 private:
  std::vector<std::pair<const void*, std::shared_ptr<void>>> values_;
};

// A variable of static storage whose value each job, and each thread outside fibers, has for
// itself: made at the first use, destroyed when the job or thread ends.
template <typename T>
class FiberLocal {
 public:
  T& operator*() const { return LocalValues::of_job().get<T>(this); }
  T* operator->() const { return &**this; }
};

// The same for all jobs of one loop.
template <typename T>
class LoopLocal {
 public:
  T& operator*() const { return LocalValues::of_loop().get<T>(this); }
  T* operator->() const { return &**this; }
};

}  // namespace sys
