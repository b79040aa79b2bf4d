// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/client/client_call.h"

#include <gtest/gtest.h>

#include <random>
#include <utility>

#include "platform/rpc/wire/status.h"
#include "tests/support/rpc_bytes.h"

namespace rpc {
namespace {

using namespace std::chrono_literals;
using test::Bytes;
using test::hex;
using test::names;
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
    request.longest = longest_;
    request.reply_limit = 4096;
    operation_ = &operation;
    began_ = now_;
    call_.emplace(activity_, identity_, random_, request, now_);
  }

  // A call whose request is out.
  void begin(const OperationSpec& operation = kOnce, unsigned level = 5) {
    call(operation, level);
    sent();
  }

  // What the call wants to send now.
  std::vector<Sent> sent() {
    std::vector<Sent> result;
    while (const auto datagram = call_->next_datagram(now_)) {
      const Bytes bytes = datagram->bytes();
      const auto decoded = decode_packet(bytes);
      EXPECT_TRUE(decoded);
      result.push_back({now_ - began_, datagram->to, decoded->header,
                        Bytes(decoded->body.begin(), decoded->body.end())});
    }
    return result;
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

  void receive_fragment(std::uint16_t number, std::span<const std::byte> body,
                        std::uint8_t flags = 0) {
    PacketHeader header = from_server(PacketType::response);
    header.flags1 = static_cast<std::uint8_t>(kFlagFragment | flags);
    header.fragment = number;
    header.serial = static_cast<std::uint16_t>(40 + number);
    receive(header, Bytes(body.begin(), body.end()));
  }

  // A call that is answered at once; the activity then knows its server.
  void complete_a_call(const OperationSpec& operation = kOnce) {
    begin(operation);
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
  std::optional<Duration> longest_;
  std::optional<ClientCall> call_;
};

TEST_F(ClientCallTest, OneRequestAndItsResponse) {
  call(kOnce, 5, pattern(20));
  const auto packets = sent();
  ASSERT_EQ(names(packets), "request");
  const PacketHeader& header = packets[0].header;
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
  EXPECT_EQ(names(sent()), "request");
  const auto repeats = pass(16s);
  ASSERT_EQ(names(repeats), "request request ping request ping");
  Duration due{};
  Duration wait = 250ms;
  for (const Sent& each : repeats) {
    due += wait;
    EXPECT_GE(each.at, due);
    EXPECT_LE(each.at, due + due / 10);
    wait *= 2;
  }
}

TEST_F(ClientCallTest, RepeatsToAServerHeardBeforeArePings) {
  complete_a_call();
  begin();
  EXPECT_EQ(names(pass(7s)), "ping ping ping ping");
}

TEST_F(ClientCallTest, EveryLevelEndsAfterItsSilence) {
  const int seconds[] = {1, 2, 4, 8, 15, 30, 60, 120, 240, 480};
  for (unsigned level = 0; level < 10; ++level) {
    begin(kOnce, level);
    pass(std::chrono::seconds(seconds[level]) - 1ms);
    EXPECT_FALSE(call_->done()) << level;
    const auto last = pass(1ms);
    expect_end(1722);
    ASSERT_EQ(names(last), "cancel") << level;
    EXPECT_EQ(last[0].body, encode_cancel_body(1, true));
    EXPECT_FALSE(call_->next_datagram(now_));
  }
  begin(kOnce, 10);
  EXPECT_LT(pass(24h).size(), 11'000U);
  EXPECT_FALSE(call_->done());
}

TEST_F(ClientCallTest, LastRepeatLeavesTimeForItsAnswer) {
  for (unsigned level = 0; level < 10; ++level) {
    begin(kOnce, level);
    const Duration silence = *silence_of_level(level);
    const auto packets = pass(silence);
    ASSERT_GE(packets.size(), 3U) << level;
    EXPECT_LE(packets[packets.size() - 2].at, silence - std::min<Duration>(1s, silence / 4));
    EXPECT_LE(packets.size(), 8U + static_cast<std::size_t>(silence / 8s)) << level;
  }
}

TEST_F(ClientCallTest, WorkingKeepsTheCallAliveAndPingsSeldom) {
  begin(kOnce, 0);
  now_ += 100ms;
  receive(PacketType::working);
  for (int i = 0; i < 120; ++i) {  // a minute at half a second each
    ASSERT_EQ(names(pass(550ms)), "ping") << i;
    receive(PacketType::working);
    ASSERT_FALSE(call_->done());
  }
  receive(PacketType::response, pattern(4));
  expect_end(0);
}

TEST_F(ClientCallTest, WorkingForEverEndsWithTheCallsWholeTime) {
  longest_ = 8s;
  begin(kOnce, 0);
  for (int i = 0; i < 8; ++i) {
    pass(900ms);
    receive(PacketType::working);
    ASSERT_FALSE(call_->done()) << i;
  }
  EXPECT_EQ(names(pass(800ms)), "ping ping cancel");
  expect_end(RPC_S_CALL_FAILED);
  EXPECT_FALSE(call_->question_lost());
}

TEST_F(ClientCallTest, PingsAfterWorkingGrowSeldomWithTheCallsAge) {
  begin(kOnce, 9);
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
  begin(kOnce, 1);
  pass(1s);
  receive(PacketType::working);
  pass(1999ms);
  EXPECT_FALSE(call_->done());
  pass(1ms);
  expect_end(1726);
}

// Servers ask who we are before they run what must not run twice.
TEST_F(ClientCallTest, WorkWithoutAQuestionWasNotDone) {
  const struct {
    const OperationSpec& operation;
    bool known;  // to the server, by an earlier call
    Duration works;
    std::uint32_t status;
  } cases[] = {
      {kOnce, false, 1s, 1727},
      {kOnce, false, 999ms, 1726},
      {kRepeatable, false, 1s, 1726},
      {kOnce, true, 1s, 1726},
  };
  for (const auto& each : cases) {
    if (each.known)
      complete_a_call();
    begin(each.operation, 1);
    receive(PacketType::working);
    pass(each.works);
    receive(PacketType::working);
    pass(2s);
    expect_end(each.status);
    EXPECT_EQ(call_->question_lost(), each.status == 1727);
    ++sequence_;
  }
}

TEST_F(ClientCallTest, AnswerToAnEarlierCallDoesNotCount) {
  complete_a_call();
  begin(kOnce, 0);
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
  begin(kOnce, 5);
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
  begin();
  std::size_t requests = 0;
  for (int i = 0; i < 1000; ++i) {
    receive(PacketType::nocall);
    requests += sent().size();
    now_ += 1ms;
  }
  EXPECT_LE(requests, 9U);
}

TEST_F(ClientCallTest, OperationThatRunsIsNotSentAgain) {
  begin(kOnce);
  receive(PacketType::working);
  receive(PacketType::nocall);
  EXPECT_TRUE(sent().empty());
  begin(kRepeatable);
  ++sequence_;
  receive(PacketType::working);
  receive(PacketType::nocall);
  EXPECT_EQ(names(sent()), "request");
}

TEST_F(ClientCallTest, RepliesFromAnotherAddressAreTakenAndAnsweredThere) {
  begin();
  receive(from_server(PacketType::working), {}, kElsewhere);
  const auto pings = pass(4s);
  ASSERT_EQ(names(pings), "ping");
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
    begin();
    receive_status(each.type, each.number);
    expect_end(each.status, each.kind);
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(activity_.take_ack().has_value(), each.type == PacketType::fault);
    ++sequence_;
  }
}

// --- A server that was started anew

TEST_F(ClientCallTest, WrongBootTimeIsTriedOnceMoreWithANewActivity) {
  complete_a_call();
  const uuid_t before = activity_.id();
  begin();
  receive_status(PacketType::reject, nca::kWrongBootTime);
  const auto again = sent();
  ASSERT_EQ(names(again), "request");
  EXPECT_NE(again[0].header.activity, before);
  EXPECT_EQ(again[0].header.server_boot, 0U);
  EXPECT_EQ(again[0].header.interface_hint, kNoHint);
  sequence_ = again[0].header.sequence;
  receive_status(PacketType::reject, nca::kWrongBootTime);
  expect_end(1727);
}

TEST_F(ClientCallTest, OperationThatMayHaveRunIsNotSentToTheNewServer) {
  complete_a_call();
  begin();
  pass(1s);  // a ping: the reject may answer it, and the request have been served before
  receive_status(PacketType::reject, nca::kWrongBootTime);
  expect_end(1726);
  EXPECT_TRUE(sent().empty());
}

TEST_F(ClientCallTest, OtherBootTimeInAnAnswerIsARestart) {
  for (const bool repeatable : {false, true}) {
    complete_a_call();
    begin(repeatable ? kRepeatable : kOnce);
    pass(1s);
    PacketHeader working = from_server(PacketType::working);
    working.server_boot = kBoot + 1;
    receive(working);
    if (repeatable) {
      EXPECT_EQ(names(sent()), "request");
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
  begin();
  receive(question(0), about(activity_.id(), kBoot), kElsewhere);
  const auto answers = sent();
  ASSERT_EQ(names(answers), "response");
  const PacketHeader& header = answers[0].header;
  EXPECT_EQ(answers[0].to, kElsewhere);
  EXPECT_EQ(header.activity, question(0).activity);
  EXPECT_EQ(header.sequence, 77U);
  EXPECT_EQ(header.interface_id, question(0).interface_id);
  EXPECT_TRUE(header.representation.little_endian);
  EXPECT_EQ(header.server_boot, identity_.boot_time);
  EXPECT_NE(header.server_boot, 0U);
  EXPECT_EQ(answers[0].body, hex("00000000 00000000"));
  // What the call itself sends still goes to the server, as pings: it has been heard.
  const auto pings = pass(300ms);
  ASSERT_EQ(names(pings), "ping");
  EXPECT_EQ(pings[0].to, kServer);
}

TEST_F(CallBackTest, OtherQuestionsAndTheirAnswers) {
  const uuid_t stranger = {9, 9, 9, 9, 9, {9, 9, 9, 9, 9, 9}};
  PacketHeader other_interface = question(0);
  other_interface.interface_id.time_low ^= 1;
  PacketHeader other_version = question(0);
  other_version.interface_version = 4;
  complete_a_call();
  begin();
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
  begin(kOnce, 0);
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
  begin(kOnce, 0);
  receive(PacketType::working);
  call_->unreachable({}, kServer, now_);
  EXPECT_FALSE(call_->done());
  pass(1s);
  expect_end(1726);

  ++sequence_;
  begin();
  receive(PacketType::working);
  call_->unreachable({}, kServer, now_);  // one more reason to ask again
  EXPECT_LT(*call_->wakeup(), now_ + 1200ms);
}

TEST_F(ClientCallTest, ShortQuoteOfARouterCountsByItsAddress) {
  begin();
  call_->unreachable(pattern(8), kServer, now_);
  expect_end(1722);
}

// --- Replies

TEST_F(ClientCallTest, RepresentationOfTheReplyIsHandedUp) {
  begin();
  PacketHeader response = from_server(PacketType::response);
  response.representation = {false, true, 3};
  receive(response, pattern(4));
  expect_end(0);
  EXPECT_EQ(call_->representation(), response.representation);
}

TEST_F(ClientCallTest, ReplyInFragmentsIsFackedAndJoined) {
  begin(kRepeatable);
  const Bytes body = pattern(2400);
  const auto fragment = [&](std::uint16_t number, std::uint8_t flags) {
    receive_fragment(number, std::span(body).subspan(800U * number, 800), flags);
  };
  fragment(0, 0);
  auto facks = sent();
  ASSERT_EQ(names(facks), "fack");
  EXPECT_EQ(facks[0].header.fragment, 0);
  EXPECT_EQ(decode_fack(facks[0].body, true)->serial, 40);
  fragment(2, kFlagLastFragment | kFlagNoFack);
  EXPECT_EQ(names(sent()), "fack");  // out of order
  facks = pass(1s);                  // a hole: the fack again on the clock, no ping
  ASSERT_EQ(names(facks), "fack fack");
  EXPECT_EQ(decode_fack(facks[1].body, true)->selective, std::vector<std::uint32_t>{2});
  fragment(1, kFlagNoFack);
  expect_end(0);
  EXPECT_EQ(call_->take_reply(), body);
  EXPECT_TRUE(activity_.owes_ack());
}

TEST_F(ClientCallTest, FacksThatAcknowledgeNothingNewKeepNoCallAlive) {
  for (const std::size_t size : {20U, 5000U}) {
    call(kOnce, 0, pattern(size));
    sent();
    PacketHeader fack = from_server(PacketType::fack);
    for (int i = 0; i < 10 && !call_->done(); ++i) {
      receive(fack, encode_fack({}, true));
      pass(120ms);
    }
    expect_end(1726);
    ++sequence_;
  }
}

TEST_F(ClientCallTest, PacketsWithAVerifierAreDroppedAndCounted) {
  begin(kOnce, 0);
  Bytes response = encode_packet(from_server(PacketType::response), pattern(4));
  response[78] = std::byte{10};
  call_->receive(response, kServer, now_);
  response[40] ^= std::byte{1};  // another activity
  call_->receive(response, kServer, now_);
  pass(1s);
  expect_end(1722);
  EXPECT_EQ(call_->verifiers_dropped(), 1U);
}

TEST_F(ClientCallTest, FragmentsThatWereHereKeepNoCallAlive) {
  begin(kRepeatable, 0);
  receive_fragment(0x7000, pattern(800));  // beyond the window: the server lives, and that is all
  EXPECT_FALSE(call_->receiving());
  EXPECT_EQ(names(sent()), "fack");
  receive_fragment(0, pattern(800));
  for (int i = 0; i < 9; ++i) {
    receive_fragment(2, pattern(800));
    pass(100ms);
  }
  EXPECT_FALSE(call_->done());
  pass(100ms);
  expect_end(1726);
}

TEST_F(ClientCallTest, ReplyBeyondItsLimitIsRefusedAndAcknowledged) {
  begin();
  receive(PacketType::response, pattern(4096 + 8));
  expect_end(1783, FailureKind::local);
  EXPECT_EQ(names(sent()), "ack");
}

// --- Requests in fragments

TEST_F(ClientCallTest, LongRequestWaitsForFacksAndMendsItsTailByAsking) {
  call(kOnce, 5, pattern(1384 * 5));
  ASSERT_EQ(sent().size(), 4U);
  // Nothing comes: the first fragment again, no ping, since the request is not out.
  auto packets = pass(300ms);
  ASSERT_EQ(names(packets), "request");
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
  ASSERT_EQ(names(packets), "ping");
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
  begin(kOnce, 0);
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
