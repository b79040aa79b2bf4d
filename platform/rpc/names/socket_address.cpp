// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/names/socket_address.h"

#include <arpa/inet.h>
#include <sys/socket.h>

namespace rpc {

sockaddr_in to_sockaddr(const SocketAddress& address) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(address.port);
  result.sin_addr.s_addr = htonl(address.host);
  return result;
}

SocketAddress from_sockaddr(const sockaddr_in& address) {
  return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

std::string dotted(std::uint32_t host) {
  return std::to_string(host >> 24) + "." + std::to_string(host >> 16 & 0xFF) + "." +
         std::to_string(host >> 8 & 0xFF) + "." + std::to_string(host & 0xFF);
}

std::string to_text(const SocketAddress& address) {
  return dotted(address.host) + ":" + std::to_string(address.port);
}

void allow_fragments_of_ip(int descriptor) {
  const int never = IP_PMTUDISC_DONT;
  setsockopt(descriptor, IPPROTO_IP, IP_MTU_DISCOVER, &never, sizeof never);
}

}  // namespace rpc
