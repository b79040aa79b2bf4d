// SPDX-License-Identifier: Apache-2.0
#include "agent/simulator.h"

#include <chrono>
#include <map>
#include <utility>

namespace agent {

namespace {

using Clock = rpc::server::EventLoop::Clock;

}  // namespace

Simulator::Simulator(rpc::server::EventLoop& loop, const Log& log, Scenario scenario)
    : loop_(loop),
      log_(log),
      host_(loop),
      listeners_(loop),
      around_{loop, host_, log, listeners_, repositories_},
      scenario_(std::move(scenario)) {
  sharing_.emplace(scenario_);
  for (const System& system : scenario_.systems)
    systems_.push_back(std::make_unique<SimulatedSystem>(around_, *sharing_, system));
}

Simulator::~Simulator() {
  loop_.cancel(event_timer_);
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
  opened_ = Clock::now();
  wait_for_event();
  return failures;
}

std::vector<std::string> Simulator::apply(Scenario scenario) {
  // What the clock has changed already is part of what the systems are to be.
  next_event_ = 0;
  for (const auto now = Clock::now(); next_event_ < scenario.events.size(); ++next_event_) {
    const ScenarioEvent& event = scenario.events[next_event_];
    if (opened_ + std::chrono::seconds(event.at) > now)
      break;
    scenario.systems[event.index] = event.system;
  }
  const SocketSharing sharing(scenario, sharing_->wanted());
  std::map<std::pair<std::string, std::uint32_t>, std::unique_ptr<SimulatedSystem>> old;
  for (auto& system : systems_) {
    const std::pair key(system->system().name, system->system().address);
    old.emplace(key, std::move(system));
  }
  std::vector<std::unique_ptr<SimulatedSystem>> systems(scenario.systems.size());
  for (std::size_t i = 0; i < systems.size(); ++i) {
    const System& wanted = scenario.systems[i];
    const auto found = old.find({wanted.name, wanted.address});
    if (found == old.end())
      continue;
    systems[i] = std::move(found->second);
    systems[i]->leave_sockets(wanted, sharing);
    old.erase(found);
  }
  for (const auto& [key, system] : old)
    log_.write(LogEvent("state", key.first).text("change", "is gone"));
  old.clear();

  std::vector<std::string> failures;
  for (std::size_t i = 0; i < systems.size(); ++i) {
    std::string failure;
    if (systems[i] != nullptr) {
      failure = systems[i]->apply(scenario.systems[i], sharing, {});
    } else {
      systems[i] = std::make_unique<SimulatedSystem>(around_, sharing, scenario.systems[i]);
      log_.write(LogEvent("state", scenario.systems[i].name).text("change", "is new"));
      failure = systems[i]->open();
    }
    if (!failure.empty() && failures.size() < kMostFailures)
      failures.push_back(std::move(failure));
  }
  systems_ = std::move(systems);
  scenario_ = std::move(scenario);
  sharing_.emplace(sharing);
  wait_for_event();
  return failures;
}

void Simulator::wait_for_event() {
  loop_.cancel(event_timer_);
  if (next_event_ < scenario_.events.size())
    event_timer_ = loop_.at(opened_ + std::chrono::seconds(scenario_.events[next_event_].at),
                            [this] { run_event(); });
}

void Simulator::run_event() {
  const ScenarioEvent& event = scenario_.events[next_event_++];
  if (log_.enabled())
    log_.write(LogEvent("state", event.system.name).text("change", event.text));
  const std::string failure = systems_[event.index]->apply(event.system, *sharing_, event.server);
  if (!failure.empty())
    log_.write(LogEvent("state", event.system.name).text("change", failure));
  wait_for_event();
}

void Simulator::write_counters(const Log& log) const {
  for (const auto& system : systems_)
    system->write_counters(log);
}

}  // namespace agent
