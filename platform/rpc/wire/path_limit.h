// SPDX-License-Identifier: Apache-2.0
// How large a datagram the way to a host carries.

#pragma once

#include <cstddef>

#include "platform/rpc/names/socket_address.h"

namespace rpc {

// The largest datagram that leaves this host for the other unfragmented, up to 8 KiB.
std::size_t path_limit_to(const SocketAddress& host);

}  // namespace rpc
