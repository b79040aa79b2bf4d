// SPDX-License-Identifier: Apache-2.0
// A second stack to run code on, and the switch between it and the thread that owns it. Knows
// nothing of waiting; platform/sys/fiber.h does.

#pragma once

#include <ucontext.h>

#include <cstddef>
#include <functional>

namespace sys {

class FiberStack {
 public:
  // Nothing runs before the first enter(), which begins `body`; `body` never returns.
  explicit FiberStack(std::function<void()> body);
  // The body must have left for the last time.
  ~FiberStack();
  FiberStack(const FiberStack&) = delete;
  FiberStack& operator=(const FiberStack&) = delete;

  // Whether the system gave the memory.
  bool valid() const { return memory_ != nullptr; }

  // From the owner: runs the body until it leaves.
  void enter();
  // From the body: back behind the owner's enter(). errno and the exceptions being handled are each
  // side's own.
  void leave(bool for_the_last_time = false);

 private:
  // What the C++ runtime keeps of a thread's exceptions (Itanium C++ ABI 2.2.2).
  struct Exceptions {
    void* caught = nullptr;
    unsigned uncaught = 0;
  };

  static void begin();
  void arrive();

  std::function<void()> body_;
  char* memory_ = nullptr;  // the guard page and the stack above it
  std::size_t size_ = 0;
  ucontext_t inside_{};
  ucontext_t outside_{};
  Exceptions exceptions_;
  // What the address sanitizer wants to know of the two stacks.
  void* inside_fake_ = nullptr;
  void* outside_fake_ = nullptr;
  const void* outside_bottom_ = nullptr;
  std::size_t outside_size_ = 0;
};

}  // namespace sys
