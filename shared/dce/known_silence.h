// SPDX-License-Identifier: Apache-2.0
// What let a whole time-out pass in this run: a host, a port, or an operation of a server. Nobody
// waits for it twice: whoever would, gets what the first wait ended with. Other operations of a
// server that was silent once get a moment, and when that passes too, the server is given up.

#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>

#include "platform/numbers/timeout_level.h"
#include "platform/rpc/rpc.h"

// What a call ended with; status 0: it did not fail.
struct LostCall {
  error_status_t status = 0;
  RpcCallOutcome outcome{};
  bool timed_out() const { return outcome.timed_out(); }
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
    if (const auto found = things_.find(thing); found != things_.end())
      return &found->second;
    const auto all = things_.find({thing.address, thing.port});
    return all != things_.end() ? &all->second : nullptr;
  }
  // Whether an operation of the thing's port, or the port, is known to be silent.
  bool suspects(const Thing& thing) const {
    const auto first = things_.lower_bound({thing.address, thing.port});
    return first != things_.end() && first->first.address == thing.address &&
           first->first.port == thing.port;
  }
  // The ports of an address that are known to be silent, whatever was asked there.
  std::size_t silent_ports(std::uint32_t address) const {
    std::size_t ports = 0;
    for (auto each = things_.lower_bound({address, 1});
         each != things_.end() && each->first.address == address; ++each)
      ports += each->first.operation.empty() ? 1 : 0;
    return ports;
  }
  void add(const Thing& thing, const LostCall& lost) {
    if (things_.size() >= kMost)
      return;
    if (!thing.operation.empty() && suspects(thing))
      things_.emplace(Thing{thing.address, thing.port}, lost);
    things_.emplace(thing, lost);
  }

 private:
  static constexpr std::size_t kMost = 65536;
  std::map<Thing, LostCall> things_;
};

// Limits the waits of this job's calls to a part of the level's time while it lives. A part of 0,
// and a level without limit, change nothing.
class BriefWait {
 public:
  // Enough for an answer that is under way, and less than a tenth of the time.
  static constexpr int kPart = 12;

  BriefWait(unsigned level, int part) {
    constexpr std::chrono::milliseconds kLeast{20};
    const auto whole = rpc::silence_of_level(level);
    if ((limits_ = whole && part > 0))
      before_ = RpcMgmtLimitWaits(std::max(kLeast, std::chrono::milliseconds(*whole) / part));
  }
  ~BriefWait() {
    if (limits_)
      RpcMgmtLimitWaits(before_);
  }
  BriefWait(const BriefWait&) = delete;
  BriefWait& operator=(const BriefWait&) = delete;

 private:
  bool limits_ = false;
  std::optional<std::chrono::milliseconds> before_;
};
