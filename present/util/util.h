// SPDX-License-Identifier: Apache-2.0
// The general utility library's doors: points in time, and the report of a fatal error.

#pragma once

#include <cstdint>

// A point in time: seconds since 1970-01-01 00:00:00 UTC; all bits set means not set.
//
// The Fmt texts are in local time and stand in buffers of the module: FmtTime and FmtHrMin share
// one, FmtMdy and FmtDateTime have one each. A text is good until its buffer is written again.
// Formatting a time that is not set ends the program through Fatal.
class DateTime {
 public:
  DateTime() = default;

  void reset() { fRep = kNotSet; }
  unsigned char Initialized() const { return fRep != kNotSet; }
  void SetTimeNow();
  void SetGmt(std::uint32_t seconds) { fRep = seconds; }
  operator std::uint32_t() const { return fRep; }

  unsigned char operator==(const DateTime& other) const { return fRep == other.fRep; }
  unsigned char operator!=(const DateTime& other) const { return fRep != other.fRep; }
  unsigned char operator<(const DateTime& other) const { return fRep < other.fRep; }
  unsigned char operator<=(const DateTime& other) const { return fRep <= other.fRep; }
  unsigned char operator>(const DateTime& other) const { return fRep > other.fRep; }
  unsigned char operator>=(const DateTime& other) const { return fRep >= other.fRep; }

  const char* FmtTime() const;      // 16:00:05
  const char* FmtHrMin() const;     // 16:00
  const char* FmtMdy() const;       // the user's short date, at most 10 characters: 11/18/98
  const char* FmtDateTime() const;  // FmtMdy, a blank, FmtHrMin

 private:
  static constexpr std::uint32_t kNotSet = 0xFFFFFFFFU;

  std::uint32_t fRep = kNotSet;
};
static_assert(sizeof(DateTime) == 4, "stands in records and messages");

// Breaks the time down into the module's local time, which the Fmt operations print.
void SetLocalTime(DateTime time);

// Reports an error that ordinary input cannot cause on standard error in three lines and ends the
// process with status 1.
[[noreturn]] void Fatal(const char* moduleName, int lineNumber, const char* msg);
