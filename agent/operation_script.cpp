// SPDX-License-Identifier: Apache-2.0
#include "agent/operation_script.h"

#include <algorithm>
#include <cstdio>

namespace agent {

namespace {

using rpc::server::Outcome;
using rpc::server::Verdict;
using Action = rpc::server::Verdict::Action;

std::string hexadecimal(std::uint32_t number) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(number));
  return text;
}

// Cuts and patches a good reply; octets that it does not have are not patched.
std::function<void(Outcome&)> spoiling(const OperationBehaviour& rule) {
  if (rule.cut == 0 && !rule.patch)
    return {};
  return [cut = rule.cut, patch = rule.patch](Outcome& good) {
    if (good.kind != Outcome::Kind::reply)
      return;
    if (patch && patch->at < good.reply.size())
      std::copy_n(patch->octets.begin(),
                  std::min(patch->octets.size(), good.reply.size() - patch->at),
                  good.reply.begin() + static_cast<std::ptrdiff_t>(patch->at));
    good.reply.resize(good.reply.size() - std::min<std::size_t>(cut, good.reply.size()));
  };
}

OperationScript::Choice choice_of(const OperationBehaviour& rule) {
  OperationScript::Choice choice;
  Verdict& verdict = choice.verdict;
  const auto say = [&choice](const std::string& text) {
    choice.action += (choice.action.empty() ? "" : ", ") + text;
  };
  struct Flag {
    bool set;
    Action action;
    const char* name;
  };
  const Flag flags[] = {
      {rule.silent, Action::silent, "silent"},
      {rule.die, Action::die, "dies"},
      {rule.restart, Action::restart, "restarts"},
      {rule.working, Action::working, "working for ever"},
      {rule.no_call, Action::no_call, "no call for ever"},
  };
  for (const Flag& flag : flags)
    if (flag.set) {
      verdict.action = flag.action;
      say(flag.name);
    }
  const auto wait = [&](std::uint32_t milliseconds, const char* how) {
    if (milliseconds == 0)
      return;
    verdict.delay += std::chrono::milliseconds(milliseconds);
    say(std::to_string(milliseconds) + " ms " + how);
  };
  wait(rule.late_ms, "late");
  wait(rule.working_ms, "working");
  wait(rule.no_call_ms, "no call");
  if (rule.no_call_ms != 0)
    verdict.action = Action::no_call;
  if (rule.fault) {
    verdict.outcome = Outcome::fault(*rule.fault);
    say("fault " + hexadecimal(*rule.fault));
  }
  if (rule.reject) {
    verdict.outcome = Outcome::reject(*rule.reject);
    say("reject " + hexadecimal(*rule.reject));
  }
  if (rule.reply) {
    verdict.outcome = Outcome{Outcome::Kind::reply, 0, *rule.reply};
    say("a reply of " + std::to_string(rule.reply->size()) + " octets");
  }
  if (rule.status) {
    verdict.status = rule.status;
    say("status " + hexadecimal(*rule.status));
  }
  if (rule.cut != 0)
    say("cut by " + std::to_string(rule.cut) + " octets");
  if (rule.patch)
    say("patched at " + std::to_string(rule.patch->at));
  verdict.spoil = spoiling(rule);
  return choice;
}

}  // namespace

OperationScript::OperationScript(std::vector<OperationBehaviour> behaviours) {
  replace(std::move(behaviours));
}

void OperationScript::replace(std::vector<OperationBehaviour> behaviours) {
  behaviours_ = std::move(behaviours);
  calls_.assign(behaviours_.size(), 0);
}

OperationScript::Choice OperationScript::before(const rpc::OperationSpec& operation) {
  std::size_t chosen = behaviours_.size();
  for (std::size_t i = 0; i < behaviours_.size(); ++i) {
    const OperationBehaviour& one = behaviours_[i];
    if (!one.operation.empty() && one.operation != operation.name)
      continue;
    const std::uint64_t number = calls_[i]++;
    if (chosen == behaviours_.size() && number >= one.after && number - one.after < one.times)
      chosen = i;
  }
  if (chosen == behaviours_.size())
    return {};
  Choice choice = choice_of(behaviours_[chosen]);
  choice.rule = chosen + 1;
  return choice;
}

}  // namespace agent
