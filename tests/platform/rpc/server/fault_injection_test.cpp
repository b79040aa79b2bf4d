// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/server/fault_injection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

namespace rpc::server {
namespace {

using std::chrono::microseconds;

const std::vector<std::byte> kDatagram(400, std::byte{0x5A});
constexpr int kSent = 10'000;

struct Tally {
  int delivered = 0;
  int cut = 0;
  int changed = 0;
  int overtaken = 0;
  microseconds least{1'000'000};
  microseconds most{0};
  std::vector<FaultInjector::Delivery> all;
};

Tally pass_many(const FaultPlan& plan) {
  FaultInjector injector(plan);
  Tally tally;
  Time now{};
  Time latest{};
  for (int i = 0; i < kSent; ++i, now += microseconds(100)) {
    for (FaultInjector::Delivery& delivery : injector.pass(kDatagram, now)) {
      ++tally.delivered;
      tally.cut += delivery.bytes.size() < kDatagram.size() ? 1 : 0;
      tally.changed += std::any_of(delivery.bytes.begin(), delivery.bytes.end(),
                                   [](std::byte byte) { return byte != std::byte{0x5A}; })
                           ? 1
                           : 0;
      tally.overtaken += delivery.time < latest ? 1 : 0;
      latest = std::max(latest, delivery.time);
      const auto delay = std::chrono::duration_cast<microseconds>(delivery.time - now);
      tally.least = std::min(tally.least, delay);
      tally.most = std::max(tally.most, delay);
      tally.all.push_back(std::move(delivery));
    }
  }
  return tally;
}

// Ten thousand draws of probability p lie within 4 standard deviations, at most 200.
void expect_share(int count, double share) {
  EXPECT_NEAR(count, share * kSent, 200);
}

TEST(FaultInjectionTest, AHarmlessPlanPassesEverythingAtOnce) {
  EXPECT_TRUE(FaultPlan{}.harmless());
  const Tally tally = pass_many({});
  EXPECT_EQ(tally.delivered, kSent);
  EXPECT_EQ(tally.cut + tally.changed + tally.overtaken, 0);
  EXPECT_EQ(tally.most, microseconds(0));
}

TEST(FaultInjectionTest, EachFaultComesAsOftenAsThePlanSays) {
  FaultPlan plan;
  plan.loss = 0.3;
  expect_share(pass_many(plan).delivered, 0.7);
  plan = {};
  plan.duplication = 0.2;
  expect_share(pass_many(plan).delivered, 1.2);
  plan = {};
  plan.truncation = 0.1;
  expect_share(pass_many(plan).cut, 0.1);
  plan = {};
  plan.byte_flips = 0.4;
  expect_share(pass_many(plan).changed, 0.4);
  plan = {};
  plan.reordering = 0.25;
  const Tally reordered = pass_many(plan);
  EXPECT_EQ(reordered.delivered, kSent);
  EXPECT_GT(reordered.overtaken, kSent / 2) << "most datagrams overtake one that is held back";
  EXPECT_LE(reordered.most, plan.reordering_hold);
}

TEST(FaultInjectionTest, DelaysStayBetweenTheirBounds) {
  FaultPlan plan;
  plan.delay_min = microseconds(2000);
  plan.delay_max = microseconds(9000);
  const Tally tally = pass_many(plan);
  EXPECT_GE(tally.least, microseconds(2000));
  EXPECT_LE(tally.least, microseconds(2100));
  EXPECT_LE(tally.most, microseconds(9000));
  EXPECT_GE(tally.most, microseconds(8900));
}

TEST(FaultInjectionTest, TheSeedDecides) {
  FaultPlan plan;
  plan.loss = plan.duplication = plan.truncation = plan.byte_flips = plan.reordering = 0.2;
  plan.delay_max = microseconds(5000);
  plan.seed = 42;
  const auto same = [](const Tally& a, const Tally& b) {
    return std::equal(
        a.all.begin(), a.all.end(), b.all.begin(), b.all.end(),
        [](const auto& x, const auto& y) { return x.time == y.time && x.bytes == y.bytes; });
  };
  const Tally first = pass_many(plan);
  EXPECT_TRUE(same(first, pass_many(plan)));
  plan.seed = 43;
  EXPECT_FALSE(same(first, pass_many(plan)));
}

TEST(FaultInjectionTest, TakesAnEmptyDatagram) {
  FaultPlan plan;
  plan.truncation = plan.byte_flips = plan.duplication = 1;
  FaultInjector injector(plan);
  const auto deliveries = injector.pass({}, {});
  ASSERT_EQ(deliveries.size(), 2u);
  EXPECT_TRUE(deliveries[0].bytes.empty());
}

}  // namespace
}  // namespace rpc::server
