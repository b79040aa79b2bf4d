// SPDX-License-Identifier: Apache-2.0
#include "agent/socket_sharing.h"

#include <algorithm>

namespace agent {

namespace {

bool loopback(const System& system) {
  return system.address >> 24 == 127;
}

bool refuses(const ServerSettings& settings) {
  return settings.state == ServerState::dead ||
         std::any_of(settings.behaviours.begin(), settings.behaviours.end(),
                     [](const OperationBehaviour& one) { return one.die; });
}

}  // namespace

SocketSharing::SocketSharing(const Scenario& scenario, bool already)
    : wanted_(already || scenario.systems.size() > kMostSystemsWithOwnSockets) {
  if (!wanted_)
    return;
  for (const System& system : scenario.systems)
    note(system);
  for (const ScenarioEvent& event : scenario.events)
    note(event.system);
}

void SocketSharing::note(const System& system) {
  const BrokerMode mode = system.broker.mode;
  if (!loopback(system) || mode == BrokerMode::refused || mode == BrokerMode::unanswered)
    refusing_tcp_.insert(system.broker.port);
  note(system, system.mapper.server);
  for (const RepositoryServer& repository : system.repositories)
    note(system, repository.server);
  if (system.alarm)
    note(system, system.alarm->server);
}

void SocketSharing::note(const System& system, const ServerSettings& settings) {
  if (settings.port != 0 && (!loopback(system) || refuses(settings)))
    refusing_udp_.insert(settings.port);
}

bool SocketSharing::broker(const System& system) const {
  return wanted_ && !refusing_tcp_.contains(system.broker.port);
}

bool SocketSharing::server(const System& system, const ServerSettings& settings) const {
  if (!wanted_ || !loopback(system) || refuses(settings))
    return false;
  return settings.port == 0 || !refusing_udp_.contains(settings.port);
}

}  // namespace agent
