// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTrepInterface.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>

#include "shared/general/SHstatusMsg.h"
#include "source/domain/ZTmessages.h"

namespace {

constexpr std::int32_t kLongestPause = 3600;  // seconds; a pause that a user asked for still ends

// A record that no bind or create made is the caller's fault, never the server's.
[[noreturn]] void broken_precondition(const char* expression, int line) {
  std::fflush(stdout);
  std::fprintf(stderr, "Assertion failed: %s, file source/domain/ZTrepInterface, line %d\n",
               expression, line);
  std::fflush(stderr);
  std::abort();
}

#define ZT_PRECONDITION(expression) \
  ((expression) ? static_cast<void>(0) : broken_precondition(#expression, __LINE__))

#define ZT_CHECK_RECORD()                                                                          \
  do {                                                                                             \
    ZT_PRECONDITION(RPCinfo.version >= zt_RPCversion_min && RPCinfo.version <= zt_RPCversion_max); \
    ZT_PRECONDITION(RPCinfo.rpc_handle != 0);                                                      \
  } while (false)

#define ZT_CHECK_RECORD_POINTER()                            \
  do {                                                       \
    ZT_PRECONDITION(RPCinfo->version >= zt_RPCversion_min && \
                    RPCinfo->version <= zt_RPCversion_max);  \
    ZT_PRECONDITION(RPCinfo->rpc_handle != 0);               \
  } while (false)

// The steps that every wrapper has in common around its stub.
template <typename Stub>
void guarded_call(const char* operation, const zt_RPCinfo_t& info, error_status_t* status,
                  const Stub& stub) {
  if (!rpc_prologue(operation, info, status))
    return;
  try {
    stub();
  } catch (...) {
    if (*status == 0)
      *status = kCallRaised;
  }
  rpc_epilogue(operation, info, *status);
}

// A server that reports success and hands out no object has not created anything.
void require_object(RPC_CONTEXT_HANDLE context, error_status_t* status) {
  if (*status == 0 && context == nullptr)
    *status = kCallRaised;
}

}  // namespace

int rpc_prologue(const char* operation, const zt_RPCinfo_t& RPCinfo, error_status_t* status) {
  *status = 0;
  if (zt_trace_level > 0)
    zt_rpc_log(1, operation, RPCinfo, 0);
  return 1;
}

void rpc_epilogue(const char* operation, const zt_RPCinfo_t& RPCinfo, error_status_t status) {
  const std::int32_t pause = std::clamp(slownet_wait_interval.seconds, 0, kLongestPause);
  if (pause > 0) {
    RpcMgmtAcknowledge();
    std::this_thread::sleep_for(std::chrono::seconds(pause));
  }
  if (zt_trace_level > 0)
    zt_rpc_log(0, operation, RPCinfo, status);
}

void zt_rpc_delay(zt_TimeValue* delay) {
  constexpr std::int64_t kMicrosecondsOfFifth = 200000;
  constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
  constexpr std::int64_t kLeast = std::numeric_limits<std::int32_t>::min();
  if (delay->seconds == 0) {
    delay->seconds = 1;
    return;
  }
  const std::int64_t seconds = delay->seconds;
  zt_set_ncs_wait_interval(
      0, static_cast<std::int32_t>(std::clamp(seconds * kMicrosecondsOfFifth, kLeast, kMost)));
  delay->seconds = static_cast<std::int32_t>(std::clamp(seconds * 2, kLeast, kMost));
  const std::string text = std::to_string(seconds);
  const char* parameter = text.c_str();
  STATUS_MESSAGE_OBJECT::LogStatus(&messages::kDelay.set, &messages::kDelay.number, &parameter, 1, 0);
}

void zt_rep_LookupRepository(const zt_RPCinfo_t& RPCinfo, rep_sRepositoryDescriptor* result,
                             error_status_t* status) {
  ZT_CHECK_RECORD();
  guarded_call("rep_LookupRepository", RPCinfo, status,
               [&] { zt_v2_rep_LookupRepository(RPCinfo.rpc_handle, result, status); });
}

void zt_rep_LookupTable(const zt_RPCinfo_t& RPCinfo, std::uint32_t tableId,
                        std::uint32_t* lookupHandle, std::uint32_t maxIndex,
                        std::uint32_t* lastIndex, rep_sTableDescriptor* results,
                        error_status_t* status) {
  ZT_CHECK_RECORD();
  guarded_call("rep_LookupTable", RPCinfo, status, [&] {
    zt_v2_rep_LookupTable(RPCinfo.rpc_handle, tableId, lookupHandle, maxIndex, lastIndex, results,
                          status);
  });
}

void zt_rep_LookupMetric(const zt_RPCinfo_t& RPCinfo, std::uint32_t tableId, std::uint32_t metricId,
                         std::uint32_t* lookupHandle, std::uint32_t maxIndex,
                         std::uint32_t* lastIndex, rep_sMetricDescriptor* results,
                         error_status_t* status) {
  ZT_CHECK_RECORD();
  guarded_call("rep_LookupMetric", RPCinfo, status, [&] {
    zt_v2_rep_LookupMetric(RPCinfo.rpc_handle, tableId, metricId, lookupHandle, maxIndex, lastIndex,
                           results, status);
  });
}

void zt_rep_LookupInstance(const zt_RPCinfo_t& RPCinfo, std::uint32_t tableId,
                           std::uint32_t instanceId, std::uint32_t* lookupHandle,
                           std::uint32_t maxIndex, std::uint32_t* lastIndex,
                           rep_sInstanceDescriptor* results, error_status_t* status) {
  ZT_CHECK_RECORD();
  guarded_call("rep_LookupInstance", RPCinfo, status, [&] {
    zt_v2_rep_LookupInstance(RPCinfo.rpc_handle, tableId, instanceId, lookupHandle, maxIndex,
                             lastIndex, results, status);
  });
}

void zt_repView_Create(zt_RPCinfo_t* RPCinfo, std::uint32_t tableId, std::uint32_t lastMetricIndex,
                       const std::uint32_t* metricIds, _ptc_ObjId*, error_status_t* status) {
  ZT_CHECK_RECORD_POINTER();
  guarded_call("repView_Create", *RPCinfo, status, [&] {
    zt_v2_repView_Create(RPCinfo->rpc_handle, tableId, lastMetricIndex, metricIds,
                         &RPCinfo->view_context, status);
    require_object(RPCinfo->view_context, status);
  });
}

void zt_repView_SetPosition(const zt_RPCinfo_t& RPCinfo, const _ptc_ObjId*, std::uint32_t* where,
                            error_status_t* status) {
  ZT_CHECK_RECORD();
  ZT_PRECONDITION(RPCinfo.view_context != 0);
  guarded_call("repView_SetPosition", RPCinfo, status,
               [&] { zt_v2_repView_SetPosition(RPCinfo.view_context, where, status); });
}

void zt_repView_GetLastPosition(const zt_RPCinfo_t& RPCinfo, const _ptc_ObjId*,
                                std::uint32_t* where, error_status_t* status) {
  ZT_CHECK_RECORD();
  ZT_PRECONDITION(RPCinfo.view_context != 0);
  guarded_call("repView_GetLastPosition", RPCinfo, status,
               [&] { zt_v2_repView_GetLastPosition(RPCinfo.view_context, where, status); });
}

void zt_repView_Read(const zt_RPCinfo_t& RPCinfo, const _ptc_ObjId*, std::uint32_t maxPositionIndex,
                     std::uint32_t* lastPositionIndex, std::uint32_t maxIntResultsIndex,
                     std::uint32_t* lastIntResultsIndex, std::uint32_t maxCharResultsIndex,
                     std::uint32_t* lastCharResultsIndex, std::uint32_t* positions,
                     std::uint32_t* intResults, char* charResults, error_status_t* status) {
  ZT_CHECK_RECORD();
  ZT_PRECONDITION(RPCinfo.view_context != 0);
  guarded_call("repView_Read", RPCinfo, status, [&] {
    zt_v2_repView_Read(RPCinfo.view_context, maxPositionIndex, lastPositionIndex,
                       maxIntResultsIndex, lastIntResultsIndex, maxCharResultsIndex,
                       lastCharResultsIndex, positions, intResults, charResults, status);
  });
}

void zt_repView_Destroy(zt_RPCinfo_t* RPCinfo, _ptc_ObjId*, error_status_t* status) {
  ZT_CHECK_RECORD_POINTER();
  ZT_PRECONDITION(RPCinfo->view_context != 0);
  guarded_call("repView_Destroy", *RPCinfo, status,
               [&] { zt_v2_repView_Destroy(&RPCinfo->view_context, status); });
}

void zt_repTimeFilter_Create(zt_RPCinfo_t* RPCinfo, std::uint32_t lastShiftIndex,
                             const repTimeFilter_sShiftDescriptor* shifts, _ptc_ObjId*,
                             error_status_t* status) {
  ZT_CHECK_RECORD_POINTER();
  guarded_call("repTimeFilter_Create", *RPCinfo, status, [&] {
    zt_v2_repTimeFilter_Create(RPCinfo->rpc_handle, lastShiftIndex, shifts,
                               &RPCinfo->filter_context, status);
    require_object(RPCinfo->filter_context, status);
  });
}

void zt_repTimeFilter_Destroy(zt_RPCinfo_t* RPCinfo, _ptc_ObjId*, error_status_t* status) {
  ZT_CHECK_RECORD_POINTER();
  ZT_PRECONDITION(RPCinfo->filter_context != 0);
  guarded_call("repTimeFilter_Destroy", *RPCinfo, status,
               [&] { zt_v2_repTimeFilter_Destroy(&RPCinfo->filter_context, status); });
}

void zt_repFilteredView_Create(zt_RPCinfo_t* RPCinfo, std::uint32_t tableId, const _ptc_ObjId*,
                               std::uint32_t lastMetricIndex, const std::uint32_t* metricIds,
                               _ptc_ObjId*, error_status_t* status) {
  ZT_CHECK_RECORD_POINTER();
  ZT_PRECONDITION(RPCinfo->filter_context != 0);
  guarded_call("repFilteredView_Create", *RPCinfo, status, [&] {
    zt_v2_repFilteredView_Create(RPCinfo->rpc_handle, tableId, RPCinfo->filter_context,
                                 lastMetricIndex, metricIds, &RPCinfo->view_context, status);
    require_object(RPCinfo->view_context, status);
  });
}

void zt_repTemporalView_Create(zt_RPCinfo_t* RPCinfo, std::uint32_t tableId, const _ptc_ObjId*,
                               std::uint32_t interval, std::uint32_t lastInstanceIndex,
                               const std::uint32_t* instanceIds, std::uint32_t lastMetricIndex,
                               const std::uint32_t* metricIds, _ptc_ObjId*,
                               error_status_t* status) {
  ZT_CHECK_RECORD_POINTER();
  ZT_PRECONDITION(RPCinfo->filter_context != 0);
  guarded_call("repTemporalView_Create", *RPCinfo, status, [&] {
    zt_v2_repTemporalView_Create(RPCinfo->rpc_handle, tableId, RPCinfo->filter_context, interval,
                                 lastInstanceIndex, instanceIds, lastMetricIndex, metricIds,
                                 &RPCinfo->view_context, status);
    require_object(RPCinfo->view_context, status);
  });
}

void zt_ag_RegisterZT(const zt_RPCinfo_t& RPCinfo, std::int32_t system_key,
                      error_status_t* status) {
  ZT_CHECK_RECORD();
  guarded_call("ag_RegisterZT", RPCinfo, status,
               [&] { zt_v2_ag_RegisterZT(RPCinfo.rpc_handle, system_key, status); });
}

void zt_ag_UnregisterZT(const zt_RPCinfo_t& RPCinfo, std::int32_t system_key,
                        error_status_t* status) {
  ZT_CHECK_RECORD();
  guarded_call("ag_UnregisterZT", RPCinfo, status,
               [&] { zt_v2_ag_UnregisterZT(RPCinfo.rpc_handle, system_key, status); });
}

void zt_ag_Ping(const zt_RPCinfo_t& RPCinfo, error_status_t* status) {
  ZT_CHECK_RECORD();
  guarded_call("ag_Ping", RPCinfo, status, [&] { zt_v2_ag_Ping(RPCinfo.rpc_handle, status); });
}
