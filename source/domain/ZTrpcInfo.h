// SPDX-License-Identifier: Apache-2.0
// The record of one connected server, and the trace lines of the calls made with it.

#pragma once

#include <cstdint>
#include <string>

#include "platform/rpc/rpc.h"

enum zt_RPCversion_t : std::int32_t {
  ZT_RPC_NO_VERSION = 0,
  ZT_RPC_V1 = 1,
  ZT_RPC_V2 = 2,
};
inline constexpr zt_RPCversion_t zt_RPCversion_min = ZT_RPC_V2;
inline constexpr zt_RPCversion_t zt_RPCversion_max = ZT_RPC_V2;

struct zt_RPCinfo_t {
  RPC_BINDING_HANDLE rpc_handle = nullptr;
  RPC_CONTEXT_HANDLE filter_context = nullptr;  // the time filter on the server
  RPC_CONTEXT_HANDLE view_context = nullptr;    // the view on the server
  zt_RPCversion_t version = ZT_RPC_NO_VERSION;
};

// Statuses besides the runtime's: an exception ended the call, and the repository server's own
// numbers, which begin with "nothing found".
inline constexpr error_status_t kCallRaised = 101;
inline constexpr error_status_t kRepNothingFound = 0x4C010001;
// Statuses of the connection to a system.
inline constexpr error_status_t kAgentTooOld = 300;
inline constexpr error_status_t kLocationBrokerFailed = 301;

// The runtime's text for a status, or a sentence that names the status when there is none.
std::string zt_status_text(error_status_t status);

// Writes one trace line of a remote call: its entry (enter not 0) or its exit with the status. A
// number that the server put into a fault or reject stands behind the status text.
void zt_rpc_log(int enter, const char* operation, const zt_RPCinfo_t& RPCinfo,
                error_status_t status);
