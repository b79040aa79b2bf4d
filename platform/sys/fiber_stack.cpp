// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/fiber_stack.h"

#include <cxxabi.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
#define ZT_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZT_ADDRESS_SANITIZER 1
#endif
#endif

#ifdef ZT_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif

namespace sys {
namespace {

#ifdef ZT_ADDRESS_SANITIZER
// Its interceptor of swapcontext knows nothing of the announcements below and writes a warning, so
// that the switch is spelt out here.
void switch_context(ucontext_t* from, const ucontext_t* to) {
  volatile bool returned = false;
  getcontext(from);
  if (returned)
    return;
  returned = true;
  setcontext(to);
}
#else
void __sanitizer_start_switch_fiber(void**, const void*, std::size_t) {}
void __sanitizer_finish_switch_fiber(void*, const void**, std::size_t*) {}
void __asan_unpoison_memory_region(const void*, std::size_t) {}

void switch_context(ucontext_t* from, const ucontext_t* to) {
  swapcontext(from, to);
}
#endif

// Room for the deepest code that runs on a fiber, several times over; pages that are never touched
// take no memory. Instrumented frames are larger.
#ifdef ZT_ADDRESS_SANITIZER
constexpr std::size_t kStackSize = 1024 * 1024;
#else
constexpr std::size_t kStackSize = 256 * 1024;
#endif

// The stack whose body begins now.
thread_local FiberStack* beginning = nullptr;

}  // namespace

FiberStack::FiberStack(std::function<void()> body) : body_(std::move(body)) {
  const auto guard = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  size_ = kStackSize + guard;
  void* memory = mmap(nullptr, size_, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED)
    return;
  memory_ = static_cast<char*>(memory);
  if (mprotect(memory_, guard, PROT_NONE) != 0 || getcontext(&inside_) != 0) {
    munmap(memory_, size_);
    memory_ = nullptr;
    return;
  }
  inside_.uc_stack.ss_sp = memory_ + guard;
  inside_.uc_stack.ss_size = kStackSize;
  inside_.uc_link = nullptr;
  makecontext(&inside_, &FiberStack::begin, 0);
}

FiberStack::~FiberStack() {
  if (memory_ == nullptr)
    return;
  // The frames that were left for good must not haunt whoever gets the memory next.
  __asan_unpoison_memory_region(inside_.uc_stack.ss_sp, inside_.uc_stack.ss_size);
  munmap(memory_, size_);
}

void FiberStack::begin() {
  FiberStack& self = *beginning;
  self.arrive();
  self.body_();
}

void FiberStack::arrive() {
  __sanitizer_finish_switch_fiber(inside_fake_, &outside_bottom_, &outside_size_);
}

void FiberStack::enter() {
  void* const globals = abi::__cxa_get_globals();
  Exceptions mine;
  std::memcpy(&mine, globals, sizeof mine);
  std::memcpy(globals, &exceptions_, sizeof exceptions_);
  const int error = errno;
  beginning = this;
  __sanitizer_start_switch_fiber(&outside_fake_, inside_.uc_stack.ss_sp, inside_.uc_stack.ss_size);
  switch_context(&outside_, &inside_);
  __sanitizer_finish_switch_fiber(outside_fake_, nullptr, nullptr);
  errno = error;
  std::memcpy(&exceptions_, globals, sizeof exceptions_);
  std::memcpy(globals, &mine, sizeof mine);
}

void FiberStack::leave(bool for_the_last_time) {
  const int error = errno;
  __sanitizer_start_switch_fiber(for_the_last_time ? nullptr : &inside_fake_, outside_bottom_,
                                 outside_size_);
  switch_context(&inside_, &outside_);
  arrive();
  errno = error;
}

}  // namespace sys
