// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/wire/status.h"

namespace rpc {
namespace {

enum class Carrier : std::uint8_t { both, fault_only };

struct Mapping {
  std::uint32_t number;
  Carrier carrier;
  std::uint32_t status;
};

constexpr Mapping kMappings[] = {
    {nca::kZeroDivide, Carrier::fault_only, RPC_S_ZERO_DIVIDE},
    {nca::kAddressError, Carrier::fault_only, RPC_S_ADDRESS_ERROR},
    {nca::kFloatZeroDivide, Carrier::fault_only, RPC_S_FP_DIV_ZERO},
    {nca::kFloatUnderflow, Carrier::fault_only, RPC_S_FP_UNDERFLOW},
    {nca::kFloatOverflow, Carrier::fault_only, RPC_S_FP_OVERFLOW},
    {nca::kInvalidTag, Carrier::fault_only, RPC_S_INVALID_TAG},
    {nca::kInvalidBound, Carrier::fault_only, RPC_S_INVALID_BOUND},
    {nca::kVersionMismatch, Carrier::both, RPC_S_PROTOCOL_ERROR},
    {nca::kBadActivity, Carrier::both, RPC_S_CALL_FAILED_DNE},
    {nca::kWhoAreYouFailed, Carrier::both, RPC_S_CALL_FAILED_DNE},
    {nca::kManagerNotEntered, Carrier::both, RPC_S_CALL_FAILED_DNE},
    {nca::kCancelled, Carrier::fault_only, RPC_S_CALL_CANCELLED},
    {nca::kFloatError, Carrier::fault_only, RPC_S_FP_OVERFLOW},
    {nca::kIntegerOverflow, Carrier::fault_only, RPC_S_ZERO_DIVIDE},
    {nca::kContextMismatch, Carrier::fault_only, RPC_X_INVALID_HANDLE},
    {nca::kRemoteNoMemory, Carrier::both, RPC_S_SERVER_OUT_OF_MEMORY},
    {nca::kCommunicationFailure, Carrier::both, RPC_S_COMM_FAILURE},
    {nca::kOperationRange, Carrier::both, RPC_S_PROCNUM_OUT_OF_RANGE},
    {nca::kUnknownInterface, Carrier::both, RPC_S_UNKNOWN_IF},
    {nca::kWrongBootTime, Carrier::both, RPC_S_CALL_FAILED_DNE},
    {nca::kProtocolError, Carrier::both, RPC_S_PROTOCOL_ERROR},
    {nca::kOutArgumentsTooBig, Carrier::both, RPC_S_SERVER_OUT_OF_MEMORY},
    {nca::kServerTooBusy, Carrier::both, RPC_S_SERVER_TOO_BUSY},
    {nca::kUnsupportedType, Carrier::both, RPC_S_UNSUPPORTED_TYPE},
};

// The architecture's own numbers; every one that the table does not name is a failed call.
constexpr bool is_architected(std::uint32_t number) {
  return number >= 0x1C000000 && number <= 0x1C01FFFF;
}

}  // namespace

std::uint32_t from_reject(std::uint32_t number) {
  for (const Mapping& mapping : kMappings)
    if (mapping.number == number && mapping.carrier == Carrier::both)
      return mapping.status;
  return RPC_S_CALL_FAILED;
}

std::uint32_t from_fault(std::uint32_t number) {
  for (const Mapping& mapping : kMappings)
    if (mapping.number == number)
      return mapping.status;
  return is_architected(number) || number == 0 ? RPC_S_CALL_FAILED : number;
}

}  // namespace rpc
