// SPDX-License-Identifier: Apache-2.0
// The threads beside a loop of fibers, for calls that can only block.

#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace sys {

class Fiber;

class FiberHelpers {
 public:
  FiberHelpers();
  // Waits for work that has begun.
  ~FiberHelpers();
  FiberHelpers(const FiberHelpers&) = delete;
  FiberHelpers& operator=(const FiberHelpers&) = delete;

  // Becomes readable when work has finished.
  int descriptor() const { return descriptor_; }
  // Has a helper do the work, which stays with the caller until it is finished. False when the
  // system gives no thread.
  bool begin(const std::function<void()>& work, Fiber& waiting);
  // Whose work has finished since the last call.
  std::vector<Fiber*> take_finished();

 private:
  struct Work {
    const std::function<void()>* what;
    Fiber* waiting;
  };

  void help();
  bool have_helper();

  const int descriptor_;
  std::mutex mutex_;
  std::condition_variable more_;
  std::deque<Work> work_;
  std::vector<Fiber*> finished_;
  std::size_t idle_ = 0;
  bool ending_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace sys
