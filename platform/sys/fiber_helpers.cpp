// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/fiber_helpers.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <system_error>
#include <utility>

namespace sys {
namespace {

constexpr std::size_t kMostHelpers = 8;

}  // namespace

FiberHelpers::FiberHelpers() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

FiberHelpers::~FiberHelpers() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  more_.notify_all();
  for (std::thread& each : threads_)
    each.join();
  if (descriptor_ >= 0)
    close(descriptor_);
}

bool FiberHelpers::begin(const std::function<void()>& work, Fiber& waiting) {
  if (descriptor_ < 0 || !have_helper())
    return false;
  {
    const std::lock_guard lock(mutex_);
    work_.push_back({&work, &waiting});
  }
  more_.notify_one();
  return true;
}

// One that is free, a new one, or the hope that one of many becomes free.
bool FiberHelpers::have_helper() {
  {
    const std::lock_guard lock(mutex_);
    if (idle_ > work_.size() || threads_.size() == kMostHelpers)
      return true;
  }
  try {
    threads_.emplace_back([this] { help(); });
  } catch (const std::system_error&) {
    return !threads_.empty();
  }
  return true;
}

void FiberHelpers::help() {
  std::unique_lock lock(mutex_);
  for (;;) {
    ++idle_;
    more_.wait(lock, [this] { return ending_ || !work_.empty(); });
    --idle_;
    if (ending_)
      return;
    const Work work = work_.front();
    work_.pop_front();
    lock.unlock();
    (*work.what)();
    lock.lock();
    finished_.push_back(work.waiting);
    const std::uint64_t one = 1;
    // A counter that is full already is readable.
    static_cast<void>(!write(descriptor_, &one, sizeof one));
  }
}

std::vector<Fiber*> FiberHelpers::take_finished() {
  std::uint64_t count = 0;
  static_cast<void>(!read(descriptor_, &count, sizeof count));
  const std::lock_guard lock(mutex_);
  return std::exchange(finished_, {});
}

}  // namespace sys
