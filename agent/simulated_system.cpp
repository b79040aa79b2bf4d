// SPDX-License-Identifier: Apache-2.0
#include "agent/simulated_system.h"

#include <utility>

#include "platform/rpc/names/protocol_sequence.h"
#include "platform/rpc/names/tower.h"

namespace agent {

namespace {

using rpc::server::Interface;

std::shared_ptr<const Repository> repository_of(Repositories& all,
                                                const std::shared_ptr<const DataSource>& source) {
  auto& repository = all[source.get()];
  if (repository == nullptr)
    repository = std::make_shared<const Repository>(source);
  return repository;
}

}  // namespace

struct SimulatedSystem::RepositoryNode {
  RepositoryNode(rpc::server::ServerHost& host, const Log& log, const std::string& name,
                 const RepositoryServer& settings, bool shared_socket,
                 std::shared_ptr<const Repository> shared)
      : registration(settings.registration),
        repository(std::move(shared)),
        contexts(*repository),
        server(host, log, name, settings.server, shared_socket),
        metadata(server.script(), *repository),
        views(view_interfaces(server.script(), contexts)) {}

  std::vector<Interface*> interfaces() {
    std::vector<Interface*> all{&metadata};
    for (const auto& interface : views)
      all.push_back(interface.get());
    return all;
  }

  const Registration registration;
  std::shared_ptr<const Repository> repository;
  ViewContexts contexts;
  DatagramServer server;
  MetadataInterface metadata;
  std::vector<std::unique_ptr<Interface>> views;
};

struct SimulatedSystem::AlarmNode {
  AlarmNode(rpc::server::ServerHost& host, const Log& log, const std::string& name,
            const AlarmServer& settings, bool shared_socket)
      : registration(settings.registration),
        server(host, log, name, settings.server, shared_socket),
        alarms(server.script(), settings) {}

  const Registration registration;
  DatagramServer server;
  AlarmInterface alarms;
};

SimulatedSystem::SimulatedSystem(const SystemSurroundings& around, const System& system)
    : system_(system),
      broker_(around.loop, around.log, system.name + "/broker", system.address, system.broker,
              around.sharing.broker(system) ? &around.listeners : nullptr),
      mapper_server_(around.host, around.log, system.name + "/mapper", system.mapper.server,
                     around.sharing.server(system, system.mapper.server)),
      mapper_(mapper_server_.script(), map_, system.mapper) {
  for (const RepositoryServer& one : system.repositories)
    repositories_.push_back(std::make_unique<RepositoryNode>(
        around.host, around.log, system.name + "/" + one.source->label, one,
        around.sharing.server(system, one.server), repository_of(around.repositories, one.source)));
  if (system.alarm)
    alarm_ =
        std::make_unique<AlarmNode>(around.host, around.log, system.name + "/alarm", *system.alarm,
                                    around.sharing.server(system, system.alarm->server));
}

SimulatedSystem::~SimulatedSystem() = default;

std::string SimulatedSystem::open() {
  std::string failure;
  if (system_.broker.mode != BrokerMode::refused)
    failure = broker_.open();
  if (failure.empty())
    failure = open_mapper();
  register_elements(true);
  if (failure.empty())
    failure = open_repositories();
  if (failure.empty())
    failure = open_alarm_server();
  register_elements(false);
  return failure.empty() ? failure : system_.name + ": " + failure;
}

// Before the servers that may take any port, so that none of them takes the mapper's.
std::string SimulatedSystem::open_mapper() {
  std::vector<Interface*> interfaces;
  if (!system_.mapper.rejecting)
    interfaces.push_back(&mapper_);
  return mapper_server_.open(system_.address, std::move(interfaces),
                             [this](const uuid_t& client) { mapper_.run_down(client); });
}

std::string SimulatedSystem::open_repositories() {
  for (const auto& node : repositories_) {
    std::string failure = node->server.open(
        system_.address, node->interfaces(),
        [contexts = &node->contexts](const uuid_t& client) { contexts->run_down(client); });
    if (!failure.empty())
      return failure;
    register_server(node->registration, node->server.port(), node->interfaces());
  }
  return {};
}

std::string SimulatedSystem::open_alarm_server() {
  if (alarm_ == nullptr)
    return {};
  std::string failure = alarm_->server.open(system_.address, {&alarm_->alarms}, {});
  if (failure.empty())
    register_server(alarm_->registration, alarm_->server.port(), {&alarm_->alarms});
  return failure;
}

void SimulatedSystem::register_server(const Registration& registration, std::uint16_t port,
                                      const std::vector<Interface*>& interfaces) {
  if (!registration.registered)
    return;
  for (std::uint32_t copy = 0; copy < registration.copies; ++copy)
    for (const Interface* interface : interfaces) {
      const rpc::InterfaceSpec& spec = interface->spec();
      map_.add(rpc::Tower{{spec.id, spec.major, spec.minor},
                          rpc::protseq::kUdp,
                          rpc::dotted(system_.address),
                          std::to_string(port)},
               registration.object, registration.annotation);
    }
}

void SimulatedSystem::register_elements(bool first) {
  for (const MapElement& element : system_.mapper.elements) {
    if (element.first != first)
      continue;
    for (std::uint32_t copy = 0; copy < element.copies; ++copy)
      if (element.tower)
        map_.add(raw_entry(element));
      else
        map_.add(element_tower(element, system_.address), element.object, element.annotation);
  }
}

}  // namespace agent
