// SPDX-License-Identifier: Apache-2.0
// One system of the scenario on its address: location broker, endpoint mapper, repository servers
// and alarm server.

#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/alarm_interface.h"
#include "agent/broker_server.h"
#include "agent/datagram_server.h"
#include "agent/endpoint_map.h"
#include "agent/mapper_interface.h"
#include "agent/metadata_interface.h"
#include "agent/repository.h"
#include "agent/socket_sharing.h"
#include "agent/view_interfaces.h"

namespace agent {

// Repositories are the same for every server of a data source.
using Repositories = std::map<const DataSource*, std::shared_ptr<const Repository>>;

// What the systems of one process have in common.
struct SystemSurroundings {
  rpc::server::EventLoop& loop;
  rpc::server::ServerHost& host;
  const Log& log;
  SharedListeners& listeners;
  const SocketSharing& sharing;
  Repositories& repositories;
};

class SimulatedSystem {
 public:
  // What the surroundings name is not owned and must outlive the system.
  SimulatedSystem(const SystemSurroundings& surroundings, const System& system);
  ~SimulatedSystem();

  // Opens every socket. An empty text, or what failed first: address, port and reason.
  std::string open();

  const EndpointMap& endpoint_map() const { return map_; }
  const BrokerServer& broker() const { return broker_; }
  std::uint16_t mapper_port() const { return mapper_server_.port(); }

 private:
  struct RepositoryNode;
  struct AlarmNode;

  std::string open_repositories();
  std::string open_alarm_server();
  std::string open_mapper();
  void register_server(const Registration& registration, std::uint16_t port,
                       const std::vector<rpc::server::Interface*>& interfaces);
  void register_elements(bool first);

  const System system_;
  BrokerServer broker_;
  EndpointMap map_;
  DatagramServer mapper_server_;
  MapperInterface mapper_;
  std::vector<std::unique_ptr<RepositoryNode>> repositories_;
  std::unique_ptr<AlarmNode> alarm_;
};

}  // namespace agent
