// SPDX-License-Identifier: Apache-2.0
// A location broker on a TCP port, with the manners that its scenario gives it. Connections are
// bounded in number, age and size.

#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "agent/broker_listener.h"
#include "agent/broker_registry.h"
#include "agent/log.h"
#include "agent/scenario.h"
#include "platform/rpc/server/event_loop.h"

namespace agent {

class BrokerServer {
 public:
  static constexpr std::size_t kMostConnections = 64;

  // `address` in host order; a port of 0 takes any free one. The loop, the log and the listeners
  // (null: it opens one of its own) are not owned.
  BrokerServer(rpc::server::EventLoop& loop, const Log& log, std::string name,
               std::uint32_t address, const LocationBroker& settings,
               SharedListeners* shared = nullptr);
  ~BrokerServer();
  BrokerServer(const BrokerServer&) = delete;
  BrokerServer& operator=(const BrokerServer&) = delete;

  // Binds and listens. An empty text, or what failed: address, port and reason.
  std::string open();
  std::uint16_t port() const { return listener_ != nullptr ? listener_->port() : settings_.port; }
  std::size_t connections() const { return connections_.size(); }
  const BrokerRegistry& registry() const { return registry_; }

 private:
  class Connection;
  using Connections = std::list<std::unique_ptr<Connection>>;

  void accepted(int descriptor, const rpc::SocketAddress& client);
  bool make_room();
  void close_listener();
  void remove(Connection* connection);

  rpc::server::EventLoop& loop_;
  const Log& log_;
  const std::string name_;
  const std::uint32_t address_;
  SharedListeners* const shared_;
  const LocationBroker settings_;
  BrokerRegistry registry_;
  std::shared_ptr<BrokerListener> listener_;
  Connections connections_;
};

}  // namespace agent
