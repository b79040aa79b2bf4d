// SPDX-License-Identifier: Apache-2.0
// The call layer: one wrapper for each remote operation that the product makes. A wrapper checks
// the call record, traces, calls the version-2 stub, turns whatever the stub raises into a status
// and pauses for the slow-network interval.
//
// Wrappers that create or destroy a server object take the record by pointer and write its
// contexts. A version that is not supported, a missing binding or a missing context is a fault of
// the caller and ends the program. The object identifiers of version 1 (viewId, filterId,
// filterObjId) are accepted and not used.

#pragma once

#include <cstdint>

#include "ag.h"
#include "platform/rpc/rpc.h"
#include "rep.h"
#include "repFilteredView.h"
#include "repTemporalView.h"
#include "repTimeFilter.h"
#include "repView.h"
#include "shared/dce/ncs2dce.h"
#include "source/domain/ZTenvInit.h"
#include "source/domain/ZTrpcInfo.h"

// Sets the status to 0 and traces the entry. Always 1.
int rpc_prologue(const char* operation, const zt_RPCinfo_t& RPCinfo, error_status_t* status);
// Pauses, then traces the exit with the status.
void rpc_epilogue(const char* operation, const zt_RPCinfo_t& RPCinfo, error_status_t status);
// A back-off step: 0 seconds become 1; others go into the NCS interval, a fifth of them, and are
// doubled. Numbers beyond 32 bits count as the largest.
void zt_rpc_delay(zt_TimeValue* delay);

void zt_rep_LookupRepository(const zt_RPCinfo_t& RPCinfo, rep_sRepositoryDescriptor* result,
                             error_status_t* status);
void zt_rep_LookupTable(const zt_RPCinfo_t& RPCinfo, std::uint32_t tableId,
                        std::uint32_t* lookupHandle, std::uint32_t maxIndex,
                        std::uint32_t* lastIndex, rep_sTableDescriptor* results,
                        error_status_t* status);
void zt_rep_LookupMetric(const zt_RPCinfo_t& RPCinfo, std::uint32_t tableId, std::uint32_t metricId,
                         std::uint32_t* lookupHandle, std::uint32_t maxIndex,
                         std::uint32_t* lastIndex, rep_sMetricDescriptor* results,
                         error_status_t* status);
void zt_rep_LookupInstance(const zt_RPCinfo_t& RPCinfo, std::uint32_t tableId,
                           std::uint32_t instanceId, std::uint32_t* lookupHandle,
                           std::uint32_t maxIndex, std::uint32_t* lastIndex,
                           rep_sInstanceDescriptor* results, error_status_t* status);

// A create that reports success without an object gives kCallRaised.
void zt_repView_Create(zt_RPCinfo_t* RPCinfo, std::uint32_t tableId, std::uint32_t lastMetricIndex,
                       const std::uint32_t* metricIds, _ptc_ObjId* viewId, error_status_t* status);
void zt_repView_SetPosition(const zt_RPCinfo_t& RPCinfo, const _ptc_ObjId* viewId,
                            std::uint32_t* where, error_status_t* status);
void zt_repView_GetLastPosition(const zt_RPCinfo_t& RPCinfo, const _ptc_ObjId* viewId,
                                std::uint32_t* where, error_status_t* status);
void zt_repView_Read(const zt_RPCinfo_t& RPCinfo, const _ptc_ObjId* viewId,
                     std::uint32_t maxPositionIndex, std::uint32_t* lastPositionIndex,
                     std::uint32_t maxIntResultsIndex, std::uint32_t* lastIntResultsIndex,
                     std::uint32_t maxCharResultsIndex, std::uint32_t* lastCharResultsIndex,
                     std::uint32_t* positions, std::uint32_t* intResults, char* charResults,
                     error_status_t* status);
void zt_repView_Destroy(zt_RPCinfo_t* RPCinfo, _ptc_ObjId* viewId, error_status_t* status);

void zt_repTimeFilter_Create(zt_RPCinfo_t* RPCinfo, std::uint32_t lastShiftIndex,
                             const repTimeFilter_sShiftDescriptor* shifts, _ptc_ObjId* filterId,
                             error_status_t* status);
void zt_repTimeFilter_Destroy(zt_RPCinfo_t* RPCinfo, _ptc_ObjId* filterId, error_status_t* status);
void zt_repFilteredView_Create(zt_RPCinfo_t* RPCinfo, std::uint32_t tableId,
                               const _ptc_ObjId* filterObjId, std::uint32_t lastMetricIndex,
                               const std::uint32_t* metricIds, _ptc_ObjId* viewId,
                               error_status_t* status);
void zt_repTemporalView_Create(zt_RPCinfo_t* RPCinfo, std::uint32_t tableId,
                               const _ptc_ObjId* filterObjId, std::uint32_t interval,
                               std::uint32_t lastInstanceIndex, const std::uint32_t* instanceIds,
                               std::uint32_t lastMetricIndex, const std::uint32_t* metricIds,
                               _ptc_ObjId* viewId, error_status_t* status);

void zt_ag_RegisterZT(const zt_RPCinfo_t& RPCinfo, std::int32_t system_key, error_status_t* status);
void zt_ag_UnregisterZT(const zt_RPCinfo_t& RPCinfo, std::int32_t system_key,
                        error_status_t* status);
void zt_ag_Ping(const zt_RPCinfo_t& RPCinfo, error_status_t* status);
