// SPDX-License-Identifier: Apache-2.0
// Replies of an agent to who records it: whatever they were, the scenario that is written can be
// read, and says the same. Of the first octet, bit 0 gives the agent a map of its own, bit 1 asks
// for made-up names and bit 2 ends it early; the rest is the replies.

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "agent/recorder/agent_walk.h"
#include "agent/recorder/anonymizer.h"
#include "agent/recorder/broker_question.h"
#include "agent/recorder/file_texts.h"
#include "agent/recorder/loopback.h"
#include "agent/recorder/scenario_writer.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/scripted_replies.h"
#include "tests/support/endpoint_map_bytes.h"

using namespace agent;
using namespace agent::recorder;

// In place of a connection to a real one.
LocationBroker agent::recorder::ask_broker(std::uint32_t, const Walk&) {
  return {};
}

namespace {

constexpr std::uint32_t kNow = 1'700'000'000;

std::vector<System> recorded(std::size_t most_steps, std::vector<std::string>& missing) {
  Room room;
  Walk walk;
  walk.room = &room;
  walk.step = walk.detail = [](const std::string&) {};
  walk.missing = [&](const std::string& text) { missing.push_back(text); };
  std::size_t asked = 0;
  walk.ended = [&]() -> std::string { return ++asked < most_steps ? "" : "enough"; };
  return record_agent("sys1", 0x7F000001, walk);
}

Scenario read(const std::string& text) {
  ParsedScenario parsed = parse_scenario(text, kNow);
  fuzz::require(parsed.errors.empty());
  return std::move(parsed.scenario);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  static const std::vector<std::byte> map = endpoint_map::lookup_reply(
      true, 0, {{0, endpoint_map::udp_tower(127, 0, 0, 1, 2001), ""}}, 0);
  fuzz::script_replies(data + 1, size - 1, (data[0] & 1) != 0 ? map : std::vector<std::byte>());
  std::vector<std::string> missing;
  std::vector<System> systems = recorded((data[0] & 4) != 0 ? 6 : 1000, missing);
  LoopbackAddresses addresses;
  if ((data[0] & 2) != 0)
    anonymize(systems, addresses);
  move_to_loopback(systems, addresses);
  make_utf8(systems);
  give_source_keys(systems);
  const std::string first = scenario_text(systems, missing);
  const std::string second = scenario_text(read(first).systems, missing);
  // A label that has become the usual one of its name is not written again.
  fuzz::require(second.size() <= first.size());
  fuzz::require(scenario_text(read(second).systems, missing) == second);
  return 0;
}
