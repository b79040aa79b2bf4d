// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/server/fault_injection.h"

#include <algorithm>
#include <bit>

namespace rpc::server {

bool FaultPlan::harmless() const {
  return loss <= 0 && duplication <= 0 && reordering <= 0 && truncation <= 0 && byte_flips <= 0 &&
         delay_max.count() <= 0;
}

// The four words of the generator come from the seed by SplitMix64, as its authors advise.
FaultInjector::FaultInjector(const FaultPlan& plan) : plan_(plan) {
  std::uint64_t seed = plan.seed;
  for (std::uint64_t& word : state_) {
    seed += 0x9E3779B97F4A7C15U;
    std::uint64_t mixed = seed;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
    word = mixed ^ (mixed >> 31);
  }
}

// xoshiro256**: the standard library's distributions differ between libraries, a scenario's seed
// must not.
std::uint64_t FaultInjector::next() {
  const std::uint64_t result = std::rotl(state_[1] * 5, 7) * 9;
  const std::uint64_t shifted = state_[1] << 17;
  state_[2] ^= state_[0];
  state_[3] ^= state_[1];
  state_[1] ^= state_[2];
  state_[0] ^= state_[3];
  state_[2] ^= shifted;
  state_[3] = std::rotl(state_[3], 45);
  return result;
}

// Takes a number in every case, so that two plans that differ in one probability agree in the rest.
bool FaultInjector::happens(double probability) {
  const double drawn = static_cast<double>(next() >> 11) * 0x1.0p-53;
  return drawn < probability;
}

std::uint64_t FaultInjector::below(std::uint64_t bound) {
  return bound == 0 ? 0 : next() % bound;
}

std::vector<FaultInjector::Delivery> FaultInjector::pass(std::span<const std::byte> datagram,
                                                         Time now) {
  std::vector<Delivery> deliveries;
  const bool lost = happens(plan_.loss);
  const bool doubled = happens(plan_.duplication);
  if (!lost)
    deliveries.push_back(delivery(datagram, now));
  if (doubled) {
    deliveries.push_back(delivery(datagram, now));
    deliveries.back().copy = true;
  }
  return deliveries;
}

FaultInjector::Delivery FaultInjector::delivery(std::span<const std::byte> datagram, Time now) {
  Delivery result;
  result.time = now;
  result.bytes.assign(datagram.begin(), datagram.end());

  const auto least = std::max<std::int64_t>(plan_.delay_min.count(), 0);
  const auto spread = std::max<std::int64_t>(plan_.delay_max.count() - least, 0);
  result.time += std::chrono::microseconds(
      least + static_cast<std::int64_t>(below(static_cast<std::uint64_t>(spread) + 1)));
  const auto hold =
      static_cast<std::uint64_t>(std::max<std::int64_t>(plan_.reordering_hold.count(), 1));
  if (happens(plan_.reordering))
    result.time += std::chrono::microseconds(1 + below(hold));

  if (happens(plan_.truncation)) {
    result.bytes.resize(below(result.bytes.size()));
    result.cut_to = result.bytes.size();
  }
  if (happens(plan_.byte_flips) && !result.bytes.empty()) {
    for (std::uint64_t flips = 1 + below(4); flips > 0; --flips) {
      const auto at = static_cast<std::size_t>(below(result.bytes.size()));
      result.bytes[at] ^= static_cast<std::byte>(1 + below(255));
      result.flipped.push_back(at);
    }
  }
  return result;
}

}  // namespace rpc::server
