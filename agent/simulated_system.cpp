// SPDX-License-Identifier: Apache-2.0
#include "agent/simulated_system.h"

#include <algorithm>
#include <utility>

#include "platform/rpc/names/protocol_sequence.h"
#include "platform/rpc/names/tower.h"

namespace agent {

namespace {

using rpc::server::Interface;

std::vector<uuid_t> objects_of(const Registration& registration) {
  return {registration.object};
}

}  // namespace

std::shared_ptr<const Repository> Repositories::of(
    const std::shared_ptr<const DataSource>& source) {
  std::erase_if(all_, [](const auto& each) { return each.expired(); });
  for (const auto& each : all_) {
    auto repository = each.lock();
    if (&repository->source() == source.get() || repository->source() == *source)
      return repository;
  }
  auto made = std::make_shared<const Repository>(source);
  all_.push_back(made);
  return made;
}

struct SimulatedSystem::RepositoryNode {
  RepositoryNode(rpc::server::ServerHost& host, const Log& log, const std::string& name,
                 const RepositoryServer& settings, bool shared_socket,
                 std::shared_ptr<const Repository> shared)
      : key(settings.source_key),
        registration(settings.registration),
        repository(std::move(shared)),
        server(host, log, name, settings.server, shared_socket),
        contexts(*repository, server.context_observer()),
        metadata(*repository),
        views(view_interfaces(contexts)) {}
  ~RepositoryNode() { server.close(); }

  std::vector<Interface*> interfaces() {
    std::vector<Interface*> all{&metadata};
    for (const auto& interface : views)
      all.push_back(interface.get());
    return all;
  }
  std::string open(std::uint32_t address) {
    return server.open(address, {interfaces(), objects_of(registration),
                                 [this](const uuid_t& client) { contexts.run_down(client); },
                                 [this] { contexts.run_down_all(); }});
  }
  void serve(std::shared_ptr<const Repository> wanted) {
    if (wanted == repository)
      return;
    contexts.serve(*wanted);
    metadata.serve(*wanted);
    repository = std::move(wanted);
    server.log().state("has other data now");
  }

  const std::string key;
  Registration registration;
  std::shared_ptr<const Repository> repository;
  DatagramServer server;
  ViewContexts contexts;
  MetadataInterface metadata;
  std::vector<std::unique_ptr<Interface>> views;
};

struct SimulatedSystem::AlarmNode {
  AlarmNode(rpc::server::ServerHost& host, const Log& log, const std::string& name,
            const AlarmServer& settings, bool shared_socket)
      : server(host, log, name, settings.server, shared_socket), alarms(settings) {}

  DatagramServer server;
  AlarmInterface alarms;
};

SimulatedSystem::SimulatedSystem(const SystemSurroundings& around, const SocketSharing& sharing,
                                 const System& system)
    : around_(around),
      system_(system),
      broker_(around.loop, around.log, system.name + "/broker", system.address, system.broker,
              sharing.broker(system) ? &around.listeners : nullptr),
      mapper_server_(around.host, around.log, system.name + "/mapper", system.mapper.server,
                     sharing.server(system, system.mapper.server)),
      mapper_(map_, system.mapper, mapper_server_.context_observer()) {
  for (const RepositoryServer& one : system.repositories)
    repositories_.push_back(make_repository(one, sharing));
  if (system.alarm)
    alarm_ =
        std::make_unique<AlarmNode>(around.host, around.log, system.name + "/alarm", *system.alarm,
                                    sharing.server(system, system.alarm->server));
}

SimulatedSystem::~SimulatedSystem() {
  mapper_server_.close();
}

std::unique_ptr<SimulatedSystem::RepositoryNode> SimulatedSystem::make_repository(
    const RepositoryServer& one, const SocketSharing& sharing) const {
  return std::make_unique<RepositoryNode>(
      around_.host, around_.log, system_.name + "/" + one.source->label, one,
      sharing.server(system_, one.server), around_.repositories.of(one.source));
}

std::string SimulatedSystem::open() {
  std::string failure = broker_.open();
  // Before the servers that may take any port, so that none of them takes the mapper's.
  if (failure.empty())
    failure = open_mapper();
  for (const auto& node : repositories_)
    if (failure.empty())
      failure = node->open(system_.address);
  if (failure.empty())
    failure = open_alarm();
  fill_map();
  return failure.empty() ? failure : system_.name + ": " + failure;
}

std::string SimulatedSystem::open_mapper() {
  std::vector<Interface*> interfaces;
  if (!system_.mapper.rejecting)
    interfaces.push_back(&mapper_);
  return mapper_server_.open(system_.address,
                             {std::move(interfaces),
                              {},
                              [this](const uuid_t& client) { mapper_.run_down(client); },
                              [this] { mapper_.run_down_all(); }});
}

std::string SimulatedSystem::open_alarm() {
  if (alarm_ == nullptr)
    return {};
  return alarm_->server.open(system_.address,
                             {{&alarm_->alarms}, objects_of(system_.alarm->registration), {}, {}});
}

void SimulatedSystem::leave_sockets(const System& wanted, const SocketSharing& sharing) {
  broker_.leave_listener(sharing.broker(wanted) ? &around_.listeners : nullptr);
  mapper_server_.leave_socket(sharing.server(wanted, wanted.mapper.server));
}

std::string SimulatedSystem::apply(const System& wanted, const SocketSharing& sharing,
                                   std::string_view revived) {
  std::string failure =
      broker_.apply(wanted.broker, sharing.broker(wanted) ? &around_.listeners : nullptr);
  const bool other_interface = wanted.mapper.rejecting != system_.mapper.rejecting;
  mapper_.apply(wanted.mapper);
  const bool mapper_shared = sharing.server(wanted, wanted.mapper.server);
  system_.mapper = wanted.mapper;
  if (other_interface && failure.empty()) {
    mapper_server_.leave_socket(!mapper_shared);
    failure = open_mapper();
  }
  if (failure.empty())
    failure = mapper_server_.apply(wanted.mapper.server, mapper_shared, revived == "mapper");
  if (failure.empty())
    failure = apply_repositories(wanted, sharing, revived);
  if (failure.empty())
    failure = apply_alarm(wanted, sharing, revived);
  system_ = wanted;
  fill_map();
  return failure.empty() ? failure : system_.name + ": " + failure;
}

// Servers are the same ones by the key of their data source, in their order.
std::string SimulatedSystem::apply_repositories(const System& wanted, const SocketSharing& sharing,
                                                std::string_view revived) {
  std::vector<std::unique_ptr<RepositoryNode>> old = std::exchange(repositories_, {});
  std::string failure;
  for (const RepositoryServer& one : wanted.repositories) {
    const auto found = std::find_if(old.begin(), old.end(), [&one](const auto& node) {
      return node != nullptr && node->key == one.source_key;
    });
    if (found == old.end()) {
      repositories_.push_back(make_repository(one, sharing));
      repositories_.back()->server.log().state("is new");
      failure = repositories_.back()->open(system_.address);
    } else {
      repositories_.push_back(std::move(*found));
      RepositoryNode& node = *repositories_.back();
      node.serve(around_.repositories.of(one.source));
      node.registration = one.registration;
      node.server.set_objects(objects_of(one.registration));
      failure =
          node.server.apply(one.server, sharing.server(wanted, one.server), node.key == revived);
    }
    if (!failure.empty())
      return failure;
  }
  for (const auto& node : old)
    if (node != nullptr)
      node->server.log().state("is gone");
  return {};
}

std::string SimulatedSystem::apply_alarm(const System& wanted, const SocketSharing& sharing,
                                         std::string_view revived) {
  if (!wanted.alarm) {
    if (alarm_ != nullptr)
      alarm_->server.log().state("is gone");
    alarm_.reset();
    return {};
  }
  const bool shared = sharing.server(wanted, wanted.alarm->server);
  if (alarm_ == nullptr) {
    system_.alarm = wanted.alarm;
    alarm_ = std::make_unique<AlarmNode>(around_.host, around_.log, system_.name + "/alarm",
                                         *wanted.alarm, shared);
    alarm_->server.log().state("is new");
    return open_alarm();
  }
  if (!system_.alarm->same_contents(*wanted.alarm))
    alarm_->alarms.reset(*wanted.alarm);
  alarm_->server.set_objects(objects_of(wanted.alarm->registration));
  return alarm_->server.apply(wanted.alarm->server, shared, revived == "alarm");
}

void SimulatedSystem::write_counters(const Log& log) const {
  mapper_server_.write_counters(log);
  for (const auto& node : repositories_)
    node->server.write_counters(log);
  if (alarm_ != nullptr)
    alarm_->server.write_counters(log);
}

void SimulatedSystem::fill_map() {
  map_.clear();
  register_elements(true);
  for (const auto& node : repositories_)
    register_server(node->registration, node->server.port(), node->interfaces());
  if (alarm_ != nullptr)
    register_server(system_.alarm->registration, alarm_->server.port(), {&alarm_->alarms});
  register_elements(false);
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
