// SPDX-License-Identifier: Apache-2.0
// Moves recorded systems to loopback addresses, the same for the same.

#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "agent/scenario.h"

namespace agent::recorder {

// 127.0.6.1 and on, in the order in which real addresses are first asked for; none ends in 0 or
// 255. All addresses in host order.
class LoopbackAddresses {
 public:
  std::uint32_t of(std::uint32_t real);

 private:
  std::map<std::uint32_t, std::uint32_t> known_;
  std::uint32_t last_ = 0x7F000600;
};

// The systems' own addresses first, then those in elements of their maps; an element at its
// system's address loses it, since that is where an element without one is.
void move_to_loopback(std::vector<System>& systems, LoopbackAddresses& addresses);

}  // namespace agent::recorder
