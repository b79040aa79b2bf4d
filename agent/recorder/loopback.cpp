// SPDX-License-Identifier: Apache-2.0
#include "agent/recorder/loopback.h"

#include "agent/scenario_parser.h"
#include "platform/rpc/names/socket_address.h"

namespace agent::recorder {

namespace {

constexpr std::uint32_t kLastOctet = 0xFF;

}  // namespace

std::uint32_t LoopbackAddresses::of(std::uint32_t real) {
  const auto [found, fresh] = known_.try_emplace(real, 0);
  if (fresh) {
    do
      ++last_;
    while ((last_ & kLastOctet) == 0 || (last_ & kLastOctet) == kLastOctet);
    found->second = last_;
  }
  return found->second;
}

void move_to_loopback(std::vector<System>& systems, LoopbackAddresses& addresses) {
  for (System& system : systems)
    system.address = addresses.of(system.address);
  for (System& system : systems)
    for (MapElement& element : system.mapper.elements) {
      const auto real = parse_address(element.address);
      if (!real)
        continue;
      const std::uint32_t moved = addresses.of(*real);
      element.address = moved == system.address ? "" : rpc::dotted(moved);
    }
}

}  // namespace agent::recorder
