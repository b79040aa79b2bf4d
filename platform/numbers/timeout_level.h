// SPDX-License-Identifier: Apache-2.0
// How long a binding's time-out level lets a call wait without any sign of life.

#pragma once

#include <array>
#include <chrono>
#include <optional>

namespace rpc {

inline constexpr unsigned kTimeoutLevels = 11;  // 0 to 9 as below; 10: no limit
inline constexpr std::array<int, kTimeoutLevels - 1> kLevelSeconds = {1,  2,  4,   8,   15,
                                                                      30, 60, 120, 240, 480};

// A level beyond the table counts as its last one, no limit.
constexpr std::optional<std::chrono::seconds> silence_of_level(unsigned level) {
  if (level >= kLevelSeconds.size())
    return std::nullopt;
  return std::chrono::seconds(kLevelSeconds[level]);
}

}  // namespace rpc
