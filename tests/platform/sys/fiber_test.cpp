// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/fiber.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/sys/sockets.h"

namespace {

using namespace std::chrono_literals;
using sys::FiberLoop;

class Pipe {
 public:
  Pipe() {
    if (::pipe(ends_.data()) != 0)
      throw std::runtime_error("no pipe");
  }
  ~Pipe() {
    ::close(ends_[0]);
    ::close(ends_[1]);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  int reader() const { return ends_[0]; }
  void put() const { EXPECT_EQ(::write(ends_[1], "x", 1), 1); }
  void take() const {
    EXPECT_GT(sys::wait_ready(reader(), POLLIN, std::nullopt), 0);
    char byte;
    EXPECT_EQ(::read(reader(), &byte, 1), 1);
  }

 private:
  std::array<int, 2> ends_;
};

// Each job waits for the one after it: whoever blocked the thread would wait for ever.
TEST(FiberLoop, JobsWaitForOneAnother) {
  constexpr std::size_t kJobs = 200;
  const std::vector<Pipe> pipes(kJobs);
  std::vector<std::size_t> ended;
  FiberLoop(kJobs).run(kJobs, [&](std::size_t job) {
    if (job + 1 < kJobs)
      pipes[job].take();
    if (job > 0)
      pipes[job - 1].put();
    ended.push_back(job);
  });
  ASSERT_EQ(ended.size(), kJobs);
  EXPECT_EQ(ended.front(), kJobs - 1);
  EXPECT_EQ(ended.back(), 0U);
}

TEST(FiberLoop, BeginsJobsInOrderAndNeverMoreThanAsked) {
  for (const unsigned most : {0U, 1U, 3U, 50U}) {
    std::vector<std::size_t> begun;
    unsigned now = 0;
    unsigned highest = 0;
    FiberLoop loop(most);
    for (int run = 0; run < 2; ++run) {
      begun.clear();
      loop.run(20, [&](std::size_t job) {
        begun.push_back(job);
        highest = std::max(highest, ++now);
        sys::sleep_until(std::chrono::steady_clock::now() + (job % 3) * 1ms);
        --now;
      });
      ASSERT_EQ(begun.size(), 20U);
      EXPECT_TRUE(std::is_sorted(begun.begin(), begun.end()));
    }
    EXPECT_EQ(highest, std::clamp(most, 1U, 20U));
  }
}

TEST(FiberLoop, WaitsEndAsPollWouldEndThem) {
  const Pipe silent;
  const Pipe full;
  full.put();
  const auto soon = [] { return std::chrono::steady_clock::now() + 5ms; };
  const std::function<void(std::size_t)> check = [&](std::size_t) {
    EXPECT_EQ(sys::wait_ready(silent.reader(), POLLIN, soon()), 0);
    EXPECT_EQ(sys::wait_ready(full.reader(), POLLIN, std::nullopt), POLLIN);
    EXPECT_EQ(sys::wait_ready(-1, POLLIN, std::nullopt), -1);
    EXPECT_EQ(errno, EBADF);
  };
  check(0);
  FiberLoop(1).run(1, check);
}

struct Noted {
  static inline std::vector<std::string>* ends = nullptr;
  ~Noted() { ends->push_back(text); }
  std::string text;
};
sys::FiberLocal<Noted> first_value;
sys::FiberLocal<Noted> second_value;
sys::LoopLocal<int> jobs_of_loop;

TEST(FiberLoop, KeepsErrorsExceptionsAndValuesOfJobsApart) {
  std::vector<std::string> ends;
  Noted::ends = &ends;
  const Pipe turn;
  FiberLoop(2).run(2, [&](std::size_t job) {
    const std::string name = job == 0 ? "a" : "b";
    ++*jobs_of_loop;
    first_value->text = name + "1";
    second_value->text = name + "2";
    const auto other_job = [&] { job == 0 ? turn.take() : turn.put(); };
    try {
      try {
        throw std::runtime_error(name);
      } catch (const std::exception&) {
        errno = job == 0 ? E2BIG : EDOM;
        sockets::closesocket(job == 0 ? -1 : STDERR_FILENO + 1000);
        const int last = sockets::WSAGetLastError();
        other_job();
        EXPECT_EQ(sockets::WSAGetLastError(), last);
        throw;
      }
    } catch (const std::exception& failure) {
      EXPECT_EQ(failure.what(), name);
    }
    errno = job == 0 ? E2BIG : EDOM;
    sys::sleep_until(std::chrono::steady_clock::now());
    EXPECT_EQ(errno, job == 0 ? E2BIG : EDOM);
    EXPECT_EQ(std::uncaught_exceptions(), 0);
    EXPECT_EQ(first_value->text, name + "1");
    EXPECT_EQ(*jobs_of_loop, 2);
    if (job == 1)
      sys::sleep_until(std::chrono::steady_clock::now() + 5ms);
  });
  EXPECT_EQ(ends, (std::vector<std::string>{"a2", "a1", "b2", "b1"}));
  EXPECT_EQ(*jobs_of_loop, 0);
}

TEST(FiberLoop, ThrowsOnWhatLeavesAJobWhenAllHaveEnded) {
  std::size_t ended = 0;
  const auto run = [&] {
    FiberLoop(2).run(5, [&](std::size_t job) {
      ++ended;
      if (job == 1)
        throw std::out_of_range("one");
    });
  };
  EXPECT_THROW(run(), std::out_of_range);
  EXPECT_EQ(ended, 5U);
}

TEST(FiberLoop, RunsOneAfterAnotherWithinAJob) {
  std::vector<std::size_t> order;
  FiberLoop(2).run(1, [&](std::size_t) {
    FiberLoop(4).run(3, [&](std::size_t inner) { order.push_back(inner); });
  });
  EXPECT_EQ(order, (std::vector<std::size_t>{0, 1, 2}));
}

TEST(FiberLoop, GoesOnBesideWorkThatBlocks) {
  // More work than helpers; each piece waits for a job that runs meanwhile.
  constexpr std::size_t kJobs = 40;
  std::vector<std::promise<void>> promises(kJobs);
  std::size_t done = 0;
  FiberLoop(2 * kJobs).run(2 * kJobs, [&](std::size_t job) {
    if (job < kJobs)
      sys::run_beside([&] { promises[job].get_future().wait(); });
    else
      promises[job - kJobs].set_value();
    ++done;
  });
  EXPECT_EQ(done, 2 * kJobs);
}

TEST(FiberLoop, WatchWakesAParkedJob) {
  const Pipe pipe;
  FiberLoop loop(2);
  int calls = 0;
  sys::Fiber* waiting = nullptr;
  {
    const FiberLoop::Watch watch(loop, pipe.reader(), [&] {
      char byte;
      EXPECT_EQ(::read(pipe.reader(), &byte, 1), 1);
      ++calls;
      sys::wake(*waiting);
    });
    ASSERT_TRUE(watch.valid());
    EXPECT_FALSE(FiberLoop::Watch(loop, -1, [] {}).valid());
    loop.run(2, [&](std::size_t job) {
      if (job == 1) {
        sys::sleep_until(std::chrono::steady_clock::now() + 5ms);
        pipe.put();
        return;
      }
      EXPECT_EQ(FiberLoop::current(), &loop);
      waiting = sys::current_fiber();
      EXPECT_FALSE(sys::park(std::chrono::steady_clock::now()));
      EXPECT_TRUE(sys::park(std::nullopt));
    });
  }
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(FiberLoop::current(), nullptr);
}

}  // namespace
