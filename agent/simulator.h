// SPDX-License-Identifier: Apache-2.0
// All systems of a scenario in one process on one event loop.

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/log.h"
#include "agent/scenario.h"
#include "agent/simulated_system.h"
#include "platform/rpc/server/event_loop.h"
#include "platform/rpc/server/server_host.h"

namespace agent {

class Simulator {
 public:
  // The loop and the log are not owned.
  Simulator(rpc::server::EventLoop& loop, const Log& log, Scenario scenario);
  ~Simulator();
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;

  // Opens every socket of every system. What failed, at most kMostFailures of them; empty when all
  // went well. The scenario's events count from then on.
  static constexpr std::size_t kMostFailures = 20;
  std::vector<std::string> open();
  // Changes to another scenario while clients are served: systems of a known name and address stay
  // what they are but for the differences, others go and come. Its events count from open(). What
  // failed; those servers are closed.
  std::vector<std::string> apply(Scenario scenario);

  const std::vector<std::unique_ptr<SimulatedSystem>>& systems() const { return systems_; }
  void write_counters(const Log& log) const;

 private:
  void wait_for_event();
  void run_event();

  rpc::server::EventLoop& loop_;
  const Log& log_;
  rpc::server::ServerHost host_;
  SharedListeners listeners_;
  Repositories repositories_;
  SystemSurroundings around_;
  Scenario scenario_;
  std::optional<SocketSharing> sharing_;
  std::vector<std::unique_ptr<SimulatedSystem>> systems_;
  rpc::server::EventLoop::Clock::time_point opened_{};
  std::size_t next_event_ = 0;
  rpc::server::EventLoop::TimerNumber event_timer_ = 0;
};

}  // namespace agent
