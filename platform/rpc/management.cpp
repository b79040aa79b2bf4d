#include "platform/rpc/rpc.h"

RPC_STATUS RpcIfInqId(RPC_IF_HANDLE interface, rpc_if_id_t* id) {
  if (interface == nullptr || id == nullptr)
    return RPC_S_INVALID_ARG;
  *id = {interface->id, interface->major, interface->minor};
  return RPC_S_OK;
}
