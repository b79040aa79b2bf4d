// SPDX-License-Identifier: Apache-2.0
// What generated skeletons call besides the NDR engine: the rules for what becomes of a call that
// fails.

#pragma once

#include <new>
#include <span>
#include <utility>

#include "platform/rpc/exception.h"
#include "platform/rpc/server/exported_interface.h"
#include "platform/rpc/stub/ndr.h"
#include "platform/rpc/stub/wire_context.h"

namespace rpc::server {

// An operation other than one that also returns the context refuses a null one.
inline void require_context(const WireContext& context) {
  if (context.null())
    throw Fault(nca::kContextMismatch);
}

// Runs `operation(decoder, encoder, entered)`, which sets `entered` when the in-parameters are
// decoded. In-parameters that cannot be decoded reject the call; everything later is a fault: what
// the operation throws, and results that do not fit their arrays.
template <typename Operation>
Outcome answer(const CallInfo& call, std::span<const std::byte> request,
               DataRepresentation representation, bool reply_little_endian, Operation operation) {
  bool entered = false;
  try {
    ndr::Decoder in(request, representation);
    ndr::Encoder out(reply_little_endian, ndr::kReplyReferents, &in);
    operation(in, out, entered);
    if (call.record != nullptr)
      call.record->octets_left_over = in.remaining();
    return {Outcome::Kind::reply, 0, out.take()};
  } catch (const Unanswered&) {
    return Outcome::none();
  } catch (const Fault& fault) {
    return Outcome::fault(fault.status());
  } catch (const RpcException& failure) {
    if (entered)
      return Outcome::fault(nca::kInvalidBound);
    return Outcome::reject(failure.kind() == FailureKind::communication ? nca::kUnsupportedType
                                                                        : nca::kProtocolError);
  } catch (const std::bad_alloc&) {
    return Outcome::fault(nca::kRemoteNoMemory);
  }
}

}  // namespace rpc::server
