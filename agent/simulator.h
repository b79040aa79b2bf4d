// SPDX-License-Identifier: Apache-2.0
// All systems of a scenario in one process on one event loop.

#pragma once

#include <memory>
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
  Simulator(rpc::server::EventLoop& loop, const Log& log, const Scenario& scenario);

  // Opens every socket of every system. What failed, at most kMostFailures of them; empty when all
  // went well.
  static constexpr std::size_t kMostFailures = 20;
  std::vector<std::string> open();

  const std::vector<std::unique_ptr<SimulatedSystem>>& systems() const { return systems_; }

 private:
  rpc::server::ServerHost host_;
  SharedListeners listeners_;
  const SocketSharing sharing_;
  Repositories repositories_;
  std::vector<std::unique_ptr<SimulatedSystem>> systems_;
};

}  // namespace agent
