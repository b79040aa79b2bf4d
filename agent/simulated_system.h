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

// Repositories are the same for every server of a data source; sources of one content are one.
class Repositories {
 public:
  std::shared_ptr<const Repository> of(const std::shared_ptr<const DataSource>& source);

 private:
  std::vector<std::weak_ptr<const Repository>> all_;
};

// What the systems of one process have in common.
struct SystemSurroundings {
  rpc::server::EventLoop& loop;
  rpc::server::ServerHost& host;
  const Log& log;
  SharedListeners& listeners;
  Repositories& repositories;
};

class SimulatedSystem {
 public:
  // What the surroundings name is not owned and must outlive the system.
  SimulatedSystem(const SystemSurroundings& surroundings, const SocketSharing& sharing,
                  const System& system);
  ~SimulatedSystem();

  // Opens every socket. An empty text, or what failed first: address, port and reason.
  std::string open();
  // Becomes another system of this name and address: what differs is changed, all else stays as it
  // is. leave_sockets() comes first, for every system. An empty text, or what failed first. The
  // server `revived` ("mapper", "alarm", or a source's key) lives again if it died.
  void leave_sockets(const System& wanted, const SocketSharing& sharing);
  std::string apply(const System& wanted, const SocketSharing& sharing, std::string_view revived);

  const System& system() const { return system_; }
  void write_counters(const Log& log) const;
  const EndpointMap& endpoint_map() const { return map_; }
  const BrokerServer& broker() const { return broker_; }
  std::uint16_t mapper_port() const { return mapper_server_.port(); }

 private:
  struct RepositoryNode;
  struct AlarmNode;

  std::string open_mapper();
  std::string apply_repositories(const System& wanted, const SocketSharing& sharing,
                                 std::string_view revived);
  std::string apply_alarm(const System& wanted, const SocketSharing& sharing,
                          std::string_view revived);
  std::unique_ptr<RepositoryNode> make_repository(const RepositoryServer& one,
                                                  const SocketSharing& sharing) const;
  std::string open_alarm();
  void fill_map();
  void register_server(const Registration& registration, std::uint16_t port,
                       const std::vector<rpc::server::Interface*>& interfaces);
  void register_elements(bool first);

  const SystemSurroundings around_;
  System system_;
  BrokerServer broker_;
  EndpointMap map_;
  DatagramServer mapper_server_;
  MapperInterface mapper_;
  std::vector<std::unique_ptr<RepositoryNode>> repositories_;
  std::unique_ptr<AlarmNode> alarm_;
};

}  // namespace agent
