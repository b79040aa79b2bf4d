// The client over real sockets, with servers of a few lines that know only the packet codec.

#include "platform/rpc/transport.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "platform/rpc/exception.h"
#include "platform/rpc/invoke.h"
#include "platform/rpc/network_address.h"
#include "platform/rpc/wire_bytes.h"
#include "tests/platform/rpc_bytes.h"

namespace rpc {
namespace {

using namespace std::chrono_literals;
using test::Bytes;
using test::pattern;

constexpr InterfaceSpec kInterface = {
    {0x5e61c7d3, 0xa04b, 0, 2, 10, {0x14, 0x1e, 0x32, 0, 0, 0}}, 2, 0, "ag"};
constexpr OperationSpec kOnce = {&kInterface, 20, false, "once"};

class UdpSocket {
 public:
  explicit UdpSocket(std::uint32_t host) : descriptor_(socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(host);
    EXPECT_EQ(bind(descriptor_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    socklen_t size = sizeof address;
    getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    const timeval limit{5, 0};
    setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }
  ~UdpSocket() { close(descriptor_); }
  UdpSocket(const UdpSocket&) = delete;
  UdpSocket& operator=(const UdpSocket&) = delete;

  std::uint16_t port() const { return port_; }

  // Nothing after five seconds.
  std::optional<Packet> receive(Bytes& storage, sockaddr_in& source) const {
    storage.resize(65'536);
    socklen_t size = sizeof source;
    const ssize_t got = recvfrom(descriptor_, storage.data(), storage.size(), 0,
                                 reinterpret_cast<sockaddr*>(&source), &size);
    if (got < 0)
      return std::nullopt;
    return decode_packet(std::span(storage).first(static_cast<std::size_t>(got)));
  }

  void send(const PacketHeader& header, std::span<const std::byte> body,
            const sockaddr_in& to) const {
    const Bytes datagram = encode_packet(header, body);
    sendto(descriptor_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
           sizeof to);
  }

 private:
  int descriptor_;
  std::uint16_t port_ = 0;
};

PacketHeader answer_to(const PacketHeader& request, PacketType type) {
  PacketHeader header = request;
  header.type = type;
  header.flags1 = 0;
  header.server_boot = 0x67456A12;
  header.interface_hint = header.activity_hint = 1;
  return header;
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
      {{"ncadg_ip_udp", "127.0.0.1", "0", {}, 5}, 1706},
      {{"ncadg_ip_udp", "127.0.0.1", "65536", {}, 5}, 1706},
      {{"ncadg_ip_udp", "127.0.0.1", "1x", {}, 5}, 1706},
      {{"ncadg_ip_udp", "127.0.0.256", "135", {}, 5}, 1707},
      {{"ncadg_ip_udp", "a b", "135", {}, 5}, 1707},
      {{"ncadg_ip_udp", "no-such-host.invalid", "135", {}, 5}, 1722},
  };
  for (const auto& each : cases)
    EXPECT_EQ(status_of(each.target), each.status)
        << each.target.network_address << ' ' << each.target.endpoint;
}

TEST(Invoke, DeadPortEndsTheCallAtOnceEveryTime) {
  std::uint16_t dead = 0;
  {
    const UdpSocket socket(INADDR_LOOPBACK);
    dead = socket.port();
  }
  const Time before = Clock::now();
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(status_of(target_at(dead)), 1722U);
  EXPECT_LT(Clock::now() - before, 1s);
}

TEST(Invoke, PortThatDiesAfterACallEndsTheNextOneAtOnce) {
  auto socket = std::make_unique<UdpSocket>(INADDR_LOOPBACK);
  const std::uint16_t port = socket->port();
  std::thread server([&] {
    Bytes storage;
    sockaddr_in client{};
    const auto request = socket->receive(storage, client);
    if (request)
      socket->send(answer_to(request->header, PacketType::response), pattern(4), client);
  });
  EXPECT_EQ(invoke(target_at(port), kOnce, {}, 100).body, pattern(4));
  server.join();
  socket.reset();
  release_activities();  // the ack finds nobody; its error report must not confuse the next call
  const Time before = Clock::now();
  EXPECT_EQ(status_of(target_at(port)), 1722U);
  EXPECT_LT(Clock::now() - before, 1s);
}

TEST(Invoke, ReportOfAnEarlierPacketDoesNotEndACall) {
  auto socket = std::make_unique<UdpSocket>(INADDR_LOOPBACK);
  const UdpSocket other(INADDR_LOOPBACK);
  const std::uint16_t port = socket->port();
  const auto answer_one = [](const UdpSocket& from) {
    Bytes storage;
    sockaddr_in client{};
    const auto request = from.receive(storage, client);
    if (request)
      from.send(answer_to(request->header, PacketType::response), pattern(4), client);
  };
  SystemRandom random;
  const ClientIdentity identity = ClientIdentity::make(random);
  ReceiveBuffers buffers;
  Transport transport({INADDR_LOOPBACK, port});
  ASSERT_TRUE(transport.open());
  Activity gone({INADDR_LOOPBACK, port}, random);
  Activity alive({INADDR_LOOPBACK, other.port()}, random);
  CallRequest request;
  request.operation = &kOnce;
  request.reply_limit = 100;
  {
    std::thread server([&] { answer_one(*socket); });
    ClientCall call(gone, identity, random, request, Clock::now());
    transport.run(call, buffers);
    server.join();
    EXPECT_EQ(call.status(), 0U);
  }
  socket.reset();
  transport.send(*gone.take_ack());
  std::this_thread::sleep_for(20ms);  // the report is in the socket's queue now
  std::thread server([&] { answer_one(other); });
  ClientCall call(alive, identity, random, request, Clock::now());
  transport.run(call, buffers);
  server.join();
  EXPECT_EQ(call.status(), 0U);
}

TEST(Invoke, ReplyFromAnotherAddressAndPortIsServed) {
  const UdpSocket called(INADDR_LOOPBACK);
  const UdpSocket other(INADDR_LOOPBACK + 1);
  std::thread server([&] {
    Bytes storage;
    sockaddr_in client{};
    const auto request = called.receive(storage, client);
    if (!request)
      return;
    other.send(answer_to(request->header, PacketType::working), {}, client);
    // The next ping goes where the answer came from.
    const auto ping = other.receive(storage, client);
    if (ping && ping->header.type == PacketType::ping)
      other.send(answer_to(ping->header, PacketType::response), pattern(10), client);
  });
  const Reply reply = invoke(target_at(called.port()), kOnce, {}, 100);
  server.join();
  EXPECT_EQ(reply.body, pattern(10));
}

TEST(Invoke, LostRequestIsRepeatedAndMuteServerGivenUp) {
  const UdpSocket socket(INADDR_LOOPBACK);
  std::thread server([&] {
    Bytes storage;
    sockaddr_in client{};
    socket.receive(storage, client);  // as if lost
    const auto request = socket.receive(storage, client);
    if (request)
      socket.send(answer_to(request->header, PacketType::response), pattern(4), client);
  });
  EXPECT_EQ(invoke(target_at(socket.port()), kOnce, {}, 100).body, pattern(4));
  server.join();
  const Time before = Clock::now();
  EXPECT_EQ(status_of(target_at(socket.port(), 0)), 1722U);
  const Duration took = Clock::now() - before;
  EXPECT_GE(took, 1s);
  EXPECT_LT(took, 1500ms);
}

TEST(Invoke, LongRequestAndLongReplyTravelInFragments) {
  const UdpSocket socket(INADDR_LOOPBACK);
  const Bytes body = pattern(300'000);
  std::thread server([&] {
    FragmentJoiner joiner;
    FragmentJoiner::Limits limits;
    limits.body = body.size();
    joiner.start(limits);
    FragmentSender sender;
    std::uint16_t serial = 0;
    Bytes storage;
    Bytes joined;
    sockaddr_in client{};
    while (!sender.complete()) {
      const auto packet = socket.receive(storage, client);
      if (!packet)
        return;
      if (packet->header.type == PacketType::request) {
        const auto result = joiner.accept(*packet, Clock::now());
        if (joiner.fack_due()) {
          PacketHeader header = answer_to(packet->header, PacketType::fack);
          header.fragment = joiner.fack_fragment();
          socket.send(header, encode_fack(joiner.fack(), true), client);
        }
        if (result != FragmentJoiner::Result::complete)
          continue;
        joined = Bytes(joiner.body().begin(), joiner.body().end());
        sender.start(joined, LastFragment::acknowledged);
      } else if (packet->header.type == PacketType::fack) {
        sender.acknowledge(packet->header.fragment, decode_fack(packet->body, true), Clock::now());
      }
      while (const auto out = sender.next(Clock::now(), serial)) {
        PacketHeader header = answer_to(packet->header, PacketType::response);
        header.flags1 = out->flags;
        header.fragment = out->fragment;
        header.serial = out->serial;
        socket.send(header, out->body, client);
      }
    }
  });
  const Reply reply = invoke(target_at(socket.port()), kOnce, body, body.size());
  server.join();
  EXPECT_EQ(reply.body, body);
}

TEST(Invoke, AckGoesOutWhenTheRuntimeTurnsToAnotherServerAndWhenReleased) {
  const UdpSocket first(INADDR_LOOPBACK);
  const UdpSocket second(INADDR_LOOPBACK);
  const auto serve_then_expect_ack = [](const UdpSocket& socket, bool& acknowledged) {
    Bytes storage;
    sockaddr_in client{};
    const auto request = socket.receive(storage, client);
    if (!request)
      return;
    socket.send(answer_to(request->header, PacketType::response), {}, client);
    const auto ack = socket.receive(storage, client);
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
