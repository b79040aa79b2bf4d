// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>

#include "agent/broker_message.h"
#include "agent/broker_registry.h"
#include "agent/broker_server.h"
#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/rpc.h"
#include "tests/agent/loop_client.h"

namespace agent {
namespace {

using test::Bytes;
using test::hex;
using test::hex_text;
using test::LoopClient;

constexpr std::uint32_t kLoopback = 0x7F000001;
constexpr const char* kType = "5b3c82a0-17e4-0000-020a-141e28000000";
const Bytes kNegotiate = hex("00 48 58 41 00 1c 00 00 00*20");

BrokerMessage request(BrokerCommand command, std::initializer_list<std::string> items) {
  BrokerMessage message;
  message.command = static_cast<std::uint8_t>(command);
  for (const std::string& item : items) {
    const auto bytes = encode_broker_item(item);
    message.data.insert(message.data.end(), bytes.begin(), bytes.end());
  }
  return message;
}

std::string item_text(const BrokerMessage& reply) {
  std::vector<std::string> items;
  return decode_broker_items(reply.data, 1, items) && items.size() == 1 ? items[0] : "";
}

TEST(BrokerMessage, KnowsWholeFromPartsAndNonsense) {
  using State = BrokerDecoding::State;
  struct Case {
    const char* name;
    Bytes bytes;
    State state;
  };
  const Case cases[] = {
      {"nothing", {}, State::incomplete},
      {"a negotiation", kNegotiate, State::complete},
      {"two in a row", hex("00 48 58 41 00 1c 00 00 00*20 00 48"), State::complete},
      {"all but the last byte", hex("00 48 58 41 00 1c 00 00 00*19"), State::incomplete},
      {"another identifier", hex("00 48 58 42"), State::malformed},
      {"another first byte", hex("01"), State::malformed},
      {"nine words", hex("00 48 58 41 00 2e 00 09"), State::malformed},
      {"no length", hex("00 48 58 41 00 00 00 00"), State::malformed},
      {"shorter than its words", hex("00 48 58 41 00 1d 00 01"), State::malformed},
      {"beyond the limit", hex("00 48 58 41 40 01 00 00"), State::malformed},
      {"a count beyond the message", hex("00 48 58 41 00 1c 00 00 00*18 00 01"), State::malformed},
      {"two words and one byte", hex("00 48 58 41 00 21 05 02 00*18 00 02 00 03 00 01 02"),
       State::complete},
  };
  for (const Case& one : cases)
    EXPECT_EQ(decode_broker_message(one.bytes).state, one.state) << one.name;

  const auto decoded = decode_broker_message(cases[11].bytes);
  EXPECT_EQ(decoded.size, 33u);
  EXPECT_EQ(decoded.message.command, 5);
  EXPECT_EQ(decoded.message.words, (std::vector<std::uint16_t>{2, 3}));
  EXPECT_EQ(decoded.message.data, hex("02"));
  EXPECT_EQ(encode_broker_message(decoded.message), cases[11].bytes);
}

TEST(BrokerMessage, ItemsAreMarkedTerminatedAndCounted) {
  std::vector<std::string> items;
  EXPECT_TRUE(decode_broker_items(hex("02 41 00 02 00"), 2, items));
  EXPECT_EQ(items, (std::vector<std::string>{"A", ""}));
  for (const char* bad : {"41 00", "02 41", "02", "02 00 02 00 02 00"}) {
    items.clear();
    EXPECT_FALSE(decode_broker_items(hex(bad), 2, items)) << bad;
  }
}

TEST(BrokerRegistry, KeepsServersFromRegistrationToRemoval) {
  BrokerRegistry registry{LocationBroker{}};
  uuid_t type{};
  ASSERT_EQ(UuidFromStringA(kType, &type), RPC_S_OK);
  const auto ask = [&](BrokerCommand command) {
    return registry.answer(request(command, {kType, "rep"}));
  };
  const auto enroll = [&](const char* path) {
    return registry.answer(request(BrokerCommand::register_server, {kType, "rep", path}));
  };
  EXPECT_EQ(ask(BrokerCommand::activate).status, kBrokerUnknownServer);
  EXPECT_EQ(ask(BrokerCommand::unregister_server).status, kBrokerUnknownServer);

  const BrokerMessage registered = enroll("/a");
  EXPECT_EQ(registered.status, 0);
  const std::string object = item_text(registered);
  EXPECT_EQ(object.size(), 36u);
  EXPECT_EQ(ask(BrokerCommand::deactivate).status, kBrokerNotActive);
  EXPECT_EQ(item_text(ask(BrokerCommand::activate)), object);
  ASSERT_NE(registry.find(type, "rep"), nullptr);
  EXPECT_TRUE(registry.find(type, "rep")->active);

  EXPECT_EQ(item_text(enroll("/b")), object);
  EXPECT_EQ(registry.find(type, "rep")->path, "/b");
  EXPECT_EQ(ask(BrokerCommand::deactivate).status, 0);
  EXPECT_EQ(ask(BrokerCommand::unregister_server).status, 0);
  EXPECT_EQ(registry.find(type, "rep"), nullptr);
}

TEST(BrokerRegistry, RefusesWhatItCannotUse) {
  BrokerRegistry registry{LocationBroker{}};
  struct Case {
    const char* name;
    BrokerMessage request;
    std::uint16_t status;
  };
  BrokerMessage unmarked;
  unmarked.command = 2;
  unmarked.data = hex("41 42 00");
  const Case cases[] = {
      {"lookup", request(static_cast<BrokerCommand>(4), {}), kBrokerUnknownCommand},
      {"command 255", request(static_cast<BrokerCommand>(255), {}), kBrokerUnknownCommand},
      {"no items", request(BrokerCommand::activate, {}), kBrokerBadRequest},
      {"one item", request(BrokerCommand::activate, {kType}), kBrokerBadRequest},
      {"three items", request(BrokerCommand::activate, {kType, "a", "b"}), kBrokerBadRequest},
      {"no path", request(BrokerCommand::register_server, {kType, "a"}), kBrokerBadRequest},
      {"no type", request(BrokerCommand::activate, {"x", "a"}), kBrokerBadRequest},
      {"no name", request(BrokerCommand::activate, {kType, ""}), kBrokerBadRequest},
      {"long name", request(BrokerCommand::activate, {kType, std::string(256, 'n')}),
       kBrokerBadRequest},
      {"unmarked item", unmarked, kBrokerBadRequest},
  };
  for (const Case& one : cases)
    EXPECT_EQ(registry.answer(one.request).status, one.status) << one.name;
}

TEST(BrokerRegistry, IsBounded) {
  BrokerRegistry registry{LocationBroker{}};
  for (std::size_t i = 0; i < BrokerRegistry::kMostEntries; ++i)
    ASSERT_EQ(
        registry.answer(request(BrokerCommand::register_server, {kType, std::to_string(i), ""}))
            .status,
        0);
  EXPECT_EQ(registry.answer(request(BrokerCommand::register_server, {kType, "one", ""})).status,
            kBrokerFull);
  EXPECT_EQ(registry.answer(request(BrokerCommand::register_server, {kType, "7", ""})).status, 0);
}

class BrokerSocket : public testing::Test {
 protected:
  void start(LocationBroker settings) {
    settings.port = 0;
    broker_.emplace(loop_, log_, "test", kLoopback, settings);
    ASSERT_EQ(broker_->open(), "");
  }
  LoopClient connect() { return {loop_, SOCK_STREAM, kLoopback, broker_->port()}; }

  rpc::server::EventLoop loop_;
  const Log log_;
  std::optional<BrokerServer> broker_;
};

TEST_F(BrokerSocket, AnswersTheNegotiationByteForByte) {
  LocationBroker settings;
  settings.minor = 7;
  start(settings);
  LoopClient client = connect();
  client.send(kNegotiate);
  EXPECT_EQ(hex_text(client.receive_all(32)),
            hex_text(hex("00 48 58 41 00 20 00 02 00*18 00 02 00 07 00 00")));
}

TEST_F(BrokerSocket, AnswersPiecesAndSeveralRequestsInOne) {
  LocationBroker settings;
  settings.status = 5;
  start(settings);
  LoopClient client = connect();
  Bytes three;
  for (int i = 0; i < 3; ++i)
    three.insert(three.end(), kNegotiate.begin(), kNegotiate.end());
  client.send(Bytes(three.begin(), three.begin() + 5));
  EXPECT_EQ(client.receive(std::chrono::milliseconds(50)), std::nullopt);
  client.send(Bytes(three.begin() + 5, three.end()));
  const Bytes replies = client.receive_all(96);
  ASSERT_EQ(replies.size(), 96u);
  EXPECT_EQ(replies[9], std::byte{5});
}

TEST_F(BrokerSocket, EndsAfterNonsenseWithABadRequest) {
  start({});
  LoopClient client = connect();
  client.send(hex("47 45 54 20 2f"));
  const Bytes reply = client.receive_all(28);
  ASSERT_EQ(reply.size(), 28u);
  EXPECT_EQ(reply[9], std::byte{kBrokerBadRequest});
  EXPECT_EQ(client.receive(), Bytes{});
}

TEST_F(BrokerSocket, ShutsDownForEveryNewClient) {
  start({});
  LoopClient client = connect();
  client.send(encode_broker_message(request(BrokerCommand::shutdown, {})));
  EXPECT_EQ(client.receive_all(28).size(), 28u);
  EXPECT_EQ(client.receive(), Bytes{});
  EXPECT_FALSE(connect().connected());
}

TEST_F(BrokerSocket, HasTheMannersOfItsMode) {
  struct Case {
    BrokerMode mode;
    std::optional<Bytes> got;  // nothing: silence or an error
    int error;
  };
  const Case cases[] = {
      {BrokerMode::closing, Bytes{}, 0},
      {BrokerMode::reset, std::nullopt, ECONNRESET},
      {BrokerMode::silent, std::nullopt, 0},
  };
  for (const Case& one : cases) {
    LocationBroker settings;
    settings.mode = one.mode;
    start(settings);
    LoopClient client = connect();
    client.send(kNegotiate);
    EXPECT_EQ(client.receive(std::chrono::milliseconds(200)), one.got);
    EXPECT_EQ(client.error(), one.error);
  }
}

TEST_F(BrokerSocket, SlowIsAByteAtATime) {
  LocationBroker settings;
  settings.mode = BrokerMode::slow;
  settings.bytes_per_second = 100;
  start(settings);
  LoopClient client = connect();
  const auto begin = std::chrono::steady_clock::now();
  client.send(kNegotiate);
  EXPECT_LE(client.receive().value_or(Bytes(99)).size(), 4u);
  EXPECT_EQ(client.receive_all(28).size(), 28u);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(150));
}

TEST_F(BrokerSocket, MalformedRepliesAreWhatTheySay) {
  struct Case {
    Malformation kind;
    std::size_t size;
    const char* front;
  };
  const Case cases[] = {
      {Malformation::identifier, 32, "0058584100200002"},
      {Malformation::length_zero, 32, "0048584100000002"},
      {Malformation::length_short, 32, "0048584100140002"},
      {Malformation::too_many_words, 32, "00485841002000c8"},
      {Malformation::data_too_long, 32, "0048584100200002"},
      {Malformation::cut, 16, "0048584100200002"},
  };
  for (const Case& one : cases) {
    LocationBroker settings;
    settings.mode = BrokerMode::malformed;
    settings.malformation = one.kind;
    start(settings);
    LoopClient client = connect();
    client.send(kNegotiate);
    const Bytes reply = client.receive_all(10'000);
    EXPECT_EQ(reply.size(), one.size) << one.front;
    EXPECT_EQ(hex_text(reply).substr(0, 17), hex_text(hex(one.front)));
  }
  LocationBroker settings;
  settings.mode = BrokerMode::malformed;
  settings.malformation = Malformation::length_huge;
  start(settings);
  LoopClient client = connect();
  client.send(kNegotiate);
  EXPECT_GE(client.receive_all(200'000).size(), 200'000u);
}

TEST_F(BrokerSocket, IdleConnectionsGiveWayToANewClient) {
  start({});
  std::vector<std::unique_ptr<LoopClient>> idle;
  for (std::size_t i = 0; i < BrokerServer::kMostConnections; ++i)
    idle.push_back(std::make_unique<LoopClient>(loop_, SOCK_STREAM, kLoopback, broker_->port()));
  while (broker_->connections() < BrokerServer::kMostConnections)
    loop_.run_once(std::chrono::milliseconds(50));
  LoopClient client = connect();
  client.send(kNegotiate);
  EXPECT_EQ(client.receive_all(1).size(), 32u);
  EXPECT_EQ(broker_->connections(), BrokerServer::kMostConnections);
  EXPECT_EQ(idle.front()->receive(), Bytes{});
}

TEST_F(BrokerSocket, MayNeitherAcceptNorRefuse) {
  LocationBroker settings;
  settings.mode = BrokerMode::unanswered;
  start(settings);
  const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const sockaddr_in name = rpc::to_sockaddr({kLoopback, broker_->port()});
  EXPECT_NE(::connect(descriptor, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
  pollfd waiting{descriptor, POLLOUT, 0};
  EXPECT_EQ(::poll(&waiting, 1, 300), 0);
  ::close(descriptor);
}

TEST_F(BrokerSocket, ATakenPortIsNamed) {
  start({});
  LocationBroker settings;
  settings.port = broker_->port();
  BrokerServer second(loop_, log_, "second", kLoopback, settings);
  EXPECT_EQ(second.open(), "TCP 127.0.0.1 port " + std::to_string(settings.port) +
                               ": cannot bind: Address already in use");
}

}  // namespace
}  // namespace agent
