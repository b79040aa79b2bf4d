// SPDX-License-Identifier: Apache-2.0
// A UDP port on one local address, or on every loopback address at once: thousands of systems then
// share one descriptor, and the kernel tells which of them a datagram is for (IP_PKTINFO).

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>

#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/server/event_loop.h"
#include "platform/rpc/wire/datagram.h"

namespace rpc::server {

class DatagramSocket : public std::enable_shared_from_this<DatagramSocket> {
 public:
  // The local address, in host order, that stands for all of 127.0.0.0/8.
  static constexpr std::uint32_t kEveryLoopbackAddress = 0;
  // Gets the datagrams that waited one by one, and then hears that these were all.
  struct Receiver {
    std::function<void(const SocketAddress& source, std::span<const std::byte> datagram)> datagram;
    std::function<void()> done;
  };

  struct Opened {
    std::shared_ptr<DatagramSocket> socket;  // null when it failed
    std::string error;                       // address, port and reason, for people
  };
  // Port 0 takes any free one. The loop is not owned and must outlive the socket.
  static Opened open(EventLoop& loop, SocketAddress local);

  DatagramSocket(EventLoop& loop, int descriptor, SocketAddress local);
  ~DatagramSocket();
  DatagramSocket(const DatagramSocket&) = delete;
  DatagramSocket& operator=(const DatagramSocket&) = delete;

  std::uint16_t port() const { return local_.port; }
  // From now on datagrams for the address go to the receiver. False when it has one already.
  // Datagrams for an address without a receiver are dropped.
  bool attach(std::uint32_t address, Receiver receiver);
  void detach(std::uint32_t address);
  // Sends from the address. A datagram that the system does not take is lost, as the network may
  // lose it.
  void send(std::uint32_t address, std::span<const OutgoingDatagram> datagrams);
  // What may be no packet any more.
  void send(std::uint32_t address, const SocketAddress& to, std::span<const std::byte> bytes);

 private:
  void on_readable();
  bool shared() const { return local_.host == kEveryLoopbackAddress; }

  EventLoop& loop_;
  const int descriptor_;
  const SocketAddress local_;
  std::unordered_map<std::uint32_t, std::shared_ptr<const Receiver>> receivers_;
};

}  // namespace rpc::server
