// SPDX-License-Identifier: Apache-2.0
// One UDP socket that drives the state machines of calls, many at once when they run on fibers.
// Nothing of the protocol is decided here. The socket is not connected, since a reply may come from
// another address or port than the one called, and one socket serves all servers: what comes in
// finds its call by the activity. What the network says of undelivered datagrams comes from the
// socket's error queue.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/rpc/client/activity.h"
#include "platform/rpc/client/client_call.h"
#include "platform/sys/fiber.h"

namespace rpc {

class Transport {
 public:
  // open() tells whether the system gave a socket. On a fiber, the transport must end before its
  // loop.
  Transport();
  ~Transport();
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;

  bool open() const { return descriptor_ >= 0; }
  // What the socket's buffer holds for certain while `calls` calls share it, in fragments'
  // kilobytes.
  std::uint16_t window_kilobytes(std::size_t calls) const;

  // Runs the call to its end. Why a datagram of it came back undelivered, as the system's error
  // number; 0 when none did.
  int run(ClientCall& call, const Activity& activity);
  // Sends one packet and forgets it.
  void send(const OutgoingDatagram& packet);

 private:
  struct Running;

  void flush(Running& running);
  void wait(const Running& running, Time until);
  void receive(std::size_t most, int flags);
  void deliver(std::span<const std::byte> datagram, const SocketAddress& source, Time now);
  int send_once(const OutgoingDatagram& packet);
  void read_errors();
  bool read_error();
  void undelivered(int reason, std::span<const std::byte> quoted, const SocketAddress& destination);
  void wait_at_most(Duration longest);

  int descriptor_ = -1;
  int receive_buffer_ = 0;      // what the kernel granted
  Duration receive_timeout_{};  // what the kernel was told last; zero: no time-out yet
  std::vector<Running*> running_;
  std::unique_ptr<sys::FiberLoop::Watch> watch_;
};

}  // namespace rpc
