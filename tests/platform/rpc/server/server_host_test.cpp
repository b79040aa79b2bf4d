// SPDX-License-Identifier: Apache-2.0
// The server host and its event loop over real sockets on loopback addresses.

#include "platform/rpc/server/server_host.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <chrono>
#include <future>

#include "platform/rpc/client/invoke.h"
#include "platform/rpc/server/event_loop.h"
#include "platform/rpc/wire/wire_bytes.h"
#include "tests/support/echo_interface.h"
#include "tests/support/rpc_bytes.h"
#include "tests/support/udp_socket.h"

namespace rpc::server {
namespace {

using std::chrono::milliseconds;

constexpr uuid_t kManagement{0xafa8bd80, 0x7d8a, 0x11c9,
                             0xbe,       0xf4,   {0x08, 0x00, 0x2b, 0x10, 0x29, 0x89}};

class Client {
 public:
  explicit Client(const Endpoint& server) : server_{server.address(), server.port()} {
    header.interface_id = kEchoSpec.id;
    header.interface_version = kEchoSpec.version();
    header.opnum = kChangeOperation.opnum;
    header.activity = {0x1000, 1, 0x4000, 0x80, 1, {0, 0, 0, 0, 0, 1}};
  }
  void send(PacketType type = PacketType::request) {
    header.type = type;
    socket_.send(header, {}, server_);
  }
  // The next packet within `longest`; the loop runs meanwhile.
  bool receive(EventLoop& loop, milliseconds longest = milliseconds(2000)) {
    const auto end = EventLoop::Clock::now() + longest;
    do {
      loop.run_once(milliseconds(1));
      if (auto packet = socket_.receive(MSG_DONTWAIT)) {
        received = std::move(*packet);
        return true;
      }
    } while (EventLoop::Clock::now() < end);
    return false;
  }
  std::optional<PacketType> answer(EventLoop& loop, milliseconds longest = milliseconds(2000)) {
    return receive(loop, longest) ? std::optional(received.header.type) : std::nullopt;
  }

  PacketHeader header;
  test::Received received;

 private:
  test::UdpSocket socket_;
  SocketAddress server_;
};

class ServerHostTest : public testing::Test {
 protected:
  EndpointOptions options() {
    EndpointOptions result;
    result.core.call_back = CallBack::none;
    result.interfaces = {&echo};
    return result;
  }
  Endpoint& open(EndpointOptions endpoint_options) {
    const ServerHost::Opened opened = host.open(std::move(endpoint_options));
    EXPECT_NE(opened.endpoint, nullptr) << opened.error;
    return *opened.endpoint;
  }

  EchoInterface echo;
  EventLoop loop;
  ServerHost host{loop};
};

TEST_F(ServerHostTest, RefusesATakenPortWithAMessage) {
  const Endpoint& first = open(options());
  EndpointOptions second = options();
  second.port = first.port();
  const auto opened = host.open(second);
  EXPECT_EQ(opened.endpoint, nullptr);
  EXPECT_EQ(opened.error, "127.0.0.1:" + std::to_string(first.port()) + ": Address already in use");
}

TEST_F(ServerHostTest, AsksWhatBecomesOfEachCall) {
  Verdict verdict;
  std::vector<std::string> ended;
  EndpointOptions asking = options();
  asking.before_dispatch = [&](const CallInfo&, const OperationSpec&) { return verdict; };
  asking.after_dispatch = [&](const CallInfo&, const OperationSpec& operation, const Outcome&) {
    ended.emplace_back(operation.name);
  };
  Endpoint& endpoint = open(std::move(asking));
  Client client(endpoint);

  verdict.delay = milliseconds(120);
  const auto begun = EventLoop::Clock::now();
  client.send();
  loop.run_once(milliseconds(50));
  client.send(PacketType::ping);
  EXPECT_EQ(client.answer(loop), PacketType::working);
  EXPECT_EQ(client.answer(loop), PacketType::response);
  EXPECT_GE(EventLoop::Clock::now() - begun, milliseconds(120));

  ++client.header.sequence;
  verdict = {};
  verdict.outcome = Outcome::fault(0x1C00001A);
  client.send();
  EXPECT_EQ(client.answer(loop), PacketType::fault);
  EXPECT_EQ(decode_status_body(client.received.body, true), 0x1C00001Au);

  ++client.header.sequence;
  verdict.outcome = Outcome::reject(0x1C010014);
  client.send();
  EXPECT_EQ(client.answer(loop), PacketType::reject);
  EXPECT_EQ(echo.runs, 1);
  EXPECT_EQ(ended, (std::vector<std::string>{"change", "change", "change"}));
}

TEST_F(ServerHostTest, ARestartedEndpointHasForgottenItsClients) {
  Endpoint& endpoint = open(options());
  Client client(endpoint);
  client.send();
  ASSERT_EQ(client.answer(loop), PacketType::response);
  client.header.server_boot = client.received.header.server_boot;
  ASSERT_TRUE(endpoint.restart());
  client.send(PacketType::ping);
  EXPECT_EQ(client.answer(loop), PacketType::reject);
  EXPECT_NE(client.received.header.server_boot, client.header.server_boot);
}

TEST_F(ServerHostTest, AnOperationMayKillItsOwnEndpoint) {
  Endpoint* endpoint = nullptr;
  EndpointOptions killing = options();
  killing.after_dispatch = [&](const CallInfo&, const OperationSpec&, const Outcome&) {
    endpoint->restart();
  };
  endpoint = &open(std::move(killing));
  Client client(*endpoint);
  client.send();
  EXPECT_EQ(client.answer(loop, milliseconds(50)), std::nullopt);
  EXPECT_TRUE(endpoint->alive());
  client.send(PacketType::ping);
  EXPECT_EQ(client.answer(loop), PacketType::nocall);
}

TEST_F(ServerHostTest, AnswersManagementAsToldAndNothingWhenMute) {
  struct Case {
    Management management;
    bool mute;
    std::optional<PacketType> answer;
    std::uint32_t listening;
  };
  for (const Case& each : {Case{Management::listening, false, PacketType::response, 1},
                           Case{Management::not_listening, false, PacketType::response, 0},
                           Case{Management::mute, false, std::nullopt, 0},
                           Case{Management::absent, false, PacketType::reject, 0},
                           Case{Management::listening, true, std::nullopt, 0}}) {
    EndpointOptions managed = options();
    managed.management = each.management;
    managed.mute = each.mute;
    Client client(open(std::move(managed)));
    client.header.interface_id = kManagement;
    client.header.interface_version = 1;
    client.header.opnum = 2;
    client.header.flags1 = kFlagIdempotent;
    client.send();
    const auto type = client.answer(loop, milliseconds(each.answer ? 2000 : 100));
    EXPECT_EQ(type, each.answer);
    if (type == PacketType::response) {
      ASSERT_EQ(client.received.body.size(), 8u);
      EXPECT_EQ(load32(client.received.body.data(), true), 0u);
      EXPECT_EQ(load32(client.received.body.data() + 4, true), each.listening);
    }
  }
}

TEST_F(ServerHostTest, CallsBackFromTheOtherPortWhenTold) {
  for (const bool other : {false, true}) {
    EndpointOptions asking = options();
    asking.core.call_back = CallBack::who_are_you2;
    asking.call_back_from_other_port = other;
    const Endpoint& endpoint = open(std::move(asking));
    Client client(endpoint);
    client.send();
    ASSERT_EQ(client.answer(loop), PacketType::request);
    EXPECT_EQ(client.received.source.port != endpoint.port(), other);
  }
}

TEST_F(ServerHostTest, LosesAndDelaysDatagramsByItsPlans) {
  EndpointOptions deaf = options();
  deaf.receive_faults.emplace().loss = 1;
  Client unheard(open(std::move(deaf)));
  unheard.send();
  EXPECT_EQ(unheard.answer(loop, milliseconds(50)), std::nullopt);
  EXPECT_EQ(echo.runs, 0);

  EndpointOptions slow = options();
  slow.send_faults.emplace().delay_min = milliseconds(80);
  slow.send_faults->duplication = 1;
  Client late(open(std::move(slow)));
  const auto begun = EventLoop::Clock::now();
  late.send();
  EXPECT_EQ(late.answer(loop), PacketType::response);
  EXPECT_GE(EventLoop::Clock::now() - begun, milliseconds(80));
  EXPECT_EQ(late.answer(loop, milliseconds(500)), PacketType::response);
}

// The client's runtime against the server's, with replies that come in bursts.
TEST_F(ServerHostTest, LongBodiesTravelBothWays) {
  const Endpoint& endpoint = open(options());
  const CallTarget target = {"ncadg_ip_udp", "127.0.0.1", std::to_string(endpoint.port()), {}, 2};
  const auto body = test::pattern(300'000);
  auto reply = std::async(std::launch::async,
                          [&] { return invoke(target, kChangeOperation, body, body.size()).body; });
  while (reply.wait_for(milliseconds(0)) != std::future_status::ready)
    loop.run_once(milliseconds(1));
  EXPECT_EQ(reply.get(), body);
}

// --- The event loop alone

TEST(EventLoopTest, RunsTimersInOrderAndForgetsCancelledOnes) {
  EventLoop loop;
  std::string order;
  loop.after(milliseconds(20), [&] {
    order += "c";
    loop.stop();
  });
  const auto cancelled = loop.after(milliseconds(5), [&] { order += "x"; });
  loop.after(milliseconds(1), [&] {
    order += "a";
    loop.cancel(cancelled);
    loop.after(milliseconds(2), [&] { order += "b"; });
  });
  loop.run();
  EXPECT_EQ(order, "abc");
}

TEST(EventLoopTest, AHandlerMayEndItsOwnWatch) {
  EventLoop loop;
  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  int called = 0;
  ASSERT_TRUE(loop.watch(pipe_ends[0], EPOLLIN, [&](std::uint32_t) {
    ++called;
    loop.unwatch(pipe_ends[0]);
  }));
  ASSERT_EQ(write(pipe_ends[1], "x", 1), 1);
  loop.run_once(milliseconds(1000));
  loop.run_once(milliseconds(5));
  EXPECT_EQ(called, 1);
  EXPECT_FALSE(loop.watch(-1, EPOLLIN, {}));
  close(pipe_ends[0]);
  close(pipe_ends[1]);
}

}  // namespace
}  // namespace rpc::server
