// SPDX-License-Identifier: Apache-2.0
// Trace lines and environment settings.

#include "source/domain/ZTenvInit.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <string>

#include "captured.h"
#include "source/domain/ZTdiagCommTrace.h"
#include "source/support/ZTglobal.h"

namespace {

TEST(Trace, WritesPairedLinesIndentedByDepth) {
  const auto work = [] {
    const TracedOperation outer("outer::work");
    gTraceObj.LogMsg("number %d", 7);
    const TracedOperation inner("inner::work");
    const TracedOperation innermost("innermost::work");
    gTraceObj.LogMsg("%s", std::string(300, 'x').c_str());
  };
  EXPECT_EQ("", capture(work).err);
  gTraceObj.SetDebugOn();
  EXPECT_NE(0, gTraceObj.ReturnDebugOn());
  const std::string lines =
      std::regex_replace(capture(work).err, std::regex("[0-9/]+ [0-9:]{8} "), "D T ");
  EXPECT_EQ(
      "D T [ 0] Enter outer::work\n"
      "D T [ 1]   number 7\n"
      "D T [ 1]   Enter inner::work\n"
      "D T [ 2]      Enter innermost::work\n"
      "D T [ 3]         " +
          std::string(300, 'x') +
          "\n"
          "D T [ 2]      Exit  innermost::work\n"
          "D T [ 1]   Exit  inner::work\n"
          "D T [ 0] Exit  outer::work\n",
      lines);
}

using Reader = int (*)(std::string&, int&);

struct Reading {
  int result;
  int number;
  std::string parameter;
};

Reading read(Reader reader, const char* variable, const char* value) {
  if (value != nullptr)
    ::setenv(variable, value, 1);
  else
    ::unsetenv(variable);
  Reading reading{-1, -1, "stale"};
  reading.result = reader(reading.parameter, reading.number);
  ::unsetenv(variable);
  return reading;
}

struct Case {
  const char* value;
  int result, number;
  const char* parameter;
  std::int32_t setting;
};

TEST(EnvironmentSettings, SlowNetworkPause) {
  for (const Case& test :
       {Case{nullptr, 1, 0, "", 0}, Case{"5", 0, 201, "5", 5}, Case{" 7s", 0, 201, "7", 7},
        Case{"0", 0, 200, "", 0}, Case{"word", 0, 200, "", 0}, Case{"", 0, 200, "", 0},
        Case{"-3", 0, 201, "-3", -3},
        Case{"99999999999999999999", 0, 201, "2147483647", 2147483647}}) {
    zt_set_slownet_wait_interval(9, 9);
    zt_set_ncs_wait_interval(9, 9);
    const Reading reading = read(Init_ZT_RPC_NOISE, "ZT_RPC_NOISE", test.value);
    EXPECT_EQ(test.result, reading.result);
    EXPECT_EQ(test.number, reading.number);
    EXPECT_EQ(test.parameter, reading.parameter);
    EXPECT_EQ(test.setting, slownet_wait_interval.seconds);
    EXPECT_EQ(0, slownet_wait_interval.microseconds);
    EXPECT_EQ(0, ncs_wait_interval.seconds);
  }
  zt_set_slownet_wait_interval(0, 0);
}

TEST(EnvironmentSettings, TimeoutLevel) {
  for (const Case& test :
       {Case{nullptr, 1, 0, "", 3}, Case{"10", 0, 203, "10", 10}, Case{"0", 0, 203, "0", 0},
        Case{"word", 0, 203, "0", 0}, Case{"11", 0, 202, "", 3}, Case{"-1", 0, 202, "", 3},
        Case{"4294967299", 0, 202, "", 3}}) {
    DCEinit();
    const Reading reading = read(Init_ZT_RPC_TIMEOUT, "ZT_RPC_TIMEOUT", test.value);
    EXPECT_EQ(test.result, reading.result);
    EXPECT_EQ(test.number, reading.number);
    EXPECT_EQ(test.parameter, reading.parameter);
    EXPECT_EQ(static_cast<std::uint32_t>(test.setting), zt_com_timeout);
  }
  DCEinit();
}

TEST(EnvironmentSettings, TraceLevel) {
  for (const Case& test :
       {Case{nullptr, 1, 0, "", 0}, Case{"2", 0, 205, "2", 2}, Case{"-4", 0, 205, "-4", -4},
        Case{"0", 0, 204, "", 0}, Case{"x", 0, 204, "", 0}}) {
    zt_trace_level = 9;
    const Reading reading = read(Init_ZT_TRACE_INTERNAL, "ZT_TRACE_INTERNAL", test.value);
    EXPECT_EQ(test.result, reading.result);
    EXPECT_EQ(test.number, reading.number);
    EXPECT_EQ(test.parameter, reading.parameter);
    EXPECT_EQ(test.setting, zt_trace_level);
  }
  zt_trace_level = 0;
}

}  // namespace
