// SPDX-License-Identifier: Apache-2.0
// Server objects that a client holds. Each remembers the server that issued it, so that a call on
// it goes there whatever became of the binding.

#include "platform/rpc/client/liveness.h"
#include "platform/rpc/handle_table.h"
#include "platform/rpc/stub/stub.h"

namespace rpc {
namespace {

struct Context {
  WireContext wire;
  CallTarget target;
};

HandleTable<RPC_CONTEXT_HANDLE, Context>& contexts() {
  static HandleTable<RPC_CONTEXT_HANDLE, Context> table;
  return table;
}

std::shared_ptr<Context> require_context(RPC_CONTEXT_HANDLE handle) {
  std::shared_ptr<Context> found = contexts().find(handle);
  if (found == nullptr)
    throw RpcException(RPC_X_SS_IN_NULL_CONTEXT, FailureKind::local);
  return found;
}

}  // namespace

CallTarget target_of(RPC_CONTEXT_HANDLE context) {
  return require_context(context)->target;
}

WireContext wire_context(RPC_CONTEXT_HANDLE context) {
  const std::shared_ptr<Context> held = require_context(context);
  liveness::touch(held->target);
  return held->wire;
}

void store_context(RPC_CONTEXT_HANDLE* context, const WireContext& received,
                   const CallTarget& target) {
  if (*context != nullptr && received.null()) {
    if (const std::shared_ptr<Context> held = contexts().remove(*context))
      liveness::release(held->target);
    *context = nullptr;
    return;
  }
  if (received.null())
    return;
  if (const std::shared_ptr<Context> held = contexts().find(*context)) {
    liveness::release(held->target);
    liveness::hold(target);
    *held = {received, target};
    return;
  }
  liveness::hold(target);
  *context = contexts().insert({received, target});
}

}  // namespace rpc
