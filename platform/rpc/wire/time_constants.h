// SPDX-License-Identifier: Apache-2.0
// Every number of the protocol that is a time or a rate, each with its reason. All clocks are
// monotonic; nothing here is tunable at run time except by a binding's time-out level.

#pragma once

#include <chrono>
#include <cstddef>

#include "platform/numbers/timeout_level.h"

namespace rpc {

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using Duration = Clock::duration;

// --- Repeats. The first repeat comes after more than any round trip within a continent, so that
// nothing is sent twice on a clean network; each wait doubles so that a dead server costs few
// packets, up to a wait that still notices a server's return.
inline constexpr Duration kFirstRepeat = std::chrono::milliseconds(250);
inline constexpr Duration kLongestRepeat = std::chrono::seconds(8);
// Up to this part of a wait is added at random, so that many clients of one server that lost a
// packet at the same moment do not repeat it at the same moment.
inline constexpr int kSpreadPercent = 10;

// --- Pings after the server said that the operation runs: seldom, because nothing is missing;
// often enough, while the call is young, to notice a lost response soon.
inline constexpr Duration kYoungCall = std::chrono::seconds(10);
inline constexpr Duration kYoungWorkingPing = std::chrono::seconds(3);
inline constexpr Duration kGrownCall = std::chrono::seconds(30);
inline constexpr Duration kGrownWorkingPing = std::chrono::seconds(10);
inline constexpr Duration kOldWorkingPing = std::chrono::seconds(30);
// An unanswered one of them again after 2, 4 and then 8 seconds.
inline constexpr Duration kFirstWorkingRepeat = std::chrono::seconds(2);

// --- Call-backs answered in any second; a server asks once per activity, so that this serves many
// lost answers and still makes a flood cheap.
inline constexpr unsigned kCallBacksPerSecond = 32;
// A server asks once a second, for half a minute; more questions than that keep no call alive.
inline constexpr unsigned kCallBacksOfACall = 60;

// A server that must ask does so before it says "working", and again every second or so; one that
// still says so this much later has asked in vain.
inline constexpr Duration kQuestionOverdue = std::chrono::seconds(1);

// --- A server whose context is held hears of its client so often while no call is made.
inline constexpr Duration kLivenessInterval = std::chrono::seconds(20);

// --- Giving up: after the silence of the binding's level (platform/numbers/timeout_level.h).
// The last repeat before giving up leaves this much for its answer, or a quarter of the silence.
inline constexpr Duration kTimeForAnswer = std::chrono::seconds(1);

}  // namespace rpc
