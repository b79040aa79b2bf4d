// SPDX-License-Identifier: Apache-2.0
// What the machines of both ends take in and hand out. Both are driven alike: receive() takes a
// datagram, on_time() does what is due, wakeup() says when it must be called, and next_datagram()
// hands out what is to be sent, until there is nothing more.

#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/wire/pdu.h"
#include "platform/rpc/wire/time_constants.h"

namespace rpc {

// A packet that has come in, as every handler of one gets it.
struct Arrival {
  Packet packet;
  SocketAddress source;
  Time now;

  const PacketHeader& header() const { return packet.header; }
  bool little_endian() const { return packet.header.representation.little_endian; }
};

// One datagram to send: the header's bytes and the body behind it. The body is valid until the
// machine that handed it out is used again, but for handing out more.
struct OutgoingDatagram {
  SocketAddress to;
  std::array<std::byte, kHeaderSize> header;
  std::span<const std::byte> body;
  bool call_back = false;  // a server's; may leave from another port than its answers

  // In one piece.
  std::vector<std::byte> bytes() const;
};

// Small packets that wait to be taken, in the order in which they were put in.
class Outbox {
 public:
  void put(const SocketAddress& to, const PacketHeader& header, std::vector<std::byte> body = {},
           bool call_back = false);
  std::optional<OutgoingDatagram> next();
  std::size_t waiting() const { return items_.size() - taken_; }
  void clear();

 private:
  struct Item {
    OutgoingDatagram datagram;
    std::vector<std::byte> body;
  };
  std::vector<Item> items_;  // those before taken_ were handed out
  std::size_t taken_ = 0;
};

}  // namespace rpc
