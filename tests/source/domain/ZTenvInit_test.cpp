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

TEST(EnvironmentSettings, AreReadAndTold) {
  constexpr std::int32_t kMost = 2147483647;
  struct Variable {
    const char* name;
    int (*read)(std::string& parameter, int& number);
    std::int32_t (*setting)();
  };
  const Variable noise{"ZT_RPC_NOISE", Init_ZT_RPC_NOISE,
                       [] { return slownet_wait_interval.seconds; }};
  const Variable level{"ZT_RPC_TIMEOUT", Init_ZT_RPC_TIMEOUT,
                       [] { return static_cast<std::int32_t>(zt_com_timeout); }};
  const Variable trace{"ZT_TRACE_INTERNAL", Init_ZT_TRACE_INTERNAL, [] { return zt_trace_level; }};
  const struct {
    const Variable& variable;
    const char* value;
    int result, number;
    const char* parameter;
    std::int32_t setting;
  } cases[] = {
      {noise, nullptr, 1, 0, "", 0},
      {noise, "5", 0, 201, "5", 5},
      {noise, " 7s", 0, 201, "7", 7},
      {noise, "0", 0, 200, "", 0},
      {noise, "word", 0, 200, "", 0},
      {noise, "", 0, 200, "", 0},
      {noise, "-3", 0, 201, "-3", -3},
      {noise, "99999999999999999999", 0, 201, "2147483647", kMost},
      {level, nullptr, 1, 0, "", 3},
      {level, "10", 0, 203, "10", 10},
      {level, "0", 0, 203, "0", 0},
      {level, "word", 0, 203, "0", 0},
      {level, "11", 0, 202, "", 3},
      {level, "-1", 0, 202, "", 3},
      {level, "4294967299", 0, 202, "", 3},
      {trace, nullptr, 1, 0, "", 0},
      {trace, "2", 0, 205, "2", 2},
      {trace, "-4", 0, 205, "-4", -4},
      {trace, "0", 0, 204, "", 0},
      {trace, "x", 0, 204, "", 0},
  };
  for (const auto& each : cases) {
    zt_set_slownet_wait_interval(9, 9);
    zt_set_ncs_wait_interval(9, 9);
    zt_trace_level = 9;
    DCEinit();
    ::unsetenv(each.variable.name);
    if (each.value != nullptr)
      ::setenv(each.variable.name, each.value, 1);
    std::string parameter = "stale";
    int number = -1;
    EXPECT_EQ(each.result, each.variable.read(parameter, number));
    EXPECT_EQ(each.number, number) << each.variable.name << (each.value ? each.value : "");
    EXPECT_EQ(each.parameter, parameter);
    EXPECT_EQ(each.setting, each.variable.setting());
    EXPECT_EQ(&each.variable == &noise ? 0 : 9, slownet_wait_interval.microseconds);
    EXPECT_EQ(&each.variable == &noise ? 0 : 9, ncs_wait_interval.seconds);
    ::unsetenv(each.variable.name);
  }
  zt_set_slownet_wait_interval(0, 0);
  zt_trace_level = 0;
  DCEinit();
}

}  // namespace
