// SPDX-License-Identifier: Apache-2.0
// A bound UDP socket that knows nothing but the packet codec: the other side of what is tested over
// real sockets.

#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <optional>
#include <span>
#include <vector>

#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/wire/pdu.h"

namespace rpc::test {

struct Received {
  PacketHeader header;
  std::vector<std::byte> body;
  SocketAddress source;
};

class UdpSocket {
 public:
  // Port 0: any.
  explicit UdpSocket(std::uint32_t host = INADDR_LOOPBACK, std::uint16_t port = 0)
      : descriptor_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = to_sockaddr({host, port});
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(descriptor_, reinterpret_cast<sockaddr*>(&address), size), 0);
    getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = from_sockaddr(address).port;
    const timeval limit{5, 0};
    setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }
  ~UdpSocket() { close(descriptor_); }
  UdpSocket(const UdpSocket&) = delete;
  UdpSocket& operator=(const UdpSocket&) = delete;

  std::uint16_t port() const { return port_; }
  int descriptor() const { return descriptor_; }

  // The next packet; nothing after five seconds, at once with MSG_DONTWAIT, or when it is none.
  std::optional<Received> receive(int flags = 0) const {
    std::vector<std::byte> storage(65'536);
    sockaddr_in source{};
    socklen_t size = sizeof source;
    const ssize_t got = recvfrom(descriptor_, storage.data(), storage.size(), flags,
                                 reinterpret_cast<sockaddr*>(&source), &size);
    if (got < 0)
      return std::nullopt;
    const auto packet = decode_packet(std::span(storage).first(static_cast<std::size_t>(got)));
    if (!packet)
      return std::nullopt;
    return Received{
        packet->header, {packet->body.begin(), packet->body.end()}, from_sockaddr(source)};
  }

  void send(const PacketHeader& header, std::span<const std::byte> body,
            const SocketAddress& to) const {
    send(encode_packet(header, body), to);
  }
  void send(std::span<const std::byte> datagram, const SocketAddress& to) const {
    const sockaddr_in address = to_sockaddr(to);
    sendto(descriptor_, datagram.data(), datagram.size(), 0,
           reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }

 private:
  int descriptor_;
  std::uint16_t port_ = 0;
};

}  // namespace rpc::test
