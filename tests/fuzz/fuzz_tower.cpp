// SPDX-License-Identifier: Apache-2.0
// Protocol towers: what is read can be written, and reads the same again.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "platform/rpc/names/tower.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::optional<rpc::Tower> tower = rpc::decode_tower(std::as_bytes(std::span(data, size)));
  if (!tower)
    return 0;
  const auto written = rpc::encode_tower(*tower);
  const auto again = written ? rpc::decode_tower(*written) : std::nullopt;
  if (!again || again->endpoint != tower->endpoint ||
      again->network_address != tower->network_address ||
      again->protocol_sequence != tower->protocol_sequence ||
      again->interface_id.uuid != tower->interface_id.uuid)
    std::abort();
  return 0;
}
