// SPDX-License-Identifier: Apache-2.0
// What a scenario makes of single operations: which call is late, refused, answered with other
// bytes, or the server's last.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/scenario.h"
#include "platform/rpc/server/exported_interface.h"
#include "platform/rpc/server/server_host.h"

namespace agent {

class OperationScript {
 public:
  explicit OperationScript(std::vector<OperationBehaviour> behaviours);

  struct Choice {
    rpc::server::Verdict verdict;
    std::size_t rule = 0;  // from 1; 0 when none applies
    std::string action;    // what the rule does, for the log
  };
  // Counts the call and says what becomes of it before its operation runs.
  Choice before(const rpc::OperationSpec& operation);
  // Begins with other rules, and counts from 0 again.
  void replace(std::vector<OperationBehaviour> behaviours);

 private:
  std::vector<OperationBehaviour> behaviours_;
  std::vector<std::uint64_t> calls_;  // seen so far, for each behaviour
};

}  // namespace agent
