// SPDX-License-Identifier: Apache-2.0
// TCP ports on which location brokers listen: one local address each, or one descriptor for every
// loopback address, where the accepted connection tells which system it is for.

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/server/event_loop.h"

namespace agent {

class BrokerListener {
 public:
  enum class Manner {
    accepting,
    // What a client sends is dropped before the kernel looks at it, as behind a firewall or at a
    // full queue: it is neither accepted nor refused.
    unanswering,
  };
  // Takes over the descriptor, which does not block.
  using Receiver = std::function<void(int descriptor, const rpc::SocketAddress& client)>;

  struct Opened {
    std::shared_ptr<BrokerListener> listener;  // null when it failed
    std::string error;                         // address, port and reason
  };
  // Address 0 is every loopback address; port 0 takes any free one. The loop is not owned.
  static Opened open(rpc::server::EventLoop& loop, rpc::SocketAddress local, Manner manner);

  BrokerListener(rpc::server::EventLoop& loop, int descriptor, rpc::SocketAddress local);
  ~BrokerListener();
  BrokerListener(const BrokerListener&) = delete;
  BrokerListener& operator=(const BrokerListener&) = delete;

  std::uint16_t port() const { return local_.port; }
  // False when the address has a receiver already. A connection to an address without one is reset.
  bool attach(std::uint32_t address, Receiver receiver);
  void detach(std::uint32_t address) { receivers_.erase(address); }

 private:
  void accept_some();
  void hand_over(int descriptor, const rpc::SocketAddress& client);
  void pause();

  rpc::server::EventLoop& loop_;
  const int descriptor_;
  const rpc::SocketAddress local_;
  rpc::server::EventLoop::TimerNumber resuming_ = 0;
  std::unordered_map<std::uint32_t, Receiver> receivers_;
};

// The listeners of all loopback addresses, each there as long as a broker uses it.
class SharedListeners {
 public:
  explicit SharedListeners(rpc::server::EventLoop& loop) : loop_(loop) {}
  BrokerListener::Opened attach(const rpc::SocketAddress& local, BrokerListener::Receiver receiver);

 private:
  rpc::server::EventLoop& loop_;
  std::vector<std::weak_ptr<BrokerListener>> listeners_;
};

}  // namespace agent
