#include "platform/rpc/client_call.h"

#include <gtest/gtest.h>

#include <random>
#include <utility>

#include "platform/rpc/status.h"
#include "tests/platform/rpc_bytes.h"

namespace rpc {
namespace {

using namespace std::chrono_literals;
using test::Bytes;
using test::hex;
using test::pattern;

constexpr InterfaceSpec kInterface = {
    {0x5e61c7d3, 0xa04b, 0, 2, 10, {0x14, 0x1e, 0x32, 0, 0, 0}}, 2, 0, "ag"};
constexpr InterfaceSpec kOther = {
    {0x5b3c82a0, 0x17e4, 0, 2, 10, {0x14, 0x1e, 0x28, 0, 0, 0}}, 2, 0, "rep"};
constexpr OperationSpec kOnce = {&kInterface, 20, false, "once"};
constexpr OperationSpec kRepeatable = {&kInterface, 21, true, "repeatable"};
constexpr OperationSpec kOfOther = {&kOther, 1, false, "other"};

constexpr SocketAddress kServer = {0x0A010203, 1045};
constexpr SocketAddress kElsewhere = {0x0A010299, 1046};
constexpr std::uint32_t kBoot = 0x67456A12;
const Time kStart{1h};

class SeededRandom : public RandomSource {
 public:
  void fill(std::span<std::byte> bytes) override {
    for (std::byte& each : bytes)
      each = static_cast<std::byte>(engine_());
  }

 private:
  std::mt19937 engine_{1};
};

struct Sent {
  Duration at;  // since the start
  SocketAddress to;
  PacketHeader header;
  Bytes body;
};

// One client, whose server is the test.
class ClientCallTest : public testing::Test {
 protected:
  void call(const OperationSpec& operation = kOnce, unsigned level = 5, Bytes body = {}) {
    request_body_ = std::move(body);
    CallRequest request;
    request.operation = &operation;
    request.body = request_body_;
    request.timeout_level = level;
    request.reply_limit = 4096;
    operation_ = &operation;
    began_ = now_;
    call_.emplace(activity_, identity_, random_, request, now_);
  }

  // What the call wants to send now.
  std::vector<Sent> sent() {
    std::vector<Sent> result;
    while (const auto packet = call_->next_packet(now_)) {
      Bytes datagram(packet->header.begin(), packet->header.end());
      datagram.insert(datagram.end(), packet->body.begin(), packet->body.end());
      const auto decoded = decode_packet(datagram);
      EXPECT_TRUE(decoded);
      result.push_back({now_ - began_, packet->to, decoded->header,
                        Bytes(decoded->body.begin(), decoded->body.end())});
    }
    return result;
  }

  std::vector<PacketType> sent_types() {
    std::vector<PacketType> types;
    for (const Sent& each : sent())
      types.push_back(each.header.type);
    return types;
  }

  // Lets the clock run and gathers what is sent meanwhile.
  std::vector<Sent> pass(Duration time) {
    std::vector<Sent> result;
    const Time end = now_ + time;
    while (!call_->done() && call_->wakeup() && *call_->wakeup() <= end) {
      now_ = std::max(now_, *call_->wakeup());
      call_->on_time(now_);
      for (Sent& each : sent())
        result.push_back(std::move(each));
    }
    now_ = end;
    return result;
  }

  PacketHeader from_server(PacketType type) {
    PacketHeader header;
    header.type = type;
    header.interface_id = operation_->interface->id;
    header.interface_version = operation_->interface->version();
    header.opnum = operation_->opnum;
    header.activity = activity_.id();
    header.sequence = sequence_;
    header.server_boot = kBoot;
    header.interface_hint = 3;
    header.activity_hint = 7;
    return header;
  }

  void receive(const PacketHeader& header, const Bytes& body = {},
               const SocketAddress& source = kServer) {
    call_->receive(encode_packet(header, body), source, now_);
  }
  void receive(PacketType type, const Bytes& body = {}) { receive(from_server(type), body); }
  void receive_status(PacketType type, std::uint32_t status) {
    receive(type, encode_status_body(status, true));
  }

  // A call that is answered at once; the activity then knows its server.
  void complete_a_call(const OperationSpec& operation = kOnce) {
    call(operation);
    sent();
    receive(PacketType::response, pattern(4));
    ASSERT_TRUE(call_->done());
    ++sequence_;
  }

  void expect_end(std::uint32_t status, FailureKind kind = FailureKind::communication) {
    ASSERT_TRUE(call_->done());
    EXPECT_EQ(call_->status(), status);
    EXPECT_EQ(call_->kind(), kind);
    EXPECT_FALSE(call_->wakeup());
  }

  SeededRandom random_;
  Time now_ = kStart;
  Time began_ = kStart;
  Activity activity_{kServer, random_};
  ClientIdentity identity_ = ClientIdentity::make(random_);
  Bytes request_body_;
  const OperationSpec* operation_ = nullptr;
  std::uint32_t sequence_ = 0;
  std::optional<ClientCall> call_;
};

using Types = std::vector<PacketType>;

TEST_F(ClientCallTest, OneRequestAndItsResponse) {
  call(kOnce, 5, pattern(20));
  const auto packets = sent();
  ASSERT_EQ(packets.size(), 1U);
  const PacketHeader& header = packets[0].header;
  EXPECT_EQ(header.type, PacketType::request);
  EXPECT_EQ(header.flags1, 0);
  EXPECT_EQ(header.server_boot, 0U);
  EXPECT_EQ(header.interface_hint, kNoHint);
  EXPECT_EQ(header.activity_hint, kNoHint);
  EXPECT_EQ(packets[0].to, kServer);
  EXPECT_EQ(packets[0].body, pattern(20));
  receive(PacketType::response, pattern(8));
  expect_end(0);
  EXPECT_EQ(call_->take_reply(), pattern(8));
  EXPECT_TRUE(sent().empty());
  EXPECT_TRUE(activity_.owes_ack());
}

TEST_F(ClientCallTest, LearnsBootTimeAndHintsForLaterCalls) {
  complete_a_call();
  call();
  const auto same = sent();
  EXPECT_EQ(same[0].header.sequence, 1U);
  EXPECT_EQ(same[0].header.server_boot, kBoot);
  EXPECT_EQ(same[0].header.interface_hint, 3);
  EXPECT_EQ(same[0].header.activity_hint, 7);
  EXPECT_FALSE(activity_.owes_ack());  // the request is the ack
  receive(PacketType::response);
  call(kOfOther);
  const auto other = sent();
  EXPECT_EQ(other[0].header.interface_hint, kNoHint);
  EXPECT_EQ(other[0].header.activity_hint, 7);
}

TEST_F(ClientCallTest, AckIsOwedUnlessTheReplyIsIdempotentAndShort) {
  complete_a_call(kRepeatable);
  EXPECT_FALSE(activity_.owes_ack());
  complete_a_call(kOnce);
  const auto ack = activity_.take_ack();
  ASSERT_TRUE(ack);
  const auto packet = decode_packet(ack->header);
  ASSERT_TRUE(packet);
  EXPECT_EQ(packet->header.type, PacketType::ack);
  EXPECT_EQ(packet->header.sequence, 1U);
  EXPECT_EQ(packet->header.opnum, kOnce.opnum);
  EXPECT_FALSE(activity_.take_ack());
}

TEST_F(ClientCallTest, RepeatsToAServerNeverHeardAreRequestsThenPingsInTurn) {
  call();
  EXPECT_EQ(sent_types(), Types{PacketType::request});
  const auto repeats = pass(16s);
  const Types expected = {PacketType::request, PacketType::request, PacketType::ping,
                          PacketType::request, PacketType::ping};
  ASSERT_EQ(repeats.size(), expected.size());
  Duration due{};
  Duration wait = 250ms;
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(repeats[i].header.type, expected[i]) << i;
    due += wait;
    EXPECT_GE(repeats[i].at, due) << i;
    EXPECT_LE(repeats[i].at, due + due / 10) << i;
    wait *= 2;
  }
}

TEST_F(ClientCallTest, RepeatsToAServerHeardBeforeArePings) {
  complete_a_call();
  call();
  sent();
  for (const Sent& each : pass(8s))
    EXPECT_EQ(each.header.type, PacketType::ping);
}

TEST_F(ClientCallTest, EveryLevelEndsAfterItsSilence) {
  const int seconds[] = {1, 2, 4, 8, 15, 30, 60, 120, 240, 480};
  for (unsigned level = 0; level < 10; ++level) {
    call(kOnce, level);
    sent();
    pass(std::chrono::seconds(seconds[level]) - 1ms);
    EXPECT_FALSE(call_->done()) << level;
    const auto last = pass(1ms);
    expect_end(1722);
    ASSERT_EQ(last.size(), 1U) << level;
    EXPECT_EQ(last[0].header.type, PacketType::cancel) << level;
    EXPECT_EQ(last[0].body, encode_cancel_body(1, true));
    EXPECT_FALSE(call_->next_packet(now_));
  }
  call(kOnce, 10);
  sent();
  EXPECT_LT(pass(24h).size(), 11'000U);
  EXPECT_FALSE(call_->done());
}

TEST_F(ClientCallTest, LastRepeatLeavesTimeForItsAnswer) {
  for (unsigned level = 0; level < 10; ++level) {
    call(kOnce, level);
    sent();
    const Duration silence = *silence_of_level(level);
    const auto packets = pass(silence);
    ASSERT_GE(packets.size(), 3U) << level;
    EXPECT_LE(packets[packets.size() - 2].at, silence - std::min<Duration>(1s, silence / 4));
    EXPECT_LE(packets.size(), 8U + static_cast<std::size_t>(silence / 8s)) << level;
  }
}

TEST_F(ClientCallTest, WorkingKeepsTheCallAliveAndPingsSeldom) {
  call(kOnce, 0);
  sent();
  now_ += 100ms;
  receive(PacketType::working);
  std::size_t pings = 0;
  for (int i = 0; i < 120; ++i) {  // a minute at half a second each
    const auto packets = pass(550ms);
    ASSERT_EQ(packets.size(), 1U) << i;
    ASSERT_EQ(packets[0].header.type, PacketType::ping);
    ++pings;
    receive(PacketType::working);
    ASSERT_FALSE(call_->done());
  }
  receive(PacketType::response, pattern(4));
  expect_end(0);
  EXPECT_EQ(pings, 120U);
}

TEST_F(ClientCallTest, PingsAfterWorkingGrowSeldomWithTheCallsAge) {
  call(kOnce, 9);
  sent();
  const auto next_ping = [this] {
    receive(PacketType::working);
    const Time before = now_;
    while (true) {
      now_ = *call_->wakeup();
      call_->on_time(now_);
      if (!sent().empty())
        return now_ - before;
    }
  };
  const auto within = [](Duration wait, Duration expected) {
    return wait >= expected && wait <= expected + expected / 10;
  };
  EXPECT_TRUE(within(next_ping(), 3s));
  now_ = began_ + 12s;
  EXPECT_TRUE(within(next_ping(), 10s));
  now_ = began_ + 40s;
  EXPECT_TRUE(within(next_ping(), 30s));
  // Unanswered: again after 2, 4, 8 and 8 seconds.
  const auto repeats = pass(24s);
  ASSERT_EQ(repeats.size(), 4U);
  EXPECT_TRUE(within(repeats[1].at - repeats[0].at, 4s));
  EXPECT_TRUE(within(repeats[2].at - repeats[1].at, 8s));
}

TEST_F(ClientCallTest, SilenceAfterAnAnswerIsACallThatFailed) {
  call(kOnce, 1);
  sent();
  pass(1s);
  receive(PacketType::working);
  pass(1999ms);
  EXPECT_FALSE(call_->done());
  pass(1ms);
  expect_end(1726);
}

TEST_F(ClientCallTest, AnswerToAnEarlierCallDoesNotCount) {
  complete_a_call();
  call(kOnce, 0);
  sent();
  PacketHeader earlier = from_server(PacketType::working);
  --earlier.sequence;
  receive(earlier);
  PacketHeader foreign = from_server(PacketType::response);
  foreign.activity.node[5] ^= 1;
  receive(foreign, pattern(4));
  pass(1s);
  expect_end(1722);
}

TEST_F(ClientCallTest, NocallBringsTheRequestAtOnceAndBacksOffInARow) {
  complete_a_call();
  call(kOnce, 5);
  sent();
  std::size_t requests = 0;
  std::size_t nocalls = 0;
  const Time before = now_;
  while (!call_->done()) {
    for (const Sent& each : pass(10ms)) {
      if (each.header.type != PacketType::ping)
        continue;
      receive(PacketType::nocall);
      ++nocalls;
      for (const Sent& answer : sent())
        requests += answer.header.type == PacketType::request ? 1 : 0;
    }
    ASSERT_LT(now_ - before, 60s);
  }
  expect_end(1726);
  // Counted from the first nocall, not from each.
  EXPECT_LE(now_ - before, 31s);
  EXPECT_EQ(requests, nocalls);
  EXPECT_LE(nocalls, 9U);
}

TEST_F(ClientCallTest, FloodOfNocallsBringsNoFloodOfRequests) {
  call();
  sent();
  std::size_t requests = 0;
  for (int i = 0; i < 1000; ++i) {
    receive(PacketType::nocall);
    requests += sent().size();
    now_ += 1ms;
  }
  EXPECT_LE(requests, 9U);
}

TEST_F(ClientCallTest, OperationThatRunsIsNotSentAgain) {
  call(kOnce);
  sent();
  receive(PacketType::working);
  receive(PacketType::nocall);
  EXPECT_TRUE(sent().empty());
  call(kRepeatable);
  sent();
  ++sequence_;
  receive(PacketType::working);
  receive(PacketType::nocall);
  EXPECT_EQ(sent_types(), Types{PacketType::request});
}

TEST_F(ClientCallTest, RepliesFromAnotherAddressAreTakenAndAnsweredThere) {
  call();
  sent();
  receive(from_server(PacketType::working), {}, kElsewhere);
  const auto pings = pass(4s);
  ASSERT_EQ(pings.size(), 1U);
  EXPECT_EQ(pings[0].to, kElsewhere);
  receive(from_server(PacketType::response), pattern(4), kServer);
  expect_end(0);
}

TEST_F(ClientCallTest, StatusesOfFaultsAndRejects) {
  const struct {
    PacketType type;
    std::uint32_t number;
    std::uint32_t status;
    FailureKind kind;
  } cases[] = {
      {PacketType::fault, nca::kContextMismatch, 6, FailureKind::fault},
      {PacketType::fault, 4711, 4711, FailureKind::fault},
      {PacketType::reject, nca::kUnknownInterface, 1717, FailureKind::communication},
      {PacketType::reject, nca::kServerTooBusy, 1723, FailureKind::communication},
  };
  for (const auto& each : cases) {
    call();
    sent();
    receive_status(each.type, each.number);
    expect_end(each.status, each.kind);
    EXPECT_TRUE(sent().empty());
    ++sequence_;
  }
}

// --- A server that was started anew

TEST_F(ClientCallTest, WrongBootTimeIsTriedOnceMoreWithANewActivity) {
  complete_a_call();
  const uuid_t before = activity_.id();
  call();
  sent();
  receive_status(PacketType::reject, nca::kWrongBootTime);
  const auto again = sent();
  ASSERT_EQ(again.size(), 1U);
  EXPECT_EQ(again[0].header.type, PacketType::request);
  EXPECT_NE(again[0].header.activity, before);
  EXPECT_EQ(again[0].header.server_boot, 0U);
  EXPECT_EQ(again[0].header.interface_hint, kNoHint);
  sequence_ = again[0].header.sequence;
  receive_status(PacketType::reject, nca::kWrongBootTime);
  expect_end(1727);
}

TEST_F(ClientCallTest, OperationThatMayHaveRunIsNotSentToTheNewServer) {
  complete_a_call();
  call();
  sent();
  pass(1s);  // a ping: the reject may answer it, and the request have been served before
  receive_status(PacketType::reject, nca::kWrongBootTime);
  expect_end(1726);
  EXPECT_TRUE(sent().empty());
}

TEST_F(ClientCallTest, OtherBootTimeInAnAnswerIsARestart) {
  for (const bool repeatable : {false, true}) {
    complete_a_call();
    call(repeatable ? kRepeatable : kOnce);
    sent();
    pass(1s);
    PacketHeader working = from_server(PacketType::working);
    working.server_boot = kBoot + 1;
    receive(working);
    if (repeatable) {
      EXPECT_EQ(sent_types(), Types{PacketType::request});
      EXPECT_FALSE(call_->done());
    } else {
      expect_end(1726);
    }
    EXPECT_EQ(activity_.server_boot(), 0U);
    sequence_ = 0;
  }
}

// --- Call-backs

class CallBackTest : public ClientCallTest {
 protected:
  PacketHeader question(std::uint16_t opnum) {
    PacketHeader header;
    header.type = PacketType::request;
    header.flags1 = kFlagIdempotent;
    header.representation.little_endian = false;
    header.interface_id = {0x333a2276, 0, 0, 0x0d, 0, {0, 0x80, 0x9c, 0, 0, 0}};
    header.interface_version = 3;
    header.activity = {1, 2, 3, 4, 5, {6, 7, 8, 9, 10, 11}};
    header.sequence = 77;
    header.opnum = opnum;
    return header;
  }

  // The activity's UUID and a boot time, big-endian.
  Bytes about(const uuid_t& activity, std::uint32_t boot_time) {
    PacketHeader carrier;
    carrier.representation.little_endian = false;
    carrier.object = activity;
    const Bytes encoded = encode_packet(carrier, {});
    Bytes body(encoded.begin() + 8, encoded.begin() + 24);
    const Bytes boot = encode_status_body(boot_time, false);
    body.insert(body.end(), boot.begin(), boot.end());
    return body;
  }
};

TEST_F(CallBackTest, AnswersWhoAreYouToItsSource) {
  call();
  sent();
  receive(question(0), about(activity_.id(), kBoot), kElsewhere);
  const auto answers = sent();
  ASSERT_EQ(answers.size(), 1U);
  const PacketHeader& header = answers[0].header;
  EXPECT_EQ(answers[0].to, kElsewhere);
  EXPECT_EQ(header.type, PacketType::response);
  EXPECT_EQ(header.activity, question(0).activity);
  EXPECT_EQ(header.sequence, 77U);
  EXPECT_EQ(header.interface_id, question(0).interface_id);
  EXPECT_TRUE(header.representation.little_endian);
  EXPECT_EQ(header.server_boot, identity_.boot_time);
  EXPECT_NE(header.server_boot, 0U);
  EXPECT_EQ(answers[0].body, hex("00000000 00000000"));
  // What the call itself sends still goes to the server, as pings: it has been heard.
  const auto pings = pass(300ms);
  ASSERT_EQ(pings.size(), 1U);
  EXPECT_EQ(pings[0].header.type, PacketType::ping);
  EXPECT_EQ(pings[0].to, kServer);
}

TEST_F(CallBackTest, OtherQuestionsAndTheirAnswers) {
  const uuid_t stranger = {9, 9, 9, 9, 9, {9, 9, 9, 9, 9, 9}};
  PacketHeader other_interface = question(0);
  other_interface.interface_id.time_low ^= 1;
  PacketHeader other_version = question(0);
  other_version.interface_version = 4;
  complete_a_call();
  call();
  sent();
  const struct {
    const char* what;
    PacketHeader header;
    Bytes body;
    PacketType type;
    std::size_t size;
    std::uint32_t status;  // the last four bytes
  } cases[] = {
      {"who_are_you2", question(1), about(activity_.id(), kBoot), PacketType::response, 24, 0},
      {"are_you_there", question(2), about(activity_.id(), kBoot), PacketType::response, 4, 0},
      {"unknown activity", question(0), about(stranger, kBoot), PacketType::response, 8,
       nca::kBadActivity},
      {"other boot time", question(1), about(activity_.id(), kBoot + 1), PacketType::response, 24,
       nca::kYouCrashed},
      {"other operation", question(3), about(activity_.id(), kBoot), PacketType::reject, 4,
       nca::kOperationRange},
      {"other interface", other_interface, about(activity_.id(), kBoot), PacketType::reject, 4,
       nca::kUnknownInterface},
      {"other version", other_version, about(activity_.id(), kBoot), PacketType::reject, 4,
       nca::kUnknownInterface},
      {"too short", question(0), pattern(19), PacketType::reject, 4, nca::kProtocolError},
  };
  for (const auto& each : cases) {
    receive(each.header, each.body, kElsewhere);
    const auto answers = sent();
    ASSERT_EQ(answers.size(), 1U) << each.what;
    EXPECT_EQ(answers[0].header.type, each.type) << each.what;
    ASSERT_EQ(answers[0].body.size(), each.size) << each.what;
    EXPECT_EQ(decode_status_body(std::span(answers[0].body).last(4), true), each.status)
        << each.what;
  }
}

TEST_F(CallBackTest, FloodIsAnsweredSparinglyAndKeepsNoCallAlive) {
  const uuid_t stranger = {9, 9, 9, 9, 9, {9, 9, 9, 9, 9, 9}};
  call(kOnce, 0);
  sent();
  std::size_t answers = 0;
  for (int i = 0; i < 1000; ++i) {
    receive(question(0), about(stranger, kBoot), kElsewhere);
    answers += sent().size();
  }
  EXPECT_LE(answers, 64U);
  receive(question(0), about(activity_.id(), kBoot), kElsewhere);
  EXPECT_EQ(sent().size(), 1U);  // the server's own question is not crowded out
  pass(1s);
  expect_end(1726);
}

// --- What the network says

TEST_F(ClientCallTest, UnreachablePortEndsTheCallAtOnceUnlessTheServerWasHeard) {
  call();
  const auto request = sent();
  const Bytes quoted = encode_packet(request[0].header, {});
  call_->unreachable(quoted, kElsewhere, now_);
  EXPECT_FALSE(call_->done());
  PacketHeader earlier = request[0].header;
  --earlier.sequence;
  call_->unreachable(encode_packet(earlier, {}), kServer, now_);
  EXPECT_FALSE(call_->done());
  call_->unreachable(quoted, kServer, now_);
  expect_end(1722);
  EXPECT_TRUE(sent().empty());

  ++sequence_;
  call(kOnce, 0);
  sent();
  receive(PacketType::working);
  call_->unreachable({}, kServer, now_);
  EXPECT_FALSE(call_->done());
  pass(1s);
  expect_end(1726);

  ++sequence_;
  call();
  sent();
  receive(PacketType::working);
  call_->unreachable({}, kServer, now_);  // one more reason to ask again
  EXPECT_LT(*call_->wakeup(), now_ + 1200ms);
}

TEST_F(ClientCallTest, ShortQuoteOfARouterCountsByItsAddress) {
  call();
  sent();
  call_->unreachable(pattern(8), kServer, now_);
  expect_end(1722);
}

// --- Replies

TEST_F(ClientCallTest, RepresentationOfTheReplyIsHandedUp) {
  call();
  sent();
  PacketHeader response = from_server(PacketType::response);
  response.representation = {false, true, 3};
  receive(response, pattern(4));
  expect_end(0);
  EXPECT_EQ(call_->representation(), response.representation);
}

TEST_F(ClientCallTest, ReplyInFragmentsIsFackedAndJoined) {
  call(kRepeatable);
  sent();
  const Bytes body = pattern(2400);
  const auto fragment = [&](std::uint16_t number, std::uint8_t flags) {
    PacketHeader header = from_server(PacketType::response);
    header.flags1 = static_cast<std::uint8_t>(kFlagFragment | flags);
    header.fragment = number;
    header.serial = static_cast<std::uint16_t>(40 + number);
    receive(header, Bytes(body.begin() + 800 * number, body.begin() + 800 * (number + 1)));
  };
  fragment(0, 0);
  auto facks = sent();
  ASSERT_EQ(facks.size(), 1U);
  EXPECT_EQ(facks[0].header.type, PacketType::fack);
  EXPECT_EQ(facks[0].header.fragment, 0);
  EXPECT_EQ(decode_fack(facks[0].body, true)->serial, 40);
  fragment(2, kFlagLastFragment | kFlagNoFack);
  EXPECT_EQ(sent_types(), Types{PacketType::fack});  // out of order
  facks = pass(1s);                                  // a hole: the fack again on the clock, no ping
  ASSERT_EQ(facks.size(), 2U);
  EXPECT_EQ(facks[1].header.type, PacketType::fack);
  EXPECT_EQ(decode_fack(facks[1].body, true)->selective, std::vector<std::uint32_t>{2});
  fragment(1, kFlagNoFack);
  expect_end(0);
  EXPECT_EQ(call_->take_reply(), body);
  EXPECT_TRUE(activity_.owes_ack());
}

TEST_F(ClientCallTest, FragmentsThatWereHereKeepNoCallAlive) {
  call(kRepeatable, 0);
  sent();
  const auto fragment = [&](std::uint16_t number) {
    PacketHeader header = from_server(PacketType::response);
    header.flags1 = kFlagFragment;
    header.fragment = number;
    receive(header, pattern(800));
  };
  fragment(0x7000);  // beyond the window: the server lives, and that is all
  EXPECT_FALSE(call_->receiving());
  EXPECT_EQ(sent_types(), Types{PacketType::fack});
  fragment(0);
  for (int i = 0; i < 9; ++i) {
    fragment(2);
    pass(100ms);
  }
  EXPECT_FALSE(call_->done());
  pass(100ms);
  expect_end(1726);
}

TEST_F(ClientCallTest, ReplyBeyondItsLimitIsRefusedAndAcknowledged) {
  call();
  sent();
  receive(PacketType::response, pattern(4097));
  expect_end(1783, FailureKind::local);
  EXPECT_EQ(sent_types(), Types{PacketType::ack});
}

// --- Requests in fragments

TEST_F(ClientCallTest, LongRequestWaitsForFacksAndMendsItsTailByAsking) {
  call(kOnce, 5, pattern(1384 * 5));
  auto packets = sent();
  ASSERT_EQ(packets.size(), 4U);
  // Nothing comes: the first fragment again, no ping, since the request is not out.
  packets = pass(300ms);
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0].header.type, PacketType::request);
  EXPECT_EQ(packets[0].header.fragment, 0);
  Fack fack;
  fack.window_kilobytes = 32;
  fack.serial = packets[0].header.serial;
  PacketHeader header = from_server(PacketType::fack);
  header.fragment = 3;
  receive(header, encode_fack(fack, true));
  packets = sent();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0].header.flags1, kFlagFragment | kFlagLastFragment | kFlagNoFack);
  // The last one got lost: a ping, and the nocall's fack body shows the hole.
  packets = pass(300ms);
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0].header.type, PacketType::ping);
  header = from_server(PacketType::nocall);
  header.fragment = 3;
  fack.serial = packets[0].header.serial;
  receive(header, encode_fack(fack, true));
  packets = sent();
  ASSERT_EQ(packets.size(), 1U);
  EXPECT_EQ(packets[0].header.fragment, 4);
  receive(PacketType::response, pattern(4));
  expect_end(0);
}

TEST_F(ClientCallTest, GarbageIsDroppedWithoutAWord) {
  call(kOnce, 0);
  sent();
  for (std::size_t size = 0; size < 200; size += 7)
    call_->receive(pattern(size), kServer, now_);
  for (const auto type :
       {PacketType::ping, PacketType::ack, PacketType::cancel, PacketType::cancel_ack})
    receive(type);
  EXPECT_TRUE(sent().empty());
  pass(1s);
  expect_end(1722);
}

}  // namespace
}  // namespace rpc
