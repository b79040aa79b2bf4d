// SPDX-License-Identifier: Apache-2.0
// The client's machine against the server's, over seeds. ZT_SIMULATION_CALLS sets how many calls
// are made in all (10,000 by default), ZT_SIMULATION_SHIFT is added to the first seed of every test
// for other worlds.

#include "tests/platform/rpc/simulation.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace rpc::simulation {
namespace {

std::uint64_t number_from(const char* variable, std::uint64_t otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

// Worlds of consecutive seeds until `share` of all calls is made.
template <typename MakeSetting>
Tally run_worlds(double share, std::uint64_t first_seed, MakeSetting make_setting) {
  const auto wanted = static_cast<unsigned>(
      share * static_cast<double>(number_from("ZT_SIMULATION_CALLS", 10'000)));
  first_seed += number_from("ZT_SIMULATION_SHIFT", 0);
  Tally all;
  for (std::uint64_t seed = first_seed; all.calls < wanted && all.broken.size() < 5; ++seed) {
    SeededRandom random(seed ^ 0x5EED);
    all.add(World(make_setting(random), seed).run());
  }
  for (const std::string& broken : all.broken)
    ADD_FAILURE() << broken;
  std::printf("%u calls, %u succeeded, %.1f packets a call, packets at most %.0f %% of the bound;",
              all.calls, all.succeeded,
              static_cast<double>(all.client_packets + all.server_packets) / all.calls,
              100 * all.worst_packets);
  for (const auto& [status, count] : all.statuses)
    std::printf(" %u: %u", status, count);
  if (!all.failed_seeds.empty())
    std::printf("; the first in the world of seed %llu",
                static_cast<unsigned long long>(all.failed_seeds.front()));
  std::printf("\n");
  return all;
}

void vary_server(server::CoreOptions& options, SeededRandom& random, bool call_back_needed) {
  options.little_endian = random.chance(0.5);
  options.call_back = static_cast<server::CallBack>(random.between(call_back_needed ? 1 : 0, 2));
  options.working_on_repeat = random.chance(0.5);
  options.nocall_with_fack = random.chance(0.5);
  options.window_kilobytes = static_cast<std::uint16_t>(random.between(2, 64));
  options.first_interface_hint = static_cast<std::uint16_t>(random.between(0, 100));
  options.first_activity_hint = static_cast<std::uint16_t>(random.between(0, 100));
}

Setting clean(SeededRandom& random) {
  Setting setting;
  vary_server(setting.server, random, false);
  setting.to_server.delay_min = setting.to_server.delay_max =
      microseconds(random.between(20, 40'000));
  setting.to_client.delay_min = setting.to_client.delay_max = setting.to_server.delay_max;
  setting.answers_from_elsewhere = random.chance(0.2);
  return setting;
}

server::FaultPlan bad_network(SeededRandom& random, double most_loss) {
  server::FaultPlan plan;
  plan.loss = random.fraction(most_loss);
  plan.duplication = random.chance(0.5) ? random.fraction(0.3) : 0;
  plan.reordering = random.chance(0.5) ? random.fraction(0.5) : 0;
  plan.reordering_hold = milliseconds(random.between(1, 400));
  plan.truncation = random.chance(0.3) ? random.fraction(0.1) : 0;
  plan.byte_flips = random.chance(0.3) ? random.fraction(0.1) : 0;
  plan.delay_min = milliseconds(1);
  plan.delay_max = random.chance(0.7) ? milliseconds(random.between(1, 100))
                                      : milliseconds(random.between(1, 3000));
  return plan;
}

Setting bad(SeededRandom& random) {
  Setting setting;
  vary_server(setting.server, random, false);
  setting.to_server = bad_network(random, 0.4);
  setting.to_client = bad_network(random, 0.4);
  setting.call_back_loss = random.chance(0.3) ? random.fraction(0.8) : 0;
  setting.longest_operation =
      random.chance(0.5) ? Duration{} : milliseconds(random.between(1, 20'000));
  setting.longest_pause = random.chance(0.5) ? Duration{} : seconds(random.between(1, 40));
  setting.answers_from_elsewhere = random.chance(0.2);
  setting.greatest_level = 10;
  setting.least_level = random.chance(0.5) ? 4 : 0;
  setting.longest_request = random.chance(0.7) ? 3000 : 60'000;
  setting.longest_reply = random.chance(0.7) ? 3000 : 60'000;
  return setting;
}

TEST(RpcSimulationTest, ACleanNetworkCarriesNothingTwiceAndNoNeedlessAck) {
  const Tally tally = run_worlds(0.2, 1, [](SeededRandom& random) {
    Setting setting = clean(random);
    setting.longest_request = setting.longest_reply = random.chance(0.7) ? 3000 : 200'000;
    return setting;
  });
  EXPECT_EQ(tally.succeeded, tally.calls);
  EXPECT_EQ(tally.repeated, 0u);
  EXPECT_EQ(tally.pings, 0u);
  EXPECT_LE(tally.acks, tally.calls / 4) << "at most one at the end of each world";
}

TEST(RpcSimulationTest, LongOperationsAreWaitedForOnACleanNetwork) {
  const Tally tally = run_worlds(0.05, 100'000, [](SeededRandom& random) {
    Setting setting = clean(random);
    setting.longest_operation = seconds(90);
    setting.least_level = 0;
    setting.greatest_level = 10;
    return setting;
  });
  EXPECT_EQ(tally.succeeded, tally.calls);
}

TEST(RpcSimulationTest, BadNetworksNeverRunACallTwiceNorChangeAReply) {
  const Tally tally = run_worlds(0.5, 200'000, bad);
  EXPECT_GT(tally.succeeded, tally.calls / 2);
}

TEST(RpcSimulationTest, AModeratelyBadNetworkIsMended) {
  const Tally tally = run_worlds(0.1, 300'000, [](SeededRandom& random) {
    Setting setting = bad(random);
    setting.to_server.loss = std::min(setting.to_server.loss, 0.2);
    setting.to_client.loss = std::min(setting.to_client.loss, 0.2);
    setting.to_server.delay_max = setting.to_client.delay_max = milliseconds(100);
    setting.call_back_loss = 0;
    setting.least_level = setting.greatest_level = 7;
    return setting;
  });
  EXPECT_LE((tally.calls - tally.succeeded) * 2000, tally.calls);
}

TEST(RpcSimulationTest, AServerStartedAnewInMidCallRunsNoCallTwice) {
  const Tally tally = run_worlds(0.1, 400'000, [](SeededRandom& random) {
    Setting setting = random.chance(0.3) ? clean(random) : bad(random);
    vary_server(setting.server, random, true);
    // A second copy of a request that ran just before the restart is refused for its old boot time,
    // and nobody can tell that from a request that never arrived.
    setting.to_server.duplication = 0;
    setting.longest_operation = seconds(3);
    setting.restart_share = 0.5;
    setting.greatest_level = std::min(setting.greatest_level, 9U);
    return setting;
  });
  EXPECT_GT(tally.succeeded, tally.calls / 3);
}

TEST(RpcSimulationTest, OutagesSleepsMovesAndRefusalsBreakNoRule) {
  const Tally tally = run_worlds(0.2, 800'000, [](SeededRandom& random) {
    Setting setting = random.chance(0.3) ? clean(random) : bad(random);
    setting.outage_share = random.chance(0.5) ? 0.5 : 0;
    setting.longest_outage = seconds(random.between(1, 30));
    setting.outage_is_told = random.chance(0.3);
    setting.late_share = random.chance(0.3) ? random.fraction(0.5) : 0;
    setting.move_share = random.chance(0.3) ? random.fraction(0.2) : 0;
    setting.refused_share = 0.1;
    setting.wrapping_sequence = random.chance(0.3);
    setting.client_fragment = random.between(512, 8192);
    setting.server.fragment_size = random.between(512, 8192);
    setting.burst_share = random.chance(0.3) ? random.fraction(0.05) : 0;
    setting.wide_loss = random.chance(0.5) ? 1 : random.fraction(1);
    setting.widest = random.chance(0.3) ? random.between(kLeastMaxFragment, 4000) : setting.widest;
    return setting;
  });
  EXPECT_GT(tally.succeeded, tally.calls / 2);
}

TEST(RpcSimulationTest, LargeDatagramsThatVanishAreDoneWithout) {
  const Tally tally = run_worlds(0.05, 1'200'000, [](SeededRandom& random) {
    Setting setting = clean(random);
    setting.client_fragment = setting.server.fragment_size = 8192;
    setting.widest = random.between(kLeastMaxFragment, 8191);
    setting.longest_request = setting.longest_reply = 60'000;
    setting.least_level = 1;
    return setting;
  });
  EXPECT_EQ(tally.succeeded, tally.calls);
}

TEST(RpcSimulationTest, AClientThatGivesUpEarlyIsNotServedLate) {
  const Tally tally = run_worlds(0.2, 900'000, [](SeededRandom& random) {
    Setting setting = bad(random);
    vary_server(setting.server, random, true);
    setting.idempotent_share = 0;
    setting.least_level = setting.greatest_level = 0;
    setting.longest_pause = {};
    setting.longest_request = setting.longest_reply = 100;
    setting.to_server.delay_max = seconds(3);
    return setting;
  });
  EXPECT_GT(tally.succeeded, tally.calls / 10);
}

TEST(RpcSimulationTest, ARestartBetweenTwoCallsCostsNothing) {
  const Tally tally = run_worlds(0.02, 1'000'000, [](SeededRandom& random) {
    Setting setting = clean(random);
    vary_server(setting.server, random, true);
    setting.restart_share = 1;
    setting.longest_pause = seconds(20);
    setting.restart_in_pause = true;
    return setting;
  });
  EXPECT_EQ(tally.succeeded, tally.calls);
}

// The strangers take what the server's clients leave of its table, or these leave each other none.
TEST(RpcSimulationTest, AFullTableServesItsClientsAgain) {
  const Tally tally = run_worlds(0.1, 1'100'000, [](SeededRandom& random) {
    Setting setting = random.chance(0.5) ? clean(random) : bad(random);
    vary_server(setting.server, random, true);
    setting.clients = static_cast<unsigned>(random.between(1, 12));
    setting.strangers = random.chance(0.5) ? 20 : 0;
    setting.server.max_activities = random.between(setting.clients, 16);
    // Parts of long requests would push each other out until their clients give up.
    if (setting.strangers == 0) {
      setting.server.max_activities = random.between(1, setting.clients);
      setting.longest_request = 1000;
    }
    setting.longest_pause = seconds(5);
    setting.refused_share = 0.1;
    setting.least_level = setting.greatest_level = 7;
    return setting;
  });
  EXPECT_GT(tally.succeeded, tally.calls / 4);
}

TEST(RpcSimulationTest, ChangedBytesCrashNothingAndEveryCallEnds) {
  run_worlds(0.04, 500'000, [](SeededRandom& random) {
    Setting setting = bad(random);
    setting.deliver_flips = true;
    setting.to_server.byte_flips = setting.to_client.byte_flips = random.fraction(0.5);
    setting.greatest_level = 8;
    setting.least_level = 0;
    return setting;
  });
}

TEST(RpcSimulationTest, ALinkThatLosesLittleRepeatsLittle) {
  const Tally tally = run_worlds(0.004, 700'000, [](SeededRandom& random) {
    Setting setting = clean(random);
    setting.to_server.loss = setting.to_client.loss = 0.02;
    setting.longest_request = setting.longest_reply = 1024 * 1024;
    return setting;
  });
  EXPECT_EQ(tally.succeeded, tally.calls);
  EXPECT_LT(static_cast<double>(tally.repeated),
            0.04 * static_cast<double>(tally.client_packets + tally.server_packets));
}

TEST(RpcSimulationTest, LongBodiesArriveWholeBothWays) {
  const Tally tally = run_worlds(0.01, 600'000, [](SeededRandom& random) {
    Setting setting = random.chance(0.3) ? clean(random) : bad(random);
    setting.calls = 2;
    setting.to_server.loss = std::min(setting.to_server.loss, 0.2);
    setting.to_client.loss = std::min(setting.to_client.loss, 0.2);
    setting.longest_request = setting.longest_reply = 2 * 1024 * 1024;
    setting.least_level = setting.greatest_level = 8;
    return setting;
  });
  EXPECT_GT(tally.succeeded, tally.calls / 2);
}

}  // namespace
}  // namespace rpc::simulation
