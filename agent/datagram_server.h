// SPDX-License-Identifier: Apache-2.0
// One UDP server of a system as the scenario wants it: its interfaces on a socket, with the script,
// the bad network and the log around them.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "agent/log.h"
#include "agent/operation_script.h"
#include "agent/scenario.h"
#include "platform/rpc/server/server_host.h"

namespace agent {

class DatagramServer {
 public:
  // `name` is how the log calls the server. The host and the log are not owned. With a shared
  // socket its port is that of servers on other addresses too.
  DatagramServer(rpc::server::ServerHost& host, const Log& log, std::string name,
                 const ServerSettings& settings, bool shared_socket);
  ~DatagramServer();
  DatagramServer(const DatagramServer&) = delete;
  DatagramServer& operator=(const DatagramServer&) = delete;

  OperationScript& script() { return script_; }
  // Binds and serves the interfaces, which are not owned. `gone` is told of forgotten clients; may
  // be empty. An empty text, or what failed: address, port and reason. A server that is to be dead
  // takes a port and leaves it again, so that its number is that of no other server.
  std::string open(std::uint32_t address, std::vector<rpc::server::Interface*> interfaces,
                   std::function<void(const uuid_t&)> gone);
  std::uint16_t port() const { return port_; }
  rpc::server::Endpoint* endpoint() { return endpoint_; }

 private:
  rpc::server::EndpointOptions options(std::uint32_t address);
  void log_datagram(rpc::server::Direction direction, const rpc::SocketAddress& peer,
                    std::span<const std::byte> datagram) const;
  void log_call(const rpc::server::CallInfo& call, const rpc::OperationSpec& operation,
                const rpc::server::Outcome& outcome) const;

  rpc::server::ServerHost& host_;
  const Log& log_;
  const std::string name_;
  const ServerSettings settings_;
  const bool shared_socket_;
  OperationScript script_;
  std::uint16_t port_ = 0;
  rpc::server::Endpoint* endpoint_ = nullptr;  // belongs to the host
};

}  // namespace agent
