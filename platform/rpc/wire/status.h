// SPDX-License-Identifier: Apache-2.0
// Numbers that servers put into reject and fault packets (C706 appendix E) and the workstation's
// number for each.

#pragma once

#include <cstdint>

namespace rpc {

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

// The workstation's status for the number of a reject packet: the operation was not entered. Any
// number that no reject can mean gives 1726. Never 0.
std::uint32_t from_reject(std::uint32_t number);

// The same for a fault packet: the operation was entered and failed. A number outside the
// architecture's range is the server's own and is handed on as it is. Never 0: a fault that carries
// 0 would otherwise look like a success, and gives 1726.
std::uint32_t from_fault(std::uint32_t number);

}  // namespace rpc
