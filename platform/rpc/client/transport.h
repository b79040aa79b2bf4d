// SPDX-License-Identifier: Apache-2.0
// One UDP socket and one clock that drive a call's state machine. Nothing of the protocol is
// decided here. The socket is not connected, since a reply may come from another address or port
// than the one called; what the network says of undelivered datagrams comes from the socket's error
// queue.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/rpc/client/activity.h"
#include "platform/rpc/client/client_call.h"

namespace rpc {

// Room for the datagrams of one batch; shared by the sockets of a thread.
class ReceiveBuffers {
 public:
  static constexpr std::size_t kCount = 16;
  static constexpr std::size_t kSize = 65'536;  // no UDP datagram is larger

  ReceiveBuffers();
  std::byte* at(std::size_t index) { return bytes_.get() + index * kSize; }

 private:
  // Pages that no datagram ever filled take no memory.
  std::unique_ptr<std::byte[]> bytes_;
};

class Transport {
 public:
  // A socket for calls to `server`. open() tells whether the system gave one.
  explicit Transport(const SocketAddress& server);
  ~Transport();
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;

  bool open() const { return descriptor_ >= 0; }

  // The largest datagram that leaves this host for the server unfragmented. Sent requests and
  // announced fragments follow it, up to 8 KiB.
  std::size_t path_limit() const { return path_limit_; }
  // What the socket's buffer holds for certain, in fragments' kilobytes.
  std::uint16_t window_kilobytes() const { return window_kilobytes_; }

  // Runs the call to its end.
  void run(ClientCall& call, ReceiveBuffers& buffers);
  // Why a datagram of the last call came back undelivered, as the system's error number; 0 when
  // none did.
  int undelivered_reason() const { return undelivered_reason_; }
  // Sends one packet and forgets it.
  void send(const OutgoingDatagram& packet);

 private:
  void flush(ClientCall& call);
  void receive(ClientCall& call, ReceiveBuffers& buffers, Duration longest);
  int send_once(const OutgoingDatagram& packet);
  void read_errors(ClientCall* call);
  bool read_error(ClientCall* call);
  void wait_at_most(Duration longest);

  void undelivered(ClientCall& call, int reason, std::span<const std::byte> quoted,
                   const SocketAddress& destination);

  int descriptor_ = -1;
  int undelivered_reason_ = 0;
  std::size_t path_limit_ = kLeastMaxFragment;
  std::uint16_t window_kilobytes_ = 0;
  Duration receive_timeout_{};  // what the kernel was told last; zero: no time-out yet
};

}  // namespace rpc
