// SPDX-License-Identifier: Apache-2.0
// Every status number of remote calls, once: the workstation's (what a caller sees), those of
// reject and fault packets, and the endpoint mapper's own.

#pragma once

#include <cstdint>

using RPC_STATUS = std::uint32_t;
using error_status_t = std::uint32_t;

inline constexpr RPC_STATUS RPC_S_OK = 0;
inline constexpr RPC_STATUS RPC_S_ACCESS_DENIED = 5;
inline constexpr RPC_STATUS RPC_X_INVALID_HANDLE = 6;
inline constexpr RPC_STATUS RPC_S_OUT_OF_MEMORY = 8;
inline constexpr RPC_STATUS RPC_S_INVALID_ARG = 87;
inline constexpr RPC_STATUS RPC_S_SERVER_OUT_OF_MEMORY = 1130;
inline constexpr RPC_STATUS RPC_S_INVALID_STRING_BINDING = 1700;
inline constexpr RPC_STATUS RPC_S_WRONG_KIND_OF_BINDING = 1701;
inline constexpr RPC_STATUS RPC_S_INVALID_BINDING = 1702;
inline constexpr RPC_STATUS RPC_S_PROTSEQ_NOT_SUPPORTED = 1703;
inline constexpr RPC_STATUS RPC_S_INVALID_RPC_PROTSEQ = 1704;
inline constexpr RPC_STATUS RPC_S_INVALID_STRING_UUID = 1705;
inline constexpr RPC_STATUS RPC_S_INVALID_ENDPOINT_FORMAT = 1706;
inline constexpr RPC_STATUS RPC_S_INVALID_NET_ADDR = 1707;
inline constexpr RPC_STATUS RPC_S_NO_ENDPOINT_FOUND = 1708;
inline constexpr RPC_STATUS RPC_S_INVALID_TIMEOUT = 1709;
inline constexpr RPC_STATUS RPC_S_NOT_LISTENING = 1715;
inline constexpr RPC_STATUS RPC_S_UNKNOWN_IF = 1717;
inline constexpr RPC_STATUS RPC_S_SERVER_UNAVAILABLE = 1722;
inline constexpr RPC_STATUS RPC_S_SERVER_TOO_BUSY = 1723;
inline constexpr RPC_STATUS RPC_S_CALL_FAILED = 1726;
inline constexpr RPC_STATUS RPC_S_CALL_FAILED_DNE = 1727;
inline constexpr RPC_STATUS RPC_S_PROTOCOL_ERROR = 1728;
inline constexpr RPC_STATUS RPC_S_UNSUPPORTED_TRANS_SYN = 1730;
inline constexpr RPC_STATUS RPC_S_UNSUPPORTED_TYPE = 1732;
inline constexpr RPC_STATUS RPC_S_INVALID_TAG = 1733;
inline constexpr RPC_STATUS RPC_S_INVALID_BOUND = 1734;
inline constexpr RPC_STATUS RPC_S_PROCNUM_OUT_OF_RANGE = 1745;
inline constexpr RPC_STATUS EPT_S_NOT_REGISTERED = 1753;
inline constexpr RPC_STATUS RPC_S_CANNOT_SUPPORT = 1764;
inline constexpr RPC_STATUS RPC_S_ZERO_DIVIDE = 1767;
inline constexpr RPC_STATUS RPC_S_ADDRESS_ERROR = 1768;
inline constexpr RPC_STATUS RPC_S_FP_DIV_ZERO = 1769;
inline constexpr RPC_STATUS RPC_S_FP_UNDERFLOW = 1770;
inline constexpr RPC_STATUS RPC_S_FP_OVERFLOW = 1771;
inline constexpr RPC_STATUS RPC_X_NO_MORE_ENTRIES = 1772;
inline constexpr RPC_STATUS RPC_X_SS_IN_NULL_CONTEXT = 1775;
inline constexpr RPC_STATUS RPC_X_NULL_REF_POINTER = 1780;
inline constexpr RPC_STATUS RPC_X_BAD_STUB_DATA = 1783;
inline constexpr RPC_STATUS RPC_S_CALL_CANCELLED = 1818;
inline constexpr RPC_STATUS RPC_S_COMM_FAILURE = 1820;

namespace rpc {

// What servers put into reject and fault packets (C706 appendix E).
namespace nca {
inline constexpr std::uint32_t kZeroDivide = 0x1C000001;
inline constexpr std::uint32_t kAddressError = 0x1C000002;
inline constexpr std::uint32_t kFloatZeroDivide = 0x1C000003;
inline constexpr std::uint32_t kFloatUnderflow = 0x1C000004;
inline constexpr std::uint32_t kFloatOverflow = 0x1C000005;
inline constexpr std::uint32_t kInvalidTag = 0x1C000006;
inline constexpr std::uint32_t kInvalidBound = 0x1C000007;
inline constexpr std::uint32_t kVersionMismatch = 0x1C000008;
inline constexpr std::uint32_t kUnspecifiedReject = 0x1C000009;
inline constexpr std::uint32_t kBadActivity = 0x1C00000A;
inline constexpr std::uint32_t kWhoAreYouFailed = 0x1C00000B;
inline constexpr std::uint32_t kManagerNotEntered = 0x1C00000C;
inline constexpr std::uint32_t kCancelled = 0x1C00000D;
inline constexpr std::uint32_t kIllegalInstruction = 0x1C00000E;
inline constexpr std::uint32_t kFloatError = 0x1C00000F;
inline constexpr std::uint32_t kIntegerOverflow = 0x1C000010;
inline constexpr std::uint32_t kUnspecifiedFault = 0x1C000012;
inline constexpr std::uint32_t kContextMismatch = 0x1C00001A;
inline constexpr std::uint32_t kRemoteNoMemory = 0x1C00001B;
inline constexpr std::uint32_t kUnsupportedAuthentication = 0x1C00001D;
inline constexpr std::uint32_t kCommunicationFailure = 0x1C010001;
inline constexpr std::uint32_t kOperationRange = 0x1C010002;
inline constexpr std::uint32_t kUnknownInterface = 0x1C010003;
inline constexpr std::uint32_t kWrongBootTime = 0x1C010006;
inline constexpr std::uint32_t kYouCrashed = 0x1C010009;
inline constexpr std::uint32_t kProtocolError = 0x1C01000B;
inline constexpr std::uint32_t kOutArgumentsTooBig = 0x1C010013;
inline constexpr std::uint32_t kServerTooBusy = 0x1C010014;
inline constexpr std::uint32_t kUnsupportedType = 0x1C010017;
}  // namespace nca

// The endpoint mapper's statuses (C706 appendix O).
namespace ept {
inline constexpr error_status_t kCannotPerform = 0x16C9A0CD;
inline constexpr error_status_t kNotRegistered = 0x16C9A0D6;
}  // namespace ept

}  // namespace rpc
