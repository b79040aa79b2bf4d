// SPDX-License-Identifier: Apache-2.0
// What generated client stubs call besides the NDR engine: the target behind a handle, context
// handles, and the rules for a failed call's status.

#pragma once

#include "platform/rpc/client/invoke.h"
#include "platform/rpc/exception.h"
#include "platform/rpc/rpc.h"
#include "platform/rpc/stub/wire_context.h"

namespace rpc {

// A copy of what the binding says now. Throws 1702 for a null, stale or foreign handle.
CallTarget target_of(RPC_BINDING_HANDLE binding);
// The server that issued the context. Throws 1775 for a null, stale or foreign handle.
CallTarget target_of(RPC_CONTEXT_HANDLE context);
// The 20 bytes to send. Throws 1775 for a null, stale or foreign handle.
WireContext wire_context(RPC_CONTEXT_HANDLE context);

// Stores a received context in the caller's handle: a null one frees the client's object and makes
// the pointer null; another replaces or creates it, remembering the target.
void store_context(RPC_CONTEXT_HANDLE* context, const WireContext& received,
                   const CallTarget& target);

// Throws 1780 when a reference pointer is null.
template <typename T>
void require_reference(T* pointer) {
  if (pointer == nullptr)
    throw RpcException(RPC_X_NULL_REF_POINTER, FailureKind::local);
}

}  // namespace rpc
