// SPDX-License-Identifier: Apache-2.0
// The client over real sockets, with servers of a few lines that know only the packet codec.

#include "platform/rpc/client/transport.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "platform/rpc/client/invoke.h"
#include "platform/rpc/client/liveness.h"
#include "platform/rpc/exception.h"
#include "platform/rpc/names/network_address.h"
#include "platform/rpc/rpc.h"
#include "platform/rpc/wire/wire_bytes.h"
#include "platform/sys/fiber.h"
#include "tests/support/rpc_bytes.h"
#include "tests/support/udp_socket.h"

namespace rpc {
namespace {

using namespace std::chrono_literals;
using test::pattern;
using test::UdpSocket;

constexpr InterfaceSpec kInterface = {
    {0x5e61c7d3, 0xa04b, 0, 2, 10, {0x14, 0x1e, 0x32, 0, 0, 0}}, 2, 0, "ag"};
constexpr OperationSpec kOnce = {&kInterface, 20, false, "once"};

// Answers the next packet; false when none came.
bool answer_one(const UdpSocket& socket) {
  const auto request = socket.receive();
  if (!request)
    return false;
  PacketHeader header = request->header;
  header.type = PacketType::response;
  header.flags1 = 0;
  header.server_boot = 0x67456A12;
  header.interface_hint = header.activity_hint = 1;
  socket.send(header, pattern(4), request->source);
  return true;
}

CallTarget target_at(std::uint16_t port, unsigned level = 2) {
  return {"ncadg_ip_udp", "127.0.0.1", std::to_string(port), {}, level};
}

// The status that a call to this target ends with.
std::uint32_t status_of(const CallTarget& target, FailureKind kind = FailureKind::communication) {
  try {
    invoke(target, kOnce, {}, 100);
  } catch (const RpcException& failure) {
    EXPECT_EQ(failure.kind(), kind);
    return failure.status();
  }
  return 0;
}

TEST(Invoke, RefusesTargetsThatCannotBeCalled) {
  const struct {
    CallTarget target;
    std::uint32_t status;
  } cases[] = {
      {{"ncacn_ip_tcp", "127.0.0.1", "135", {}, 5}, 1703},
      {{"ncadg_ip_udp", "127.0.0.1", "", {}, 5}, 1753},
      {{"ncadg_ip_udp", "127.0.0.1", "65536", {}, 5}, 1706},
      {{"ncadg_ip_udp", "a b", "135", {}, 5}, 1707},
      {{"ncadg_ip_udp", "no-such-host.invalid", "135", {}, 5}, 1722},
  };
  for (const auto& each : cases)
    EXPECT_EQ(status_of(each.target), each.status)
        << each.target.network_address << ' ' << each.target.endpoint;
}

TEST(Liveness, ServersAreToldAgainAndAgainWhileAContextOfTheirsIsHeld) {
  const UdpSocket held, released;
  const auto name_of = [](const UdpSocket& socket) {
    return liveness::Name("127.0.0.1", std::to_string(socket.port()));
  };
  liveness::Watch watch(10ms, liveness::tell);
  for (const UdpSocket* each : {&held, &held, &released})
    watch.hold(name_of(*each));
  ASSERT_TRUE(released.receive());
  watch.release(name_of(held));  // one of two contexts
  watch.release(name_of(released));
  const ClientIdentity& client = ClientIdentity::of_this_process();
  std::set<std::uint32_t> activities;
  for (int i = 0; i < 6; ++i) {
    const auto packet = held.receive();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->header.flags1, kFlagMaybe | kFlagIdempotent);
    EXPECT_EQ(packet->header.interface_id.time_low, 0x4a967f14U);
    EXPECT_EQ(packet->header.opnum, 0);
    ASSERT_EQ(packet->body.size(), sizeof(uuid_t));
    EXPECT_EQ(load_uuid(packet->body.data(), true), client.address_space);
    activities.insert(packet->header.activity.time_low);
    while (i == 2 && released.receive(MSG_DONTWAIT)) {
    }
  }
  EXPECT_EQ(activities.size(), 6U);
  EXPECT_FALSE(released.receive(MSG_DONTWAIT));
}

TEST(Invoke, DeadPortEndsTheCallAtOnceEveryTime) {
  const std::uint16_t dead = UdpSocket().port();
  const Time before = Clock::now();
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(status_of(target_at(dead)), 1722U);
  EXPECT_LT(Clock::now() - before, 1s);
}

TEST(Invoke, PortThatDiesAfterACallEndsTheNextOneAtOnce) {
  auto socket = std::make_unique<UdpSocket>();
  const std::uint16_t port = socket->port();
  std::thread server([&] { answer_one(*socket); });
  EXPECT_EQ(invoke(target_at(port), kOnce, {}, 100).body, pattern(4));
  server.join();
  socket.reset();
  release_activities();  // the ack finds nobody; its error report must not confuse the next call
  const Time before = Clock::now();
  EXPECT_EQ(status_of(target_at(port)), 1722U);
  EXPECT_LT(Clock::now() - before, 1s);
}

TEST(Invoke, ReportOfAnEarlierPacketDoesNotEndACall) {
  auto socket = std::make_unique<UdpSocket>();
  const UdpSocket other;
  const std::uint16_t port = socket->port();
  SystemRandom random;
  const ClientIdentity identity = ClientIdentity::make(random);
  Transport transport;
  ASSERT_TRUE(transport.open());
  Activity gone({INADDR_LOOPBACK, port}, random);
  Activity alive({INADDR_LOOPBACK, other.port()}, random);
  CallRequest request;
  request.operation = &kOnce;
  request.reply_limit = 100;
  {
    std::thread server([&] { answer_one(*socket); });
    ClientCall call(gone, identity, random, request, Clock::now());
    transport.run(call, gone);
    server.join();
    EXPECT_EQ(call.status(), 0U);
  }
  socket.reset();
  transport.send(*gone.take_ack());
  std::this_thread::sleep_for(20ms);  // the report is in the socket's queue now
  std::thread server([&] { answer_one(other); });
  ClientCall call(alive, identity, random, request, Clock::now());
  transport.run(call, alive);
  server.join();
  EXPECT_EQ(call.status(), 0U);
}

TEST(Invoke, LostRequestIsRepeatedAndMuteServerGivenUp) {
  const UdpSocket socket;
  std::thread server([&] {
    socket.receive();  // as if lost
    answer_one(socket);
  });
  EXPECT_EQ(invoke(target_at(socket.port()), kOnce, {}, 100).body, pattern(4));
  server.join();
  const Time before = Clock::now();
  EXPECT_EQ(status_of(target_at(socket.port(), 0)), 1722U);
  const Duration took = Clock::now() - before;
  EXPECT_GE(took, 1s);
  EXPECT_LT(took, 1500ms);
}

// Calls of many jobs share few sockets; each gets its own outcome.
TEST(Invoke, JobsOnFibersCallAtOnce) {
  constexpr std::size_t kJobs = 60;
  const UdpSocket alive;
  const UdpSocket mute;
  const std::uint16_t dead = UdpSocket().port();
  std::thread server([&] {
    // Nobody is answered before all have asked.
    std::vector<test::Received> requests;
    while (requests.size() < kJobs / 3) {
      const auto request = alive.receive();
      if (!request)
        return;
      requests.push_back(*request);
    }
    for (auto each = requests.rbegin(); each != requests.rend(); ++each) {
      PacketHeader header = each->header;
      header.type = PacketType::response;
      header.flags1 = 0;
      header.server_boot = 1;
      alive.send(header, pattern(4), each->source);
    }
  });
  std::vector<std::uint32_t> statuses(kJobs);
  std::vector<RPC_STATUS> networks(kJobs);
  sys::FiberLoop(kJobs).run(kJobs, [&](std::size_t job) {
    const std::uint16_t ports[] = {alive.port(), mute.port(), dead};
    statuses[job] = status_of(target_at(ports[job % 3], 0));
    networks[job] = RpcLastCallOutcome().network;
  });
  server.join();
  for (std::size_t job = 0; job < kJobs; ++job) {
    EXPECT_EQ(statuses[job], job % 3 == 0 ? 0U : 1722U);
    EXPECT_EQ(networks[job], job % 3 == 0 ? 0U : job % 3 == 1 ? 10060U : 10061U);
  }
}

TEST(Invoke, AckGoesOutWhenTheRuntimeTurnsToAnotherServerAndWhenReleased) {
  const UdpSocket first;
  const UdpSocket second;
  const auto serve_then_expect_ack = [](const UdpSocket& socket, bool& acknowledged) {
    if (!answer_one(socket))
      return;
    const auto ack = socket.receive();
    acknowledged = ack && ack->header.type == PacketType::ack;
  };
  bool first_acknowledged = false;
  bool second_acknowledged = false;
  std::thread first_server([&] { serve_then_expect_ack(first, first_acknowledged); });
  std::thread second_server([&] { serve_then_expect_ack(second, second_acknowledged); });
  invoke(target_at(first.port()), kOnce, {}, 100);
  invoke(target_at(second.port()), kOnce, {}, 100);
  release_activities();
  first_server.join();
  second_server.join();
  EXPECT_TRUE(first_acknowledged);
  EXPECT_TRUE(second_acknowledged);
}

TEST(NetworkAddress, PortsAndHosts) {
  EXPECT_EQ(parse_port("135"), 135);
  EXPECT_EQ(parse_port("65535"), 65535);
  for (const char* text : {"", "0", "-1", "+1", " 1", "1 ", "65536", "99999999999", "0x10"})
    EXPECT_FALSE(parse_port(text)) << text;
  EXPECT_EQ(resolve_host("").host, 0x7F000001U);
  EXPECT_EQ(resolve_host("10.1.2.3").host, 0x0A010203U);
  for (const char* text : {"10.1.2", "1.2.3.4.5", "10.1.2.300", "a/b", "host name"})
    EXPECT_EQ(resolve_host(text).status, 1707U) << text;
  EXPECT_EQ(resolve_host(std::string(300, 'a')).status, 1707U);
  EXPECT_EQ(resolve_host("localhost").host, 0x7F000001U);
}

}  // namespace
}  // namespace rpc
