// SPDX-License-Identifier: Apache-2.0
// What let a whole time-out pass in this run: a host, a port, or an operation of a server. Nobody
// waits for it twice; whoever would, gets what the first wait ended with.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>

#include "platform/rpc/rpc.h"

// What a call ended with; status 0: it did not fail.
struct LostCall {
  error_status_t status = 0;
  RpcCallOutcome outcome{};
  // The server gave no sign, or no further one, for as long as the level allows.
  bool timed_out() const {
    return (outcome.kind == RpcCallOutcome::Kind::undelivered && outcome.network == 10060) ||
           outcome.kind == RpcCallOutcome::Kind::silent;
  }
};

class KnownSilence {
 public:
  // Addresses are IPv4 in network byte order; ports in host order, 0 for a host.
  struct Thing {
    std::uint32_t address = 0;
    std::uint16_t port = 0;
    std::string operation = {};  // empty: whatever is asked there
    auto operator<=>(const Thing&) const = default;
  };

  // Null for what is not known to be silent.
  const LostCall* find(const Thing& thing) const {
    const auto found = things_.find(thing);
    return found != things_.end() ? &found->second : nullptr;
  }
  void add(const Thing& thing, const LostCall& lost) {
    if (things_.size() < kMost)
      things_.emplace(thing, lost);
  }
  // For a run that is done with an address and keeps nothing of it.
  void forget_all() { things_.clear(); }

 private:
  static constexpr std::size_t kMost = 65536;
  std::map<Thing, LostCall> things_;
};
