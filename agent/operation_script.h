// SPDX-License-Identifier: Apache-2.0
// What a scenario makes of single operations: which call is late, refused, answered with other
// bytes, or the server's last.

#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "agent/scenario.h"
#include "platform/rpc/server/exported_interface.h"
#include "platform/rpc/server/server_host.h"

namespace agent {

class OperationScript {
 public:
  explicit OperationScript(std::vector<OperationBehaviour> behaviours);

  // Counts the call and says what becomes of it before its operation runs.
  rpc::server::Verdict before(const rpc::server::CallInfo& call,
                              const rpc::OperationSpec& operation);
  // The behaviour that before() chose for this client's call, if the operation itself is to carry
  // it out (a status or a reply); null otherwise. To be asked once, when the call runs.
  const OperationBehaviour* take(const rpc::server::CallInfo& call);
  void forget(const uuid_t& activity) { chosen_.erase(activity); }

 private:
  std::vector<OperationBehaviour> behaviours_;
  std::vector<std::uint64_t> calls_;                    // seen so far, for each behaviour
  std::map<uuid_t, const OperationBehaviour*> chosen_;  // one call runs in an activity at a time
};

// An interface whose operations do what the script says. `Skeleton` is a generated server class.
template <typename Skeleton>
class Scripted : public Skeleton {
 public:
  explicit Scripted(OperationScript& script) : script_(script) {}

  rpc::server::Outcome dispatch(const rpc::server::CallInfo& call, std::uint16_t opnum,
                                std::span<const std::byte> request,
                                rpc::DataRepresentation representation,
                                bool reply_little_endian) override {
    const OperationBehaviour* behaviour = script_.take(call);
    if (behaviour != nullptr && behaviour->reply)
      return {rpc::server::Outcome::Kind::reply, 0, *behaviour->reply};
    forced_ = behaviour != nullptr ? behaviour->status : std::nullopt;
    silent_ = false;
    rpc::server::Outcome outcome =
        Skeleton::dispatch(call, opnum, request, representation, reply_little_endian);
    return silent_ ? rpc::server::Outcome::none() : std::move(outcome);
  }

  bool refuse(const rpc::server::CallInfo&, std::uint32_t* status) override {
    if (forced_)
      *status = *forced_;
    return forced_.has_value();
  }

 protected:
  // The call that runs is never answered, whatever the operation returns.
  void stay_silent() { silent_ = true; }

 private:
  OperationScript& script_;
  std::optional<std::uint32_t> forced_;
  bool silent_ = false;
};

}  // namespace agent
