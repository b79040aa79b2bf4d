// SPDX-License-Identifier: Apache-2.0
#include "agent/simulator.h"

namespace agent {

Simulator::Simulator(rpc::server::EventLoop& loop, const Log& log, const Scenario& scenario)
    : host_(loop), listeners_(loop), sharing_(scenario) {
  const SystemSurroundings around{loop, host_, log, listeners_, sharing_, repositories_};
  for (const System& system : scenario.systems)
    systems_.push_back(std::make_unique<SimulatedSystem>(around, system));
}

std::vector<std::string> Simulator::open() {
  std::vector<std::string> failures;
  for (const auto& system : systems_) {
    std::string failure = system->open();
    if (!failure.empty())
      failures.push_back(std::move(failure));
    if (failures.size() == kMostFailures)
      break;
  }
  return failures;
}

}  // namespace agent
