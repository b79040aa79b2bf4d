// SPDX-License-Identifier: Apache-2.0
// Shifts of a time filter: when a row counts. All times are UTC; a shift runs from its start up to,
// not including, its stop.

#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace agent {

enum class ShiftKind : std::int16_t {
  absolute = 0,  // start and stop are seconds since 1970
  daily = 1,     // seconds since midnight
  weekly = 2,    // seconds since Sunday's midnight
};

struct Shift {
  ShiftKind kind = ShiftKind::absolute;
  std::int32_t start = 0;
  std::int32_t stop = 0;
};

// An absolute shift must end after it starts; of a daily or weekly one's times only the place in
// the day or week counts, and one that stops before it starts goes on past midnight.
bool sound(const Shift& shift);
bool contains(const Shift& shift, std::uint32_t time);
// Whether any of the shifts contains the time. No shifts: every time counts.
bool in_any(std::span<const Shift> shifts, std::uint32_t time);

}  // namespace agent
