// SPDX-License-Identifier: Apache-2.0
#include "mgmt.h"
#include "platform/rpc/client/invoke.h"
#include "platform/rpc/rpc.h"

RPC_STATUS RpcIfInqId(RPC_IF_HANDLE interface, rpc_if_id_t* id) {
  if (interface == nullptr || id == nullptr)
    return RPC_S_INVALID_ARG;
  *id = {interface->id, interface->major, interface->minor};
  return RPC_S_OK;
}

void RpcMgmtAcknowledge() {
  rpc::release_activities(true);
}

std::optional<std::chrono::milliseconds> RpcMgmtLimitWaits(
    std::optional<std::chrono::milliseconds> longest) {
  return rpc::limit_waits(longest);
}

RPC_STATUS RpcMgmtIsServerListening(RPC_BINDING_HANDLE binding) {
  try {
    error_status_t status = RPC_S_OK;
    const bool listening = mgmt_is_server_listening(binding, &status) != 0;
    if (status != RPC_S_OK)
      return status;
    return listening ? RPC_S_OK : RPC_S_NOT_LISTENING;
  } catch (const rpc::RpcException& failure) {
    return failure.status();
  }
}
