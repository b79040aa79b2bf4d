// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): views with time
// filters, registration for alarms, a delay that grows.

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

#include "shared/general/SHstatusMsg.h"
#include "source/domain/ZTguardedCall.h"
#include "source/domain/ZTmessages.h"
#include "source/domain/ZTrepInterface.h"

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
  STATUS_MESSAGE_OBJECT::LogStatus(&messages::kDelay.set, &messages::kDelay.number, &parameter, 1,
                                   0);
}

void zt_repView_GetLastPosition(const zt_RPCinfo_t& RPCinfo, const _ptc_ObjId*,
                                std::uint32_t* where, error_status_t* status) {
  ZT_CHECK_RECORD();
  ZT_PRECONDITION(RPCinfo.view_context != 0);
  guarded_call("repView_GetLastPosition", RPCinfo, status,
               [&] { zt_v2_repView_GetLastPosition(RPCinfo.view_context, where, status); });
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
