// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/server/server_core.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "platform/numbers/status.h"
#include "platform/rpc/client/liveness.h"
#include "platform/rpc/server/management_interface.h"
#include "platform/rpc/wire/pdu.h"
#include "platform/rpc/wire/time_constants.h"
#include "platform/rpc/wire/wire_bytes.h"
#include "tests/support/echo_interface.h"
#include "tests/support/rpc_bytes.h"

namespace rpc::server {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test::names;
using test::pattern;

constexpr std::uint32_t kBoot = 0x67456A12;
constexpr SocketAddress kClient{0x7F000001, 40'000};
constexpr SocketAddress kOtherPort{0x7F000001, 40'001};
constexpr uuid_t kActivity{0x2f0c8a1e, 0x90b2, 0x41ef, 0x8a, 0x3c, {2, 0x42, 0xac, 0x11, 0, 2}};
constexpr uuid_t kCallBackActivity{0x70000000, 1, 0x4002, 0x80, 3, {4, 5, 6, 7, 8, 9}};

CoreOptions options_of(CallBack call_back) {
  CoreOptions options;
  options.boot_time = kBoot;
  options.call_back = call_back;
  options.call_back_activity = kCallBackActivity;
  options.first_interface_hint = 3;
  options.first_activity_hint = 7;
  return options;
}

struct Sent {
  PacketHeader header;
  std::vector<std::byte> body;
  SocketAddress to;
  bool call_back = false;

  std::uint32_t word(std::size_t at) const {
    return load32(body.data() + at, header.representation.little_endian);
  }
};

// A server and the hand that plays its client.
class Server {
 public:
  explicit Server(const CoreOptions& options = options_of(CallBack::none))
      : management({&echo}), core(options, {&echo, &management}) {}

  static PacketHeader request(std::uint32_t sequence, const OperationSpec& operation) {
    PacketHeader header;
    header.interface_id = kEchoSpec.id;
    header.interface_version = kEchoSpec.version();
    header.activity = kActivity;
    header.sequence = sequence;
    header.opnum = operation.opnum;
    header.flags1 = operation.idempotent ? kFlagIdempotent : 0;
    return header;
  }
  static PacketHeader packet(PacketType type, std::uint32_t sequence,
                             const OperationSpec& operation = kChangeOperation) {
    PacketHeader header = request(sequence, operation);
    header.type = type;
    return header;
  }

  // What the server sends at once in answer.
  std::vector<Sent> in(const PacketHeader& header, std::span<const std::byte> body = {},
                       const SocketAddress& source = kClient) {
    core.receive(encode_packet(header, body), source, now);
    return out();
  }
  std::vector<Sent> after(Duration duration) {
    const Time end = now + duration;
    std::vector<Sent> all;
    while (core.wakeup() && *core.wakeup() <= end) {
      now = std::max(now, *core.wakeup());
      core.on_time(now);
      for (Sent& sent : out())
        all.push_back(std::move(sent));
    }
    now = end;
    return all;
  }
  std::vector<Sent> out() {
    std::vector<Sent> result;
    while (const auto datagram = core.next_datagram(now)) {
      const auto bytes = datagram->bytes();
      const auto packet = decode_packet(bytes);
      if (!packet) {
        ADD_FAILURE() << "the server sent something that is no packet";
        continue;
      }
      result.push_back({packet->header,
                        {packet->body.begin(), packet->body.end()},
                        datagram->to,
                        datagram->call_back});
    }
    return result;
  }
  // Runs what was handed out at once.
  std::vector<Sent> run() {
    for (ReadyCall& call : core.take_calls())
      core.complete(call.number,
                    call.interface->dispatch(call.info, call.operation->opnum, call.request,
                                             call.representation, call.reply_little_endian),
                    now);
    return out();
  }

  // A call from its request to its answer.
  std::string serve(const PacketHeader& header, std::span<const std::byte> body = {}) {
    const std::string at_once = names(in(header, body));
    return at_once + names(run());
  }
  std::string serve(std::uint32_t sequence) { return serve(request(sequence, kChangeOperation)); }
  // The one call that is ready.
  ReadyCall take_call() {
    auto calls = core.take_calls();
    EXPECT_EQ(calls.size(), 1u);
    return calls.empty() ? ReadyCall{} : std::move(calls[0]);
  }

  EchoInterface echo;
  ManagementInterface management;
  ServerCore core;
  Time now{seconds(1000)};
};

TEST(ServerCoreTest, AnswersWithItsOwnHeaderFields) {
  for (const bool little : {true, false}) {
    CoreOptions options = options_of(CallBack::none);
    options.little_endian = little;
    Server server(options);
    const auto body = pattern(12);
    EXPECT_EQ(names(server.in(Server::request(4, kChangeOperation), body)), "");
    const auto sent = server.run();
    ASSERT_EQ(names(sent), "response");
    const PacketHeader& header = sent[0].header;
    EXPECT_EQ(header.representation.little_endian, little);
    EXPECT_EQ(header.server_boot, kBoot);
    EXPECT_EQ(header.interface_hint, 3);
    EXPECT_EQ(header.activity_hint, 7);
    EXPECT_EQ(header.sequence, 4u);
    EXPECT_EQ(header.activity, kActivity);
    EXPECT_EQ(header.flags1, 0);
    EXPECT_EQ(sent[0].body, body);
    EXPECT_EQ(sent[0].to, kClient);
  }
}

TEST(ServerCoreTest, RejectsWhatItDoesNotOffer) {
  struct Case {
    const char* what;
    void (*spoil)(PacketHeader&);
    std::uint32_t status;
  };
  const Case cases[] = {
      {"interface", [](PacketHeader& h) { ++h.interface_id.time_low; }, 0x1C010003},
      {"major version", [](PacketHeader& h) { h.interface_version = 3; }, 0x1C010003},
      {"later minor version", [](PacketHeader& h) { h.interface_version = 2 | 2 << 16; },
       0x1C010003},
      {"hint of another interface", [](PacketHeader& h) { h.interface_hint = 4; }, 0x1C010003},
      {"operation", [](PacketHeader& h) { h.opnum = 2; }, 0x1C010002},
      {"boot time", [](PacketHeader& h) { h.server_boot = kBoot - 1; }, 0x1C010006},
  };
  for (const Case& each : cases) {
    Server server;
    PacketHeader header = Server::request(0, kChangeOperation);
    each.spoil(header);
    const auto sent = server.in(header);
    ASSERT_EQ(names(sent), "reject") << each.what;
    EXPECT_EQ(sent[0].word(0), each.status) << each.what;
    EXPECT_TRUE(server.core.take_calls().empty()) << each.what;
    // The next call with good fields is served.
    EXPECT_EQ(server.serve(1), "response") << each.what;
  }
}

TEST(ServerCoreTest, RejectsStrangeObjectsAndAuthenticationButNoBroadcast) {
  CoreOptions options = options_of(CallBack::none);
  options.objects = {kActivity};
  Server server(options);
  PacketHeader header = Server::request(0, kChangeOperation);
  header.object = kActivity;
  EXPECT_EQ(server.serve(header), "response");
  header.sequence = 1;
  header.object.time_low = 1;
  const auto strange = server.in(header);
  ASSERT_EQ(names(strange), "reject");
  EXPECT_EQ(strange[0].word(0), nca::kUnknownInterface);
  header.flags1 = kFlagBroadcast;
  EXPECT_EQ(names(server.in(header)), "");

  auto signed_request = encode_packet(Server::request(2, kChangeOperation), {});
  signed_request[78] = std::byte{1};
  server.core.receive(signed_request, kClient, server.now);
  const auto refused = server.out();
  ASSERT_EQ(names(refused), "reject");
  EXPECT_EQ(refused[0].word(0), nca::kUnsupportedAuthentication);
}

TEST(ServerCoreTest, TakesAnEarlierMinorVersionAndAForeignHint) {
  Server server;
  PacketHeader header = Server::request(0, kChangeOperation);
  header.interface_version = 2;
  header.interface_hint = 900;
  EXPECT_EQ(server.serve(header), "response");
}

TEST(ServerCoreTest, RunsACallOnceAndAnswersRepeatsByItsState) {
  Server server;
  const PacketHeader request = Server::request(5, kChangeOperation);
  const PacketHeader ping = Server::packet(PacketType::ping, 5);
  server.in(request);
  EXPECT_EQ(names(server.in(request)), "working");
  EXPECT_EQ(names(server.in(ping)), "working");
  const ReadyCall call = server.take_call();
  server.now += milliseconds(300);
  server.core.complete(call.number, {Outcome::Kind::reply, 0, pattern(8)}, server.now);
  EXPECT_EQ(names(server.out()), "response");

  server.now += milliseconds(300);
  EXPECT_EQ(names(server.in(request)), "response");
  EXPECT_EQ(names(server.in(request)), "") << "a copy that the network made";
  server.now += milliseconds(300);
  const auto again = server.in(ping, {}, kOtherPort);
  ASSERT_EQ(names(again), "response");
  EXPECT_EQ(again[0].to, kOtherPort) << "the answer goes where the client was heard last";

  server.in(Server::packet(PacketType::ack, 5));
  server.now += milliseconds(300);
  EXPECT_EQ(names(server.in(request)), "");
  EXPECT_EQ(names(server.in(ping)), "");
  EXPECT_EQ(names(server.in(Server::request(4, kChangeOperation))), "");
  EXPECT_TRUE(server.core.take_calls().empty());
  EXPECT_EQ(server.core.statistics().bytes_held, 0u);
}

TEST(ServerCoreTest, StaysSilentOnRepeatsWhenToldSoButAnswersPings) {
  CoreOptions options = options_of(CallBack::none);
  options.working_on_repeat = false;
  Server server(options);
  server.in(Server::request(0, kChangeOperation));
  EXPECT_EQ(names(server.in(Server::request(0, kChangeOperation))), "");
  EXPECT_EQ(names(server.in(Server::packet(PacketType::ping, 0))), "working");
}

TEST(ServerCoreTest, ForgetsAnIdempotentCallOnceAnswered) {
  Server server;
  const PacketHeader request = Server::request(0, kReadOperation);
  EXPECT_EQ(server.serve(request), "response");
  EXPECT_EQ(names(server.in(Server::packet(PacketType::ping, 0, kReadOperation))), "nocall");
  EXPECT_EQ(server.serve(request), "response");
  EXPECT_EQ(server.echo.runs, 2);
  EXPECT_EQ(names(server.after(seconds(60))), "");
}

TEST(ServerCoreTest, AnswersNocallToAPingOfAnUnknownCallAndKeepsNothing) {
  Server server;
  EXPECT_EQ(names(server.in(Server::packet(PacketType::ping, 0))), "nocall");
  EXPECT_EQ(server.core.statistics().activities, 0u);
}

TEST(ServerCoreTest, RepeatsAnUnacknowledgedAnswerForHalfAMinute) {
  Server server;
  const Time start = server.now;
  server.serve(Server::request(0, kChangeOperation), pattern(100));
  std::vector<long> at;
  while (server.now - start < seconds(120)) {
    for ([[maybe_unused]] const Sent& sent : server.after(milliseconds(500)))
      at.push_back(std::chrono::duration_cast<seconds>(server.now - start).count());
  }
  EXPECT_EQ(at, (std::vector<long>{1, 3, 7, 15, 23}));
  EXPECT_EQ(names(server.in(Server::packet(PacketType::ping, 0))), "response")
      << "a client that comes back still finds it";
  server.after(seconds(601));
  EXPECT_EQ(server.core.statistics().bytes_held, 0u);
}

TEST(ServerCoreTest, TakesTheNextRequestAsAcknowledgement) {
  Server server;
  server.serve(Server::request(0, kChangeOperation), pattern(100));
  EXPECT_EQ(server.serve(1), "response");
  EXPECT_EQ(server.core.statistics().bytes_held, 0u);
}

TEST(ServerCoreTest, SendsFaultsAndRejectsAndRepeatsThemOnlyWhenAsked) {
  for (const bool fault : {true, false}) {
    Server server;
    server.in(Server::request(0, kChangeOperation));
    const ReadyCall call = server.take_call();
    server.core.complete(
        call.number, fault ? Outcome::fault(0x1C00001A) : Outcome::reject(0x1C010014), server.now);
    const auto sent = server.out();
    ASSERT_EQ(names(sent), fault ? "fault" : "reject");
    EXPECT_EQ(sent[0].word(0), fault ? 0x1C00001Au : 0x1C010014u);
    EXPECT_EQ(names(server.after(seconds(5))), "");
    EXPECT_EQ(names(server.in(Server::packet(PacketType::ping, 0))), fault ? "fault" : "reject");
  }
}

TEST(ServerCoreTest, SaysNothingOfAnAbandonedCall) {
  Server server;
  const PacketHeader request = Server::request(0, kChangeOperation);
  server.in(request);
  const ReadyCall call = server.take_call();
  server.core.abandon(call.number);
  EXPECT_EQ(names(server.in(request)), "");
  EXPECT_EQ(names(server.in(Server::packet(PacketType::ping, 0))), "");
  server.core.complete(call.number, {}, server.now);
  EXPECT_EQ(names(server.out()), "");
  server.after(seconds(601));
  EXPECT_EQ(server.core.statistics().activities, 0u);
  EXPECT_EQ(server.serve(1), "response");
}

TEST(ServerCoreTest, ALateAnswerToACallThatTheClientLeftIsIgnored) {
  Server server;
  server.in(Server::request(0, kChangeOperation));
  const auto late = server.core.take_calls();
  server.in(Server::request(1, kChangeOperation));
  server.core.complete(late.at(0).number, {Outcome::Kind::reply, 0, pattern(4)}, server.now);
  EXPECT_EQ(names(server.out()), "");
  const auto sent = server.run();
  ASSERT_EQ(names(sent), "response");
  EXPECT_EQ(sent[0].header.sequence, 1u);
}

TEST(ServerCoreTest, ACancelEndsARunningCallAndNoOther) {
  Server server;
  server.in(Server::request(0, kChangeOperation));
  const ReadyCall late = server.take_call();
  const PacketHeader cancel = Server::packet(PacketType::cancel, 0);
  const auto sent = server.in(cancel, encode_cancel_body(1, true));
  ASSERT_EQ(names(sent), "cancel_ack fault");
  EXPECT_EQ(sent[0].word(4), 1u);
  EXPECT_EQ(sent[0].body.at(8), std::byte{1});
  EXPECT_EQ(sent[1].word(0), nca::kCancelled);
  EXPECT_FALSE(server.core.running(late.number));

  const auto again = server.in(cancel, encode_cancel_body(2, true));
  ASSERT_EQ(names(again), "cancel_ack");
  EXPECT_EQ(again[0].body.at(8), std::byte{0});
}

TEST(ServerCoreTest, SaysNoCallWhileItDeniesOne) {
  Server server;
  server.in(Server::request(0, kChangeOperation));
  const ReadyCall call = server.take_call();
  server.core.deny(call.number);
  EXPECT_EQ(names(server.in(Server::packet(PacketType::ping, 0))), "nocall");
  server.core.admit(call.number);
  EXPECT_EQ(names(server.in(Server::packet(PacketType::ping, 0))), "working");
}

TEST(ServerCoreTest, RunsAMaybeCallWithoutAnswer) {
  Server server;
  PacketHeader header = Server::request(0, kReadOperation);
  header.flags1 |= kFlagMaybe;
  server.in(header);
  EXPECT_EQ(names(server.run()), "");
  EXPECT_EQ(server.echo.runs, 1);
}

TEST(ServerCoreTest, DropsWhatIsNotForIt) {
  Server server;
  server.serve(Server::request(3, kChangeOperation), pattern(100));
  const auto before = server.core.statistics().packets_dropped;
  std::vector<std::byte> shortened = encode_packet(Server::request(4, kChangeOperation), {});
  shortened.pop_back();
  server.core.receive(shortened, kClient, server.now);
  EXPECT_EQ(names(server.in(Server::packet(PacketType::ack, 2))), "");
  EXPECT_EQ(names(server.in(Server::packet(PacketType::response, 3))), "");
  PacketHeader foreign = Server::packet(PacketType::ack, 3);
  ++foreign.activity.time_low;
  EXPECT_EQ(names(server.in(foreign)), "");
  EXPECT_EQ(server.core.statistics().packets_dropped, before + 4);
  EXPECT_EQ(server.core.statistics().bytes_held, 100u) << "no ack has arrived";
  PacketHeader unknown = Server::request(9, kChangeOperation);
  unknown.opnum = 99;
  unknown.flags1 = kFlagMaybe;
  EXPECT_EQ(names(server.in(unknown)), "") << "nobody waits for its answer";
}

TEST(ServerCoreTest, TellsEachBreachAndAnswersAsEver) {
  using Bytes = std::vector<std::byte>;
  struct Case {
    std::string told;
    std::string answer;
    void (*spoil)(Bytes& request);
  };
  const std::string none_of_ours = "its version, type or number format is none of this protocol";
  const Case cases[] = {
      {"", "response", [](Bytes&) {}},
      {"it is shorter than a packet's header", "", [](Bytes& of) { of.resize(79); }},
      {none_of_ours, "", [](Bytes& of) { of[0] = std::byte{5}; }},
      {none_of_ours, "", [](Bytes& of) { of[1] = std::byte{30}; }},
      {none_of_ours, "", [](Bytes& of) { of[4] = std::byte{0x30}; }},
      {"its length is more than what came", "", [](Bytes& of) { of.pop_back(); }},
      {"its length is more than what came", "",
       [](Bytes& of) {
         of[78] = std::byte{1};  // authentication
         of.pop_back();
       }},
      {"octets are left over behind the packet", "response",
       [](Bytes& of) { of.push_back(std::byte{0}); }},
      {"reserved flags are set", "response", [](Bytes& of) { of[2] |= std::byte{0x80}; }},
      {"reserved flags are set", "response", [](Bytes& of) { of[3] |= std::byte{0x40}; }},
      {"", "response", [](Bytes& of) { of[3] |= std::byte{0x02}; }},
      {"a request in one packet says that it is a fragment", "response",
       [](Bytes& of) { of[2] |= std::byte{kFlagLastFragment}; }},
      {"the request says that the operation is idempotent", "response",
       [](Bytes& of) { of[2] |= std::byte{kFlagIdempotent}; }},
  };
  for (const Case& each : cases) {
    CoreOptions options = options_of(CallBack::none);
    std::string told;
    options.on_event = [&](const CoreEvent& event) { told += event.detail; };
    Server server(options);
    Bytes request = encode_packet(Server::request(0, kChangeOperation), pattern(8));
    each.spoil(request);
    server.core.receive(request, kClient, server.now);
    EXPECT_EQ(names(server.run()), each.answer) << each.told;
    EXPECT_EQ(told, each.told);
    if (each.answer.empty())
      continue;
    server.after(seconds(31));
    EXPECT_EQ(told, each.told + "an answer was never acknowledged");
    server.in(Server::request(1, kChangeOperation));
    EXPECT_EQ(server.serve(2), "response");
    EXPECT_TRUE(told.ends_with("a call begins while another of its activity runs"));
  }
}

// --- Who are you?

std::vector<std::byte> who_answer(const Sent& asked, std::uint32_t sequence,
                                  std::uint32_t status = 0) {
  const bool second = asked.header.opnum == 1;
  std::vector<std::byte> body(second ? 24 : 8);
  store32(body.data(), sequence, true);
  if (second)
    body[4] = std::byte{0xCA};  // of the client's address space
  store32(body.data() + body.size() - 4, status, true);
  return body;
}

PacketHeader who_header(const Sent& asked, PacketType type = PacketType::response) {
  PacketHeader header = asked.header;
  header.type = type;
  header.representation.little_endian = true;
  header.server_boot = 0x1234;
  return header;
}

TEST(ServerCoreTest, AsksAnUnknownClientOnceBeforeItRunsItsCall) {
  for (const CallBack kind : {CallBack::who_are_you, CallBack::who_are_you2}) {
    CoreOptions options = options_of(kind);
    options.little_endian = kind == CallBack::who_are_you2;
    Server server(options);
    const auto asked = server.in(Server::request(8, kChangeOperation), pattern(4));
    ASSERT_EQ(names(asked), "request");
    EXPECT_TRUE(asked[0].call_back);
    EXPECT_EQ(asked[0].header.opnum, kind == CallBack::who_are_you ? 0 : 1);
    EXPECT_EQ(asked[0].header.flags1, kFlagIdempotent);
    EXPECT_EQ(asked[0].header.interface_version, 3u);
    EXPECT_EQ(load_uuid(asked[0].body.data(), options.little_endian), kActivity);
    EXPECT_EQ(asked[0].word(16), kBoot);
    EXPECT_TRUE(server.core.take_calls().empty());
    EXPECT_EQ(names(server.after(milliseconds(1010))), "request") << "a lost call-back is repeated";

    server.in(who_header(asked[0]), who_answer(asked[0], 8), kOtherPort);
    const auto answered = server.run();
    ASSERT_EQ(names(answered), "response");
    EXPECT_EQ(answered[0].to, kClient);
    EXPECT_EQ(server.serve(9), "response");
  }
}

TEST(ServerCoreTest, AClientThatSaysItLivesIsNotForgotten) {
  struct : RandomSource {
    void fill(std::span<std::byte> bytes) override { std::ranges::fill(bytes, std::byte{7}); }
  } random;
  const ClientIdentity client = ClientIdentity::make(random);
  // It is asked before a call runs, or before the answer that leaves it a context.
  for (const OperationSpec* operation : {&kChangeOperation, &kReadOperation}) {
    Server server(options_of(CallBack::who_are_you2));
    auto asked = server.in(Server::request(0, *operation));
    if (operation->idempotent) {
      Outcome outcome{Outcome::Kind::reply, 0, pattern(8)};
      outcome.leaves_context = true;
      server.core.complete(server.take_call().number, outcome, server.now);
      asked = server.out();
    }
    ASSERT_EQ(names(asked), "request");
    auto answer = who_answer(asked[0], 0);
    store_uuid(answer.data() + 4, client.address_space, true);
    std::string answered = names(server.in(who_header(asked[0]), answer));
    answered += names(server.run());
    EXPECT_EQ(answered, "response");
    for (int minutes = 0; minutes < 30; minutes += 9) {
      server.core.receive(liveness::still_here(client, random), kOtherPort, server.now);
      EXPECT_EQ(names(server.out()), "");
      server.after(seconds(540));
    }
    EXPECT_TRUE(server.core.take_gone_clients().empty());
    server.after(seconds(61));
    EXPECT_EQ(server.core.take_gone_clients(),
              (std::vector<uuid_t>{kActivity, client.address_space}));
    EXPECT_EQ(server.core.statistics().bytes_held, 0u);
  }
}

TEST(ServerCoreTest, RunsAnIdempotentCallWithoutAsking) {
  Server server(options_of(CallBack::who_are_you2));
  EXPECT_EQ(names(server.in(Server::request(0, kReadOperation))), "");
  EXPECT_EQ(names(server.run()), "response");
  EXPECT_EQ(names(server.in(Server::request(1, kChangeOperation))), "request");
}

TEST(ServerCoreTest, DropsAStaleCopyOfAnUnknownClient) {
  Server server(options_of(CallBack::who_are_you2));
  const auto asked = server.in(Server::request(5, kChangeOperation));
  server.in(who_header(asked.at(0)), who_answer(asked[0], 6));
  EXPECT_TRUE(server.core.take_calls().empty());
  EXPECT_EQ(server.serve(6), "response");
}

TEST(ServerCoreTest, AnAnswerThatIsNoneLeavesTheQuestionOpen) {
  Server server(options_of(CallBack::who_are_you2));
  const auto asked = server.in(Server::request(5, kChangeOperation));
  auto cut = who_answer(asked.at(0), 5);
  cut.pop_back();
  server.in(who_header(asked[0]), cut);
  server.in(who_header(asked[0], PacketType::working));
  EXPECT_EQ(names(server.run()), "");
  EXPECT_EQ(names(server.after(seconds(1))), "request") << "asked again";
  server.in(who_header(asked[0]), who_answer(asked[0], 5));
  EXPECT_EQ(names(server.run()), "response");
}

TEST(ServerCoreTest, RejectsACallWhoseClientDoesNotVouchForIt) {
  struct Case {
    const char* what;
    PacketType type;
    std::uint32_t status;
  };
  for (const Case& each : {Case{"status", PacketType::response, 0x1C00000A},
                           Case{"reject", PacketType::reject, 0x1C010003},
                           Case{"fault", PacketType::fault, 0x1C000012}}) {
    Server server(options_of(CallBack::who_are_you2));
    const auto asked = server.in(Server::request(5, kChangeOperation));
    const auto sent =
        server.in(who_header(asked.at(0), each.type), each.type == PacketType::response
                                                          ? who_answer(asked[0], 5, each.status)
                                                          : encode_status_body(each.status, true));
    ASSERT_EQ(names(sent), "reject") << each.what;
    EXPECT_EQ(sent[0].word(0), 0x1C00000Bu) << each.what;
    EXPECT_TRUE(server.core.take_calls().empty()) << each.what;
  }
}

TEST(ServerCoreTest, AsksInTheOldWayAClientThatDoesNotKnowTheNew) {
  Server server(options_of(CallBack::who_are_you2));
  const auto asked = server.in(Server::request(5, kChangeOperation));
  const auto again =
      server.in(who_header(asked.at(0), PacketType::reject), encode_status_body(0x1C010002, true));
  ASSERT_EQ(names(again), "request");
  EXPECT_EQ(again[0].header.opnum, 0);
  server.in(who_header(again[0]), who_answer(again[0], 5));
  EXPECT_EQ(names(server.run()), "response");
}

TEST(ServerCoreTest, GivesUpAskingAfterHalfAMinute) {
  Server server(options_of(CallBack::who_are_you2));
  server.in(Server::request(5, kChangeOperation));
  EXPECT_EQ(names(server.in(Server::packet(PacketType::ping, 5))), "working");
  const auto sent = server.after(milliseconds(30'100));
  ASSERT_EQ(sent.size(), 30u);
  EXPECT_EQ(sent.front().header.type, PacketType::request);
  EXPECT_EQ(sent.back().header.type, PacketType::reject);
  EXPECT_EQ(names(server.in(Server::packet(PacketType::ping, 5))), "reject");
  EXPECT_EQ(names(server.in(Server::request(6, kChangeOperation))), "request")
      << "the client's next call is asked about anew";
}

// --- Fragments

TEST(ServerCoreTest, JoinsARequestAndSaysWhatIsMissing) {
  Server server;
  const auto body = pattern(4000);
  PacketHeader header = Server::request(0, kChangeOperation);
  const std::span<const std::byte> all(body);
  header.flags1 = kFlagFragment;
  const auto first = server.in(header, all.first(1384));
  ASSERT_EQ(names(first), "fack");
  EXPECT_EQ(first[0].header.fragment, 0);

  header.fragment = 2;
  header.serial = 9;
  header.flags1 = kFlagFragment | kFlagLastFragment | kFlagNoFack;
  const auto hole = server.in(header, all.subspan(2768));
  ASSERT_EQ(names(hole), "fack");
  const auto fack = decode_fack(hole[0].body, true);
  ASSERT_TRUE(fack);
  EXPECT_EQ(fack->serial, 9);
  EXPECT_EQ(fack->window_kilobytes, 32);
  EXPECT_EQ(fack->selective, (std::vector<std::uint32_t>{2}));

  const auto asked = server.in(Server::packet(PacketType::ping, 0));
  ASSERT_EQ(names(asked), "nocall");
  EXPECT_EQ(asked[0].header.fragment, 0);
  EXPECT_TRUE(decode_fack(asked[0].body, true));
  EXPECT_EQ(names(server.after(milliseconds(260))), "fack") << "a lost fack is repeated";

  header.fragment = 1;
  header.flags1 = kFlagFragment | kFlagNoFack;
  server.in(header, all.subspan(1384, 1384));
  const ReadyCall call = server.take_call();
  EXPECT_EQ(call.request, body);
}

TEST(ServerCoreTest, ForgetsALongAnswerWithItsLastFack) {
  Server server;
  server.in(Server::request(0, kReadOperation));
  server.core.complete(server.take_call().number, {Outcome::Kind::reply, 0, pattern(3000)},
                       server.now);
  EXPECT_EQ(names(server.out()), "response response response");
  PacketHeader header = Server::packet(PacketType::fack, 0, kReadOperation);
  for (header.fragment = 1; header.fragment <= 2; ++header.fragment) {
    EXPECT_EQ(server.core.statistics().bytes_held, 3000u);
    EXPECT_EQ(names(server.in(header, encode_fack({}, true))), "");
  }
  EXPECT_EQ(server.core.statistics().bytes_held, 0u);
  EXPECT_EQ(names(server.after(seconds(60))), "");

  // Asked for again and acknowledged in one batch: its body is gone when packets are taken.
  server.in(Server::request(1, kReadOperation));
  server.core.complete(server.take_call().number, {Outcome::Kind::reply, 0, pattern(3000)},
                       server.now);
  server.out();
  server.now += seconds(1);
  server.core.receive(encode_packet(Server::request(1, kReadOperation), {}), kClient, server.now);
  EXPECT_EQ(names(server.in(Server::packet(PacketType::ack, 1, kReadOperation))), "");
}

// Answers go out at once in what has passed, and small again when that brings no sign.
TEST(ServerCoreTest, RemembersHowLargeAnAnswerMayBe) {
  for (const OperationSpec* operation : {&kChangeOperation, &kReadOperation}) {
    CoreOptions options = options_of(CallBack::none);
    options.fragment_size = 8000;
    options.path_limit = [](const SocketAddress&) { return std::size_t{6000}; };
    Server server(options);
    const auto largest_of = [&](const std::vector<Sent>& sent) {
      std::size_t largest = 0;
      for (const Sent& each : sent)
        largest = std::max(largest, kHeaderSize + each.body.size());
      return largest;
    };
    const auto answer = [&](std::uint32_t sequence, std::size_t size) {
      server.in(Server::request(sequence, *operation));
      server.core.complete(server.take_call().number, {Outcome::Kind::reply, 0, pattern(size)},
                           server.now);
      return server.out();
    };
    EXPECT_LE(largest_of(answer(0, 30'000)), kLeastMaxFragment);
    PacketHeader header = Server::packet(PacketType::fack, 0, *operation);
    Fack fack;
    fack.max_fragment = 8000;
    fack.window_kilobytes = 64;
    std::size_t largest = 0;
    for (header.fragment = 0; header.fragment < 12; ++header.fragment)
      largest = std::max(largest, largest_of(server.in(header, encode_fack(fack, true))));
    EXPECT_EQ(largest, 6000u);
    ASSERT_EQ(server.core.statistics().bytes_held, 0u);
    EXPECT_EQ(largest_of(answer(1, 5000)), 5080u);
    std::vector<Sent> last;
    for (int repeat = 0; repeat < 3; ++repeat) {
      server.now += milliseconds(300);
      last = server.in(Server::request(1, *operation));
      for (ReadyCall& call : server.core.take_calls())
        server.core.complete(call.number, {Outcome::Kind::reply, 0, pattern(5000)}, server.now);
      for (const Sent& each : server.out())
        last.push_back(each);
    }
    EXPECT_LE(largest_of(last), kLeastMaxFragment);
    EXPECT_FALSE(last.empty());
  }
}

TEST(ServerCoreTest, RejectsARequestBeyondItsLimit) {
  CoreOptions options = options_of(CallBack::none);
  options.largest_request = 3000;
  Server server(options);
  PacketHeader header = Server::request(0, kChangeOperation);
  header.flags1 = kFlagFragment | kFlagNoFack;
  const auto part = pattern(1384);
  EXPECT_EQ(names(server.in(header, part)), "");
  EXPECT_EQ(names(server.in(header, part)), "") << "a duplicate";
  EXPECT_EQ(names(server.in(Server::packet(PacketType::fack, 0))), "") << "nothing was sent";
  PacketHeader far = header;
  far.fragment = 0x7000;
  EXPECT_EQ(names(server.in(far, part)), "fack") << "beyond the window, and dropped";
  EXPECT_EQ(server.core.statistics().bytes_held, part.size());
  ++header.fragment;
  EXPECT_EQ(names(server.in(header, part)), "");
  ++header.fragment;
  const auto sent = server.in(header, part);
  ASSERT_EQ(names(sent), "reject");
  EXPECT_EQ(sent[0].word(0), 0x1C00001Bu);
  EXPECT_EQ(server.core.statistics().bytes_held, 0u);
}

TEST(ServerCoreTest, ForgetsAPartThatASilentClientLeftAndAsksForTheWholeAgain) {
  Server server;
  PacketHeader header = Server::request(0, kChangeOperation);
  header.flags1 = kFlagFragment | kFlagNoFack;
  server.in(header, pattern(1384));
  server.after(seconds(61));
  EXPECT_EQ(server.core.statistics().bytes_held, 0u);
  const auto sent = server.in(Server::packet(PacketType::ping, 0));
  ASSERT_EQ(names(sent), "nocall");
  EXPECT_TRUE(sent[0].body.empty());
}

// --- Bounds of the table

TEST(ServerCoreTest, ForgetsASilentClientAndTellsItsOwner) {
  for (const bool acknowledges : {true, false})
    for (const seconds silence : {seconds(600), seconds(3)}) {
      CoreOptions options = options_of(CallBack::none);
      options.client_silence = silence;
      Server server(options);
      for (const std::uint32_t sequence : {0U, 1U}) {
        server.after(silence - seconds(1));
        EXPECT_TRUE(server.core.take_gone_clients().empty());
        server.serve(sequence);
        if (acknowledges)
          server.in(Server::packet(PacketType::ack, sequence));
      }
      server.after(silence + seconds(1));
      EXPECT_EQ(server.core.take_gone_clients(), (std::vector<uuid_t>{kActivity}));
      EXPECT_EQ(server.core.statistics().activities, 0u);
      EXPECT_EQ(server.core.wakeup(), std::nullopt);
    }
}

TEST(ServerCoreTest, MakesRoomForNewClientsButNeverDropsABusyOne) {
  CoreOptions options = options_of(CallBack::none);
  options.max_activities = 4;
  Server server(options);
  PacketHeader header = Server::request(0, kChangeOperation);
  for (std::uint32_t i = 0; i < 4; ++i) {
    header.activity.time_low = i;
    server.in(header);
    server.now += milliseconds(1);
  }
  header.activity.time_low = 4;
  const auto busy = server.in(header);
  ASSERT_EQ(names(busy), "reject");
  EXPECT_EQ(busy[0].word(0), 0x1C010014u);

  server.run();
  PacketHeader ack = Server::packet(PacketType::ack, 0);
  for (const std::uint32_t i : {2u, 1u}) {
    ack.activity.time_low = i;
    server.now += milliseconds(1);
    server.in(ack);
  }
  EXPECT_EQ(server.serve(header), "response");
  const auto gone = server.core.take_gone_clients();
  ASSERT_EQ(gone.size(), 1u);
  EXPECT_EQ(gone[0].time_low, 2u) << "the one that was silent longest";
  EXPECT_EQ(server.core.statistics().activities, 4u);
}

TEST(ServerCoreTest, AFloodOfInventedClientsPushesOutItsOwnFirst) {
  CoreOptions options = options_of(CallBack::who_are_you2);
  options.max_activities = 16;
  options.max_bytes = 40'000;
  Server server(options);
  const auto asked = server.in(Server::request(0, kChangeOperation));
  server.in(who_header(asked.at(0)), who_answer(asked[0], 0));
  server.run();
  server.in(Server::packet(PacketType::ack, 0));

  PacketHeader header = Server::request(0, kChangeOperation);
  header.flags1 = kFlagFragment | kFlagNoFack;
  const auto part = pattern(1384);
  for (std::uint32_t i = 0; i < 1000; ++i) {
    header.activity.time_low = i;
    for (header.fragment = 0; header.fragment < 3; ++header.fragment)
      server.in(header, part);
    ASSERT_LE(server.core.statistics().activities, 16u);
    ASSERT_LE(server.core.statistics().bytes_held, 40'000u);
  }
  EXPECT_TRUE(server.core.take_gone_clients().empty());
  EXPECT_EQ(server.serve(1), "response") << "the real client is still known";
}

TEST(ServerCoreTest, InventedClientsThatWaitForACallBackLockNobodyOut) {
  CoreOptions options = options_of(CallBack::who_are_you2);
  options.max_activities = 16;
  Server server(options);
  PacketHeader header = Server::request(0, kChangeOperation);
  for (std::uint32_t i = 0; i < 100; ++i) {
    header.activity.time_low = i;
    const auto asked = server.in(header);
    ASSERT_EQ(names(asked), "request") << i;
    // Every second one is refused by its client, and its reject is kept.
    if (i % 2 == 0)
      server.in(who_header(asked[0]), who_answer(asked[0], 0, nca::kBadActivity));
  }
  const auto asked = server.in(Server::request(0, kChangeOperation));
  ASSERT_EQ(names(asked), "request");
  server.in(who_header(asked[0]), who_answer(asked[0], 0));
  EXPECT_EQ(names(server.run()), "response");
}

// --- Management

TEST(ServerCoreTest, AnswersTheManagementInterface) {
  Server server;
  PacketHeader header = Server::request(0, kReadOperation);
  header.interface_id = server.management.spec().id;
  header.interface_version = server.management.spec().version();
  header.opnum = 0;
  server.in(header);
  const auto list = server.run();
  ASSERT_EQ(names(list), "response");
  ASSERT_EQ(list[0].body.size(), 4u + 4 + 4 + 4 + 20 + 4);
  EXPECT_EQ(list[0].word(4), 1u);
  EXPECT_EQ(load_uuid(list[0].body.data() + 16, true), kEchoSpec.id);
  ++header.sequence;
  header.opnum = 3;
  server.in(header);
  const auto refused = server.run();
  ASSERT_EQ(names(refused), "response");
  EXPECT_EQ(refused[0].word(0), RPC_S_ACCESS_DENIED);
}

}  // namespace
}  // namespace rpc::server
