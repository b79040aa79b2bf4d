// SPDX-License-Identifier: Apache-2.0
// The call layer: what a wrapper makes of its stub's outcome, its trace lines, its pause and its
// preconditions.

#include "source/domain/ZTrepInterface.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <regex>

#include "captured.h"
#include "scripted_agent.h"
#include "source/domain/ZTrpcSystemObj.h"

namespace {

RPC_BINDING_HANDLE some_binding() {
  static RPC_BINDING_HANDLE binding = [] {
    RPC_BINDING_HANDLE made = nullptr;
    EXPECT_EQ(RPC_S_OK, RpcBindingFromStringBindingA("ncadg_ip_udp:127.0.0.1[2001]", &made));
    return made;
  }();
  return binding;
}

RPC_CONTEXT_HANDLE some_context() {
  return reinterpret_cast<RPC_CONTEXT_HANDLE>(&agent);
}

zt_RPCinfo_t record() {
  zt_RPCinfo_t info;
  info.rpc_handle = some_binding();
  info.version = ZT_RPC_V2;
  return info;
}

zt_RPCinfo_t full_record() {
  zt_RPCinfo_t info = record();
  info.view_context = info.filter_context = some_context();
  return info;
}

struct Wrapper {
  const char* name;
  std::function<void(zt_RPCinfo_t&, error_status_t*)> call;
};

const std::vector<Wrapper>& wrappers() {
  static std::uint32_t number = 0;
  static std::uint32_t numbers[4];
  static char text[4];
  static _ptc_ObjId id;
  static rep_sRepositoryDescriptor repository;
  static rep_sMetricDescriptor metric;
  static rep_sTableDescriptor table;
  static rep_sInstanceDescriptor instance;
  static repTimeFilter_sShiftDescriptor shift;
  using Info = zt_RPCinfo_t&;
  using Status = error_status_t*;
  static const std::vector<Wrapper> all = {
      {"rep_LookupRepository",
       [](Info i, Status s) { zt_rep_LookupRepository(i, &repository, s); }},
      {"rep_LookupTable",
       [](Info i, Status s) { zt_rep_LookupTable(i, 0, &number, 0, &number, &table, s); }},
      {"rep_LookupMetric",
       [](Info i, Status s) { zt_rep_LookupMetric(i, 1, 0, &number, 0, &number, &metric, s); }},
      {"rep_LookupInstance",
       [](Info i, Status s) { zt_rep_LookupInstance(i, 1, 0, &number, 0, &number, &instance, s); }},
      {"repView_Create", [](Info i, Status s) { zt_repView_Create(&i, 1, 0, numbers, &id, s); }},
      {"repView_SetPosition", [](Info i, Status s) { zt_repView_SetPosition(i, &id, &number, s); }},
      {"repView_GetLastPosition",
       [](Info i, Status s) { zt_repView_GetLastPosition(i, &id, &number, s); }},
      {"repView_Read",
       [](Info i, Status s) {
         zt_repView_Read(i, &id, 0, &number, 0, &number, 0, &number, numbers, numbers, text, s);
       }},
      {"repView_Destroy", [](Info i, Status s) { zt_repView_Destroy(&i, &id, s); }},
      {"repTimeFilter_Create",
       [](Info i, Status s) { zt_repTimeFilter_Create(&i, 0, &shift, &id, s); }},
      {"repTimeFilter_Destroy", [](Info i, Status s) { zt_repTimeFilter_Destroy(&i, &id, s); }},
      {"repFilteredView_Create",
       [](Info i, Status s) { zt_repFilteredView_Create(&i, 1, &id, 0, numbers, &id, s); }},
      {"repTemporalView_Create",
       [](Info i, Status s) {
         zt_repTemporalView_Create(&i, 1, &id, 60, 0, numbers, 0, numbers, &id, s);
       }},
      {"ag_RegisterZT", [](Info i, Status s) { zt_ag_RegisterZT(i, 0, s); }},
      {"ag_UnregisterZT", [](Info i, Status s) { zt_ag_UnregisterZT(i, 0, s); }},
      {"ag_Ping", [](Info i, Status s) { zt_ag_Ping(i, s); }},
  };
  return all;
}

class RepInterface : public ::testing::Test {
 protected:
  RepInterface() {
    script_one_server("DATA");
    agent.classes = {make_class(1, "GLOBAL", {"A"})};
    agent.classes[0].instances.resize(1);
    agent.reads.assign(1, {});
    zt_trace_level = 0;
    zt_set_slownet_wait_interval(0, 0);
  }
};

TEST_F(RepInterface, EveryWrapperReportsItsStubsOutcome) {
  for (const Wrapper& wrapper : wrappers()) {
    zt_RPCinfo_t info = full_record();
    error_status_t status = 99;
    wrapper.call(info, &status);
    EXPECT_EQ(0U, status) << wrapper.name;
    EXPECT_EQ(1, agent.count(wrapper.name)) << wrapper.name;

    agent.statuses[wrapper.name] = 1722;
    info = full_record();
    wrapper.call(info, &status);
    EXPECT_EQ(1722U, status) << wrapper.name;

    agent.raised[wrapper.name] = 1783;
    info = full_record();
    wrapper.call(info, &status);
    EXPECT_EQ(101U, status) << wrapper.name;
  }
}

TEST_F(RepInterface, CreateWithoutAnObjectIsNoSuccess) {
  agent.null_contexts = true;
  for (const char* name : {"repView_Create", "repTimeFilter_Create"}) {
    for (const Wrapper& wrapper : wrappers()) {
      if (wrapper.name != std::string(name))
        continue;
      zt_RPCinfo_t info = record();
      error_status_t status = 99;
      wrapper.call(info, &status);
      EXPECT_EQ(101U, status) << name;
    }
  }
}

TEST_F(RepInterface, TracesTwoLinesACall) {
  zt_RPCinfo_t info = record();
  error_status_t status = 0;
  for (const std::int32_t level : {0, -1}) {
    zt_trace_level = level;
    EXPECT_EQ("", capture([&] { zt_ag_Ping(info, &status); }).err);
  }
  zt_trace_level = 1;
  agent.raised["ag_Ping"] = 1783;
  const std::string lines = capture([&] { zt_ag_Ping(info, &status); }).err;
  const std::regex expected(
      "RPC_TRACE: [0-9/]{8} [0-9:]{8} enter ag_Ping {19}status:0x0 text:[^\n]+ v\\.2 "
      "--hd:0x[0-9a-f]{8,16} vc:0x00000000 fc:0x00000000--\n"
      "RPC_TRACE: [0-9/]{8} [0-9:]{8} exit  ag_Ping {19}status:0x65 text:Couldn't get DCE message "
      "text for status 101\\. v\\.2 --hd:0x[0-9a-f]{8,16} vc:0x00000000 fc:0x00000000--\n");
  EXPECT_TRUE(std::regex_match(lines, expected)) << lines;

  // The exit line shows a context that the call made.
  _ptc_ObjId id{};
  const std::uint32_t metric = 1;
  const std::string create =
      capture([&] { zt_repView_Create(&info, 1, 0, &metric, &id, &status); }).err;
  EXPECT_TRUE(std::regex_search(create, std::regex("exit [^\n]* vc:0x[0-9a-f]*[1-9a-f]")))
      << create;
  zt_trace_level = 0;
}

TEST_F(RepInterface, PausesAfterEveryCall) {
  using std::chrono::steady_clock;
  zt_RPCinfo_t info = record();
  error_status_t status = 0;
  agent.statuses["ag_Ping"] = 1722;
  zt_set_slownet_wait_interval(1, 0);
  auto start = steady_clock::now();
  zt_ag_Ping(info, &status);
  EXPECT_GE(steady_clock::now() - start, std::chrono::seconds(1));
  for (const std::int32_t seconds : {0, -5}) {
    zt_set_slownet_wait_interval(seconds, 0);
    start = steady_clock::now();
    zt_ag_Ping(info, &status);
    EXPECT_LT(steady_clock::now() - start, std::chrono::milliseconds(500));
  }
  zt_set_slownet_wait_interval(0, 0);
}

TEST_F(RepInterface, BrokenPreconditionsEndTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  error_status_t status = 0;
  zt_RPCinfo_t old = record();
  old.version = ZT_RPC_V1;
  EXPECT_DEATH(zt_ag_Ping(old, &status),
               "RPCinfo.version >= zt_RPCversion_min && RPCinfo.version <= zt_RPCversion_max, file "
               "source/domain/ZTrepInterface, line [0-9]+");
  zt_RPCinfo_t unbound = record();
  unbound.rpc_handle = nullptr;
  EXPECT_DEATH(zt_ag_Ping(unbound, &status), "RPCinfo.rpc_handle != 0");
  zt_RPCinfo_t bare = record();
  for (const Wrapper& wrapper : wrappers()) {
    const std::string name = wrapper.name;
    const bool by_pointer = name.find("Create") != name.npos || name.find("Destroy") != name.npos;
    const std::string access = by_pointer ? "RPCinfo->" : "RPCinfo\\.";
    std::string field;
    if (name == "repTimeFilter_Destroy" || name == "repFilteredView_Create" ||
        name == "repTemporalView_Create")
      field = "filter_context";
    else if (name.starts_with("repView") && name != "repView_Create")
      field = "view_context";
    else
      continue;
    EXPECT_DEATH(wrapper.call(bare, &status), access + field + " != 0") << name;
  }
}

TEST_F(RepInterface, DelayDoublesAndSetsTheNcsInterval) {
  struct Case {
    std::int32_t seconds, doubled, microseconds;
  };
  for (const Case& test : {Case{0, 1, 7}, Case{3, 6, 600000},
                           Case{2000000000, 2147483647, 2147483647}, Case{-2, -4, -400000}}) {
    zt_set_ncs_wait_interval(7, 7);
    zt_TimeValue delay{test.seconds, 0};
    zt_rpc_delay(&delay);
    EXPECT_EQ(test.doubled, delay.seconds);
    EXPECT_EQ(test.microseconds, ncs_wait_interval.microseconds);
    EXPECT_EQ(test.seconds == 0 ? 7 : 0, ncs_wait_interval.seconds);
  }
}

}  // namespace
