// SPDX-License-Identifier: Apache-2.0
#include "agent/shift.h"

#include <algorithm>

namespace agent {

namespace {

constexpr std::int64_t kDay = 86'400;
constexpr std::int64_t kWeek = 7 * kDay;
constexpr std::int64_t kEpochWeekday = 4;  // 1970-01-01 was a Thursday

// Where in the cycle a time of a shift stands. The whole cycle stays as it is, so that a shift can
// stop at midnight.
std::int64_t place(std::int64_t time, std::int64_t cycle) {
  if (time >= 0 && time <= cycle)
    return time;
  return (time % cycle + cycle) % cycle;
}

bool in_cycle(const Shift& shift, std::int64_t now, std::int64_t cycle) {
  const std::int64_t start = place(shift.start, cycle);
  const std::int64_t stop = place(shift.stop, cycle);
  if (start <= stop)
    return now >= start && now < stop;
  return now >= start || now < stop;
}

}  // namespace

bool sound(const Shift& shift) {
  switch (shift.kind) {
    case ShiftKind::absolute:
      return shift.start < shift.stop;
    case ShiftKind::daily:
    case ShiftKind::weekly:
      return shift.start != shift.stop;
  }
  return false;
}

bool contains(const Shift& shift, std::uint32_t time) {
  const std::int64_t now = time;
  switch (shift.kind) {
    case ShiftKind::absolute:
      return now >= shift.start && now < shift.stop;
    case ShiftKind::daily:
      return in_cycle(shift, now % kDay, kDay);
    case ShiftKind::weekly:
      return in_cycle(shift, (now + kEpochWeekday * kDay) % kWeek, kWeek);
  }
  return false;
}

bool in_any(std::span<const Shift> shifts, std::uint32_t time) {
  return shifts.empty() || std::any_of(shifts.begin(), shifts.end(), [time](const Shift& shift) {
           return contains(shift, time);
         });
}

}  // namespace agent
