// An IPv4 address and a UDP port, both in host order.

#pragma once

#include <compare>
#include <cstdint>

namespace rpc {

struct SocketAddress {
  std::uint32_t host = 0;
  std::uint16_t port = 0;

  friend auto operator<=>(const SocketAddress&, const SocketAddress&) = default;
};

}  // namespace rpc
