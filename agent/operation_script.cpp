// SPDX-License-Identifier: Apache-2.0
#include "agent/operation_script.h"

namespace agent {

using rpc::server::Verdict;

OperationScript::OperationScript(std::vector<OperationBehaviour> behaviours)
    : behaviours_(std::move(behaviours)), calls_(behaviours_.size()) {}

Verdict OperationScript::before(const rpc::server::CallInfo& call,
                                const rpc::OperationSpec& operation) {
  const OperationBehaviour* chosen = nullptr;
  for (std::size_t i = 0; i < behaviours_.size(); ++i) {
    const OperationBehaviour& one = behaviours_[i];
    if (!one.operation.empty() && one.operation != operation.name)
      continue;
    const std::uint64_t number = calls_[i]++;
    if (chosen == nullptr && number >= one.after && number - one.after < one.times)
      chosen = &one;
  }
  chosen_.erase(call.activity);
  if (chosen == nullptr)
    return Verdict::run();
  Verdict verdict = Verdict::run_after(std::chrono::milliseconds(chosen->late_ms));
  if (chosen->silent) {
    verdict.action = Verdict::Action::silent;
  } else if (chosen->die) {
    verdict.action = Verdict::Action::die;
  } else if (chosen->fault) {
    verdict.action = Verdict::Action::fault;
    verdict.status = *chosen->fault;
  } else if (chosen->reject) {
    verdict.action = Verdict::Action::reject;
    verdict.status = *chosen->reject;
  } else if (chosen->status || chosen->reply) {
    chosen_[call.activity] = chosen;
  }
  return verdict;
}

const OperationBehaviour* OperationScript::take(const rpc::server::CallInfo& call) {
  const auto found = chosen_.find(call.activity);
  if (found == chosen_.end())
    return nullptr;
  const OperationBehaviour* behaviour = found->second;
  chosen_.erase(found);
  return behaviour;
}

}  // namespace agent
