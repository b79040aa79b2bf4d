// SPDX-License-Identifier: Apache-2.0
// The workstation's number for each that servers put into reject and fault packets (C706 appendix
// E).

#pragma once

#include <cstdint>

#include "platform/numbers/status.h"

namespace rpc {

// The workstation's status for the number of a reject packet: the operation was not entered. Any
// number that no reject can mean gives 1726. Never 0.
std::uint32_t from_reject(std::uint32_t number);

// The same for a fault packet: the operation was entered and failed. A number outside the
// architecture's range is the server's own and is handed on as it is. Never 0: a fault that carries
// 0 would otherwise look like a success, and gives 1726.
std::uint32_t from_fault(std::uint32_t number);

}  // namespace rpc
