// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTrepInterface.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "source/domain/ZTguardedCall.h"

namespace {

constexpr std::int32_t kLongestPause = 3600;  // seconds; a pause that a user asked for still ends

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

void zt_repTimeFilter_Destroy(zt_RPCinfo_t* RPCinfo, _ptc_ObjId*, error_status_t* status) {
  ZT_CHECK_RECORD_POINTER();
  ZT_PRECONDITION(RPCinfo->filter_context != 0);
  guarded_call("repTimeFilter_Destroy", *RPCinfo, status,
               [&] { zt_v2_repTimeFilter_Destroy(&RPCinfo->filter_context, status); });
}

void zt_ag_Ping(const zt_RPCinfo_t& RPCinfo, error_status_t* status) {
  ZT_CHECK_RECORD();
  guarded_call("ag_Ping", RPCinfo, status, [&] { zt_v2_ag_Ping(RPCinfo.rpc_handle, status); });
}
