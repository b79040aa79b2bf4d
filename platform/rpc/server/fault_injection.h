// SPDX-License-Identifier: Apache-2.0
// A bad network between two ends: what becomes of each datagram on its way. Pure: bytes and the
// time go in, deliveries come out, and the same plan and the same input always give the same.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/rpc/wire/time_constants.h"

namespace rpc::server {

// Probabilities are 0 to 1 for each datagram.
struct FaultPlan {
  double loss = 0;
  double duplication = 0;  // a second copy, with a delay of its own
  double reordering = 0;   // held back for up to reordering_hold more, so that later ones overtake
  double truncation = 0;   // cut at a random length
  double byte_flips = 0;   // one to four bytes changed
  std::chrono::microseconds delay_min{0};
  std::chrono::microseconds delay_max{0};
  std::chrono::microseconds reordering_hold{20'000};
  std::uint64_t seed = 1;

  bool operator==(const FaultPlan&) const = default;

  // Whether a datagram can be changed or delayed at all.
  bool harmless() const;
};

class FaultInjector {
 public:
  explicit FaultInjector(const FaultPlan& plan);

  struct Delivery {
    Time time;
    std::vector<std::byte> bytes;
    // What was done to it, for a log.
    bool copy = false;                  // the second of a doubled one
    std::optional<std::size_t> cut_to;  // its length, when it was cut
    std::vector<std::size_t> flipped;   // offsets of the octets that were changed
  };
  // No delivery for a lost datagram, two for a duplicated one; times are never before `now`.
  std::vector<Delivery> pass(std::span<const std::byte> datagram, Time now);

 private:
  std::uint64_t next();
  bool happens(double probability);
  std::uint64_t below(std::uint64_t bound);
  Delivery delivery(std::span<const std::byte> datagram, Time now);

  FaultPlan plan_;
  std::uint64_t state_[4];
};

}  // namespace rpc::server
