// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/wire/fragments.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/rpc_bytes.h"

namespace rpc {
namespace {

using namespace std::chrono_literals;
using Result = FragmentJoiner::Result;
using test::Bytes;
using test::pattern;

const Time kStart{1h};

Packet fragment(std::uint16_t number, std::span<const std::byte> body, std::uint8_t flags = 0) {
  Packet packet;
  packet.header.fragment = number;
  packet.header.serial = number;
  packet.header.flags1 = static_cast<std::uint8_t>(kFlagFragment | flags);
  packet.body = body;
  return packet;
}

// --- The sender alone

class Sender : public testing::Test {
 protected:
  void start(std::size_t size, LastFragment last, std::size_t path_limit = kLeastMaxFragment) {
    body_ = pattern(size);
    sender_.start(body_, last, path_limit);
  }

  std::vector<FragmentSender::Outgoing> drain() {
    std::vector<FragmentSender::Outgoing> out;
    while (const auto next = sender_.next(now_, serial_))
      out.push_back(*next);
    return out;
  }

  std::vector<std::uint16_t> numbers() {
    std::vector<std::uint16_t> result;
    for (const auto& each : drain())
      result.push_back(each.fragment);
    return result;
  }

  Fack fack(std::uint16_t serial, std::uint32_t mask = 0, std::uint16_t window = 64) {
    Fack fack;
    fack.window_kilobytes = window;
    fack.max_fragment = 1464;
    fack.serial = serial;
    if (mask != 0)
      fack.selective = {mask};
    return fack;
  }

  using Numbers = std::vector<std::uint16_t>;
  Bytes body_;
  FragmentSender sender_;
  Time now_ = kStart;
  std::uint16_t serial_ = 0;
};

TEST_F(Sender, BodyOfOnePacketHasNoFragmentFlags) {
  start(1384, LastFragment::answered);
  const auto out = drain();
  ASSERT_EQ(out.size(), 1U);
  EXPECT_EQ(out[0].flags, 0);
  EXPECT_EQ(out[0].body.size(), 1384U);
  EXPECT_FALSE(sender_.wakeup());
  sender_.resend_oldest();
  EXPECT_EQ(drain().size(), 1U);
  EXPECT_EQ(serial_, 2);
}

TEST_F(Sender, StartsWithAFewFragmentsInMultiplesOfEightBytes) {
  start(1384 * 5 + 3, LastFragment::answered);
  const auto first = drain();
  ASSERT_EQ(first.size(), 4U);
  EXPECT_EQ(first[0].flags, kFlagFragment);  // asks: the server may wait for its fack
  EXPECT_EQ(first[0].body.size(), 1384U);
  EXPECT_EQ(first[3].flags, kFlagFragment);  // asks: the window is full
  EXPECT_TRUE(sender_.acknowledge(3, fack(3), now_));
  const auto rest = drain();
  ASSERT_EQ(rest.size(), 2U);
  EXPECT_EQ(rest[1].body.size(), 3U);
  EXPECT_EQ(rest[1].flags, kFlagFragment | kFlagLastFragment | kFlagNoFack);
}

TEST_F(Sender, SendsAgainOnlyWhatTheMaskShowsMissing) {
  start(1384 * 20, LastFragment::acknowledged);
  ASSERT_EQ(numbers(), (Numbers{0, 1, 2, 3}));
  // 0 and 2 arrived: bit 1 of a mask that begins at fragment 1.
  sender_.acknowledge(0, fack(2, 0b10), now_);
  const Numbers again = numbers();
  ASSERT_FALSE(again.empty());
  EXPECT_EQ(again[0], 1);
  EXPECT_EQ(std::count(again.begin(), again.end(), 2), 0);
  EXPECT_EQ(std::count(again.begin(), again.end(), 3), 0);
}

TEST_F(Sender, RepeatsUnansweredFragmentAfterBackOff) {
  start(1384 * 8, LastFragment::acknowledged);
  drain();
  Duration expected = 250ms;
  for (int i = 0; i < 8; ++i) {
    ASSERT_EQ(sender_.wakeup(), now_ + expected);
    now_ += expected - 1ms;
    EXPECT_FALSE(sender_.on_time(now_));
    now_ += 1ms;
    EXPECT_TRUE(sender_.on_time(now_));
    EXPECT_EQ(numbers(), Numbers{0}) << i;
    expected = std::min<Duration>(expected * 2, 8s);
  }
}

TEST_F(Sender, BelievesNoFackOfUnsentFragments) {
  start(1384 * 8, LastFragment::acknowledged);
  drain();
  EXPECT_FALSE(sender_.acknowledge(4, fack(3), now_));
  EXPECT_FALSE(sender_.acknowledge(0x8000, fack(3), now_));
  EXPECT_EQ(sender_.unacknowledged(), 4U);
}

TEST_F(Sender, NocallWithoutBodySendsTheWholeRequestAgain) {
  start(1384 * 3, LastFragment::answered);
  EXPECT_EQ(numbers(), (Numbers{0, 1, 2}));
  sender_.acknowledge_all();
  EXPECT_TRUE(sender_.complete());
  sender_.resend_unacknowledged();
  EXPECT_EQ(numbers(), (Numbers{0, 1, 2}));
}

TEST_F(Sender, RestartKeepsItsCutsAndBelievesAReceiverThatLostLess) {
  start(1384 * 12, LastFragment::answered, 3000);
  drain();
  Fack larger = fack(3);
  larger.max_fragment = 8000;
  sender_.acknowledge(3, larger, now_);
  const auto cut = drain();
  sender_.restart();
  const auto again = drain();
  ASSERT_FALSE(again.empty());
  EXPECT_EQ(again[0].fragment, 0);
  EXPECT_EQ(again[0].body.size(), 1384U);
  EXPECT_TRUE(sender_.acknowledge(4, fack(again.back().serial), now_));
  const auto rest = drain();
  ASSERT_FALSE(rest.empty());
  EXPECT_EQ(rest[0].fragment, 5);
  EXPECT_EQ(rest[0].body.data(), cut[1].body.data());
}

TEST_F(Sender, AReceiverThatDroppedWhatItHeldGetsEverythingAgain) {
  start(1384 * 12, LastFragment::answered);
  ASSERT_EQ(numbers(), (Numbers{0, 1, 2, 3}));
  sender_.acknowledge(2, fack(3), now_);
  // A late fack, caused by a packet sent before that acknowledgement came in, proves nothing.
  sender_.acknowledge(0, fack(2), now_);
  const Numbers next = numbers();
  EXPECT_EQ(std::count(next.begin(), next.end(), 0), 0);
  sender_.acknowledge(0xFFFF, fack(static_cast<std::uint16_t>(serial_ - 1), 0b1000), now_);
  EXPECT_EQ(numbers(), (Numbers{0, 1, 2, 3}));
}

TEST_F(Sender, LargerFragmentsOnlyAfterTheyWereAnnouncedAndThePathTakesThem) {
  start(1384 * 10, LastFragment::answered, 3000);
  EXPECT_EQ(drain()[3].body.size(), 1384U);
  Fack larger = fack(3);
  larger.max_fragment = 8000;
  sender_.acknowledge(3, larger, now_);
  EXPECT_EQ(drain()[0].body.size(), 2920U);
}

// The last one stays behind until one has passed, and the rest is cut anew when none does.
TEST_F(Sender, LargeFragmentsAreATrial) {
  for (const bool pass : {true, false}) {
    start(1384 * 4 + 2920 * 2 + 1000, LastFragment::acknowledged, 3000);
    drain();
    Fack larger = fack(serial_ - 1);
    larger.max_fragment = 8000;
    sender_.acknowledge(3, larger, now_);
    EXPECT_EQ(numbers(), (Numbers{4, 5}));
    sender_.acknowledge(pass ? 4 : 3, pass ? larger : fack(3), now_);
    const auto out = drain();
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out[0].fragment, pass ? 6 : 4);
    EXPECT_EQ(out[0].body.size(), pass ? 1000U : 1384U);
  }
}

TEST_F(Sender, GrowsToTheReceiversWindowAndNoFurther) {
  start(1384 * 200, LastFragment::acknowledged);
  std::size_t most = 0;
  for (auto out = drain(); !out.empty(); out = drain()) {
    most = std::max(most, sender_.unacknowledged());
    sender_.acknowledge(out.back().fragment, fack(out.back().serial, 0, 16), now_);
  }
  EXPECT_TRUE(sender_.complete());
  EXPECT_EQ(most, 16U * 1024 / kLeastMaxFragment);
  EXPECT_EQ(serial_, 200);
}

TEST_F(Sender, ALossHalvesWhatIsInFlight) {
  start(1384 * 40, LastFragment::acknowledged);
  drain();
  sender_.acknowledge(3, fack(3), now_);
  ASSERT_EQ(numbers().size(), 8U);
  sender_.acknowledge(3, fack(11, 0xFE), now_);  // all but fragment 4
  EXPECT_EQ(numbers().size(), 8U / 2 + 7);
}

TEST_F(Sender, ClosedWindowLetsOneFragmentThrough) {
  start(1384 * 10, LastFragment::answered);
  drain();
  sender_.acknowledge(3, fack(3, 0, 0), now_);
  EXPECT_EQ(numbers(), Numbers{4});
}

// --- The joiner alone

class Joiner : public testing::Test {
 protected:
  Joiner() {
    FragmentJoiner::Limits limits;
    limits.body = 100;
    limits.window_kilobytes = 1;
    joiner_.start(limits);
  }
  Result accept(const Packet& packet) { return joiner_.accept(packet, kStart); }

  FragmentJoiner joiner_;
  Bytes eight_ = pattern(8);
};

TEST_F(Joiner, TakesAPacketWithoutFragmentFlagsAsTheWholeBody) {
  Packet packet;
  packet.body = eight_;
  packet.header.flags1 = kFlagLastFragment;
  EXPECT_EQ(accept(packet), Result::complete);
  EXPECT_FALSE(joiner_.fack_due());
  EXPECT_EQ(joiner_.take_body(), eight_);
}

TEST_F(Joiner, FackTellsWhatIsHereInTheExamplesForm) {
  EXPECT_EQ(accept(fragment(2, eight_, kFlagNoFack)), Result::accepted);
  EXPECT_TRUE(joiner_.fack_due());  // out of order
  EXPECT_EQ(joiner_.fack_fragment(), 0xFFFF);
  EXPECT_EQ(joiner_.fack().selective, std::vector<std::uint32_t>{0b100});
  EXPECT_EQ(joiner_.fack().serial, 2);
  accept(fragment(0, eight_, kFlagNoFack));
  EXPECT_FALSE(joiner_.fack_due());
  accept(fragment(3, eight_));
  EXPECT_EQ(joiner_.fack_fragment(), 0);
  EXPECT_EQ(joiner_.fack().selective, std::vector<std::uint32_t>{0b110});
  accept(fragment(1, eight_));
  EXPECT_EQ(joiner_.fack_fragment(), 3);
  EXPECT_TRUE(joiner_.fack().selective.empty());
}

TEST_F(Joiner, LastFlagOnARepeatedLowerFragmentIsIgnored) {
  accept(fragment(0, eight_));
  accept(fragment(2, eight_));
  EXPECT_EQ(accept(fragment(1, eight_, kFlagLastFragment)), Result::accepted);
  EXPECT_FALSE(joiner_.complete());
  EXPECT_EQ(accept(fragment(3, eight_, kFlagLastFragment)), Result::complete);
  EXPECT_EQ(joiner_.take_body().size(), 32U);
}

TEST_F(Joiner, FragmentBeyondTheLastOneIsDropped) {
  accept(fragment(2, eight_, kFlagLastFragment));
  EXPECT_EQ(accept(fragment(3, eight_)), Result::dropped);
  EXPECT_EQ(accept(fragment(3, eight_, kFlagLastFragment)), Result::dropped);
  accept(fragment(0, eight_));
  EXPECT_EQ(accept(fragment(1, eight_)), Result::complete);
}

TEST_F(Joiner, DuplicatesAreCountedAndFackedAgain) {
  accept(fragment(0, eight_));
  EXPECT_EQ(accept(fragment(0, eight_)), Result::duplicate);
  EXPECT_TRUE(joiner_.fack_due());
  EXPECT_EQ(accept(fragment(0, eight_, kFlagNoFack)), Result::duplicate);
  EXPECT_FALSE(joiner_.fack_due());
  accept(fragment(1, eight_, kFlagLastFragment));
  EXPECT_EQ(accept(fragment(1, eight_, kFlagLastFragment)), Result::duplicate);
  EXPECT_TRUE(joiner_.fack_due());
  EXPECT_EQ(joiner_.duplicates(), 3U);
}

TEST_F(Joiner, BodyBeyondItsLimitIsRefusedWhileItArrives) {
  for (std::uint16_t number = 0; number < 12; ++number)
    EXPECT_EQ(accept(fragment(number, eight_)), Result::accepted);
  EXPECT_EQ(accept(fragment(12, eight_)), Result::too_long);
  EXPECT_EQ(accept(fragment(12, pattern(1))), Result::too_long);
  EXPECT_FALSE(joiner_.fack_due());
}

TEST_F(Joiner, HeldFragmentsCountAgainstTheLimitToo) {
  EXPECT_EQ(accept(fragment(1, pattern(96))), Result::accepted);
  EXPECT_EQ(accept(fragment(0, eight_)), Result::too_long);
}

TEST_F(Joiner, FragmentsAheadOfTheWindowAreDropped) {
  FragmentJoiner::Limits limits;
  limits.body = 1 << 30;
  limits.window_kilobytes = 1;
  joiner_.start(limits);
  const Bytes half = pattern(512);
  EXPECT_EQ(accept(fragment(1, half)), Result::accepted);
  EXPECT_EQ(accept(fragment(1, half)), Result::duplicate);
  EXPECT_EQ(accept(fragment(2, half)), Result::accepted);
  EXPECT_EQ(accept(fragment(3, eight_)), Result::dropped);
  EXPECT_EQ(accept(fragment(0x7FFF, eight_)), Result::dropped);
  EXPECT_EQ(accept(fragment(0xFFFF, eight_)), Result::dropped);
  EXPECT_EQ(accept(fragment(0, {})), Result::dropped);
  EXPECT_EQ(accept(fragment(0, half)), Result::accepted);
  EXPECT_EQ(joiner_.fack_fragment(), 2);
}

TEST_F(Joiner, RepeatsItsFackWhileSomethingIsMissing) {
  accept(fragment(1, eight_));
  EXPECT_EQ(joiner_.wakeup(), kStart + 250ms);
  EXPECT_FALSE(joiner_.on_time(kStart + 249ms));
  EXPECT_TRUE(joiner_.on_time(kStart + 250ms));
  EXPECT_EQ(joiner_.wakeup(), kStart + 750ms);
  accept(fragment(0, eight_));
  EXPECT_EQ(joiner_.wakeup(), kStart + 250ms);
  accept(fragment(2, eight_, kFlagLastFragment));
  EXPECT_FALSE(joiner_.wakeup());
}

TEST_F(Joiner, AnnouncesLessAfterTwoRepeatsAndTakesNoOldCut) {
  FragmentJoiner::Limits limits;
  limits.body = 20'000;
  limits.max_fragment = 8000;
  joiner_.start(limits);
  const Bytes large = pattern(4000);
  accept(fragment(0, eight_));
  for (const auto& [after, announced] :
       {std::pair(250ms, 8000U), {750ms, 8000U}, {1750ms, 1464U}}) {
    EXPECT_TRUE(joiner_.on_time(kStart + after));
    EXPECT_EQ(joiner_.fack().max_fragment, announced);
  }
  EXPECT_EQ(accept(fragment(1, large)), Result::dropped);
  EXPECT_EQ(accept(fragment(1, eight_)), Result::accepted);
}

}  // namespace
}  // namespace rpc
