// SPDX-License-Identifier: Apache-2.0
// What clients send to the simulated agent's location broker: a row of messages on one connection.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "agent/broker_registry.h"
#include "tests/fuzz/require.h"

namespace {

constexpr std::size_t kReserved = 10;  // octets that a decoded message does not keep
constexpr std::size_t kBehindReserved = 26;

void answer(agent::BrokerRegistry& registry, std::span<const std::byte> octets,
            const agent::BrokerMessage& message) {
  const auto encoded = agent::encode_broker_message(message);
  fuzz::require(encoded.size() == octets.size());
  fuzz::require(std::ranges::equal(std::span(encoded).first(kReserved), octets.first(kReserved)));
  fuzz::require(std::ranges::equal(std::span(encoded).subspan(kBehindReserved),
                                   octets.subspan(kBehindReserved)));
  const auto reply = agent::encode_broker_message(registry.answer(message));
  const auto decoded = agent::decode_broker_message(reply);
  fuzz::require(decoded.state == agent::BrokerDecoding::State::complete &&
                decoded.size == reply.size() && decoded.message.command == message.command);
}

void check_items(std::span<const std::byte> data) {
  std::vector<std::string> items;
  if (!agent::decode_broker_items(data, 4, items))
    return;
  fuzz::require(items.size() <= 4);
  std::vector<std::byte> again;
  for (const std::string& item : items)
    std::ranges::copy(agent::encode_broker_item(item), std::back_inserter(again));
  fuzz::require(std::ranges::equal(again, data));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using State = agent::BrokerDecoding::State;
  agent::LocationBroker settings;
  settings.status = size % 16 == 15 ? 77 : 0;
  settings.servers.emplace_back().name = std::string("s");
  agent::BrokerRegistry registry(settings);
  std::span<const std::byte> rest = std::as_bytes(std::span(data, size));
  check_items(rest);
  while (!rest.empty()) {
    const agent::BrokerDecoding decoded = agent::decode_broker_message(rest);
    if (decoded.state != State::complete) {
      fuzz::require(decoded.state == State::malformed ||
                    rest.size() < agent::kLargestBrokerMessage);
      break;
    }
    fuzz::require(decoded.size <= rest.size());
    // A message is not answered before its last octet is there.
    fuzz::require(agent::decode_broker_message(rest.first(decoded.size - 1)).state ==
                  State::incomplete);
    answer(registry, rest.first(decoded.size), decoded.message);
    rest = rest.subspan(decoded.size);
  }
  return 0;
}
