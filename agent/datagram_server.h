// SPDX-License-Identifier: Apache-2.0
// One UDP server of a system as the scenario wants it: its interfaces on a socket, with the script,
// the bad network and the log around them.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "agent/operation_script.h"
#include "agent/scenario.h"
#include "agent/server_log.h"
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

  // What the server is made of; all is its owner's.
  struct Contents {
    std::vector<rpc::server::Interface*> interfaces;
    std::vector<uuid_t> objects;                     // that calls may name
    std::function<void(const uuid_t& client)> gone;  // a client is forgotten; may be empty
    std::function<void()> all_gone;                  // every client is; may be empty
  };
  // Binds and serves. An empty text, or what failed: address, port and reason. A server that is to
  // be dead takes a port and leaves it again, so that its number is that of no other server.
  std::string open(std::uint32_t address, Contents contents);
  // Becomes another. Where the differences allow it, port, boot time and clients stay; otherwise it
  // is opened anew. With `revive`, one that died lives again. An empty text, or what failed.
  std::string apply(const ServerSettings& settings, bool shared_socket, bool revive);

  // The same for the objects that calls may name: others end it, and apply() opens it anew.
  void set_objects(std::vector<uuid_t> objects);

  // The first half of apply() for one whose socket is to be shared or its own from now on: a port
  // can only be opened in one manner when nobody holds it in the other.
  void leave_socket(bool shared_socket);

  std::uint16_t port() const { return port_; }
  ServerLog& log() { return log_; }
  ContextObserver context_observer();
  void write_counters(const Log& log) const;
  // Ends it, with a rundown of the contexts: before the interfaces that it serves go.
  void close();

 private:
  static std::function<std::size_t(const rpc::SocketAddress&)> path_limit();
  rpc::server::EndpointOptions options();
  std::string open();
  void settle_state(bool revive);

  rpc::server::ServerHost& host_;
  ServerLog log_;
  ServerSettings settings_;
  bool shared_socket_;
  OperationScript script_;
  std::uint32_t address_ = 0;
  Contents contents_;
  std::uint16_t port_ = 0;
  rpc::server::Endpoint* endpoint_ = nullptr;  // belongs to the host
};

}  // namespace agent
