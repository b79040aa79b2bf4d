// SPDX-License-Identifier: Apache-2.0
// Points in time and the fatal-error report.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "platform/sys/debug.h"
#include "present/util/short_date.h"
#include "present/util/util.h"

namespace {

constexpr const char kModuleName[] = "present/util/utilx";

std::tm lt{};
DateTime checklt;
char tbuf[20];
char dbuf[12];
char date[20];

void RequireInitialized(const DateTime& time, int line) {
  if (!time.Initialized())
    Fatal(kModuleName, line, "Invalid operation on uninitialized DateTime");
}

}  // namespace

void SetLocalTime(DateTime time) {
  RequireInitialized(time, __LINE__);
  if (time == checklt)
    return;
  checklt = time;
  const std::time_t seconds = static_cast<std::uint32_t>(time);
  // Not localtime, which looks at the zone's file again for every row of a table.
  localtime_r(&seconds, &lt);  // never fails for 32 bits of seconds
}

void DateTime::SetTimeNow() {
  fRep = static_cast<std::uint32_t>(std::time(nullptr));
}

const char* DateTime::FmtTime() const {
  RequireInitialized(*this, __LINE__);
  SetLocalTime(*this);
  if (std::strftime(tbuf, sizeof(tbuf) - 1, "%H:%M:%S", &lt) == 0)
    tbuf[0] = '\0';
  return tbuf;
}

const char* DateTime::FmtHrMin() const {
  RequireInitialized(*this, __LINE__);
  FmtTime();
  tbuf[5] = '\0';
  return tbuf;
}

const char* DateTime::FmtMdy() const {
  constexpr std::size_t kLongestDate = 10;
  RequireInitialized(*this, __LINE__);
  static const std::string DateFormatString = UserShortDateFormat();
  SetLocalTime(*this);

  // Month names and long separators may give more than is shown.
  char whole[256];
  const std::size_t length = std::strftime(whole, sizeof(whole), DateFormatString.c_str(), &lt);
  const std::size_t shown = std::min(length, kLongestDate);
  std::memcpy(dbuf, whole, shown);
  dbuf[shown] = '\0';
  return dbuf;
}

const char* DateTime::FmtDateTime() const {
  RequireInitialized(*this, __LINE__);
  std::string both = FmtMdy();
  both += ' ';
  both += FmtHrMin();
  std::memcpy(date, both.c_str(), both.size() + 1);
  return date;
}

void Fatal(const char* moduleName, int lineNumber, const char* msg) {
  const std::string place =
      std::string("Module: ") + moduleName + "  Line: " + std::to_string(lineNumber);
  sys::OutputDebugStringA("***** FATAL ERROR *******\n");
  sys::OutputDebugStringA(place.c_str());
  sys::OutputDebugStringA("\n");
  sys::OutputDebugStringA(msg);
  sys::OutputDebugStringA("\n");
  std::exit(1);
}
