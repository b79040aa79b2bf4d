// SPDX-License-Identifier: Apache-2.0
// A location broker on a TCP port, with the manners that its scenario gives it. Connections are
// bounded in number, age and size.

#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
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
  // Becomes another; connections stay. An empty text, or what failed.
  std::string apply(const LocationBroker& settings, SharedListeners* shared);
  // The first half of apply() for one whose port is to be shared or its own from now on.
  void leave_listener(SharedListeners* shared);
  std::uint16_t port() const { return listener_ != nullptr ? listener_->port() : settings_.port; }
  std::size_t connections() const { return connections_.size(); }
  const BrokerRegistry& registry() const { return *registry_; }

 private:
  class Connection;
  using Connections = std::list<std::unique_ptr<Connection>>;

  void accepted(int descriptor, const rpc::SocketAddress& client);
  bool make_room();
  void tell_connection(const std::string& peer, const char* change) const;
  void close_listener();
  void remove(Connection* connection);

  rpc::server::EventLoop& loop_;
  const Log& log_;
  const std::string name_;
  const std::uint32_t address_;
  SharedListeners* shared_;
  LocationBroker settings_;
  std::optional<BrokerRegistry> registry_;  // always there
  std::shared_ptr<BrokerListener> listener_;
  Connections connections_;
};

}  // namespace agent
