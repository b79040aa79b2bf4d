// SPDX-License-Identifier: Apache-2.0
// An IPv4 address and a port, both in host order.

#pragma once

#include <netinet/in.h>

#include <compare>
#include <cstdint>
#include <string>

namespace rpc {

struct SocketAddress {
  std::uint32_t host = 0;
  std::uint16_t port = 0;

  friend auto operator<=>(const SocketAddress&, const SocketAddress&) = default;
};

sockaddr_in to_sockaddr(const SocketAddress& address);
SocketAddress from_sockaddr(const sockaddr_in& address);

// "10.1.2.3"
std::string dotted(std::uint32_t host);
// "10.1.2.3:135"
std::string to_text(const SocketAddress& address);

// Lets routers cut the socket's datagrams into fragments. Otherwise one that is too large for a
// link on its way is lost until the router's message about it arrives, and for good where messages
// of routers are filtered.
void allow_fragments_of_ip(int descriptor);

}  // namespace rpc
