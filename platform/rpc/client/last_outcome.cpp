// SPDX-License-Identifier: Apache-2.0
// How the last call of this job or thread ended, for whoever has to explain its status.

#include "platform/rpc/client/invoke.h"
#include "platform/rpc/rpc.h"
#include "platform/sys/fiber.h"

namespace rpc {
namespace {

const sys::FiberLocal<RpcCallOutcome> last_call_outcome;

}  // namespace

void set_last_call_outcome(const RpcCallOutcome& outcome) {
  *last_call_outcome = outcome;
}

}  // namespace rpc

const RpcCallOutcome& RpcLastCallOutcome() {
  return *rpc::last_call_outcome;
}
