// SPDX-License-Identifier: Apache-2.0
// The RPC runtime over loopback against bare sockets that move the same datagrams: the time of an
// empty call, and the rate of a long reply in fragments. Both ends are processes of their own; the
// two ways take turns, so that a change of the machine's speed meets both.

#include <netinet/in.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "platform/rpc/client/invoke.h"
#include "platform/rpc/server/event_loop.h"
#include "platform/rpc/server/server_host.h"
#include "platform/rpc/wire/pdu.h"
#include "tests/support/echo_interface.h"

namespace {

using Clock = std::chrono::steady_clock;
using rpc::server::kChangeOperation;
using rpc::server::kReadOperation;

constexpr int kPings = 20'000;
constexpr int kPingsPerTurn = 200;
constexpr std::size_t kLongReply = 1024 * 1024;
constexpr int kLongReplies = 300;

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

double microseconds_of(const std::function<void()>& work) {
  const auto begun = Clock::now();
  work();
  return std::chrono::duration<double, std::micro>(Clock::now() - begun).count();
}

struct BareSocket {
  int descriptor;
  sockaddr_in address{};
};

BareSocket bare_socket() {
  BareSocket made{::socket(AF_INET, SOCK_DGRAM, 0)};
  made.address.sin_family = AF_INET;
  made.address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof made.address;
  const int buffer = 1024 * 1024;
  setsockopt(made.descriptor, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
  if (bind(made.descriptor, reinterpret_cast<sockaddr*>(&made.address), size) != 0)
    fail("bind");
  getsockname(made.descriptor, reinterpret_cast<sockaddr*>(&made.address), &size);
  return made;
}

// Keeps this process on one processor, so that both ways cross between the same two; left to the
// scheduler, one of them may wake its peer twice as fast as the other.
void stay_on(int processor) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(processor, &set);
  sched_setaffinity(0, sizeof set, &set);  // a machine with one processor has no choice
}

// A child process that ends with its parent.
template <typename Work>
pid_t child(Work work) {
  const pid_t pid = fork();
  if (pid < 0)
    fail("fork");
  if (pid > 0)
    return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  stay_on(1);
  work();
  _exit(0);
}

void end(pid_t pid) {
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

// Answers a status of four bytes to a change, a long body to a read.
class BenchInterface : public rpc::server::EchoInterface {
 public:
  rpc::server::Outcome dispatch(const rpc::server::CallInfo&, std::uint16_t opnum,
                                std::span<const std::byte>, rpc::DataRepresentation,
                                bool) override {
    const std::size_t size = opnum == kReadOperation.opnum ? kLongReply : 4;
    return {rpc::server::Outcome::Kind::reply, 0, std::vector<std::byte>(size)};
  }
};

struct RpcServer {
  pid_t pid;
  rpc::CallTarget target;
};

RpcServer start_rpc_server() {
  int port_pipe[2];
  if (pipe(port_pipe) != 0)
    fail("pipe");
  const pid_t pid = child([&] {
    BenchInterface interface;
    rpc::server::EventLoop loop;
    rpc::server::ServerHost host(loop);
    rpc::server::EndpointOptions options;
    options.interfaces = {&interface};
    const auto opened = host.open(options);
    const std::uint16_t port = opened.endpoint->port();
    if (write(port_pipe[1], &port, sizeof port) != sizeof port)
      fail("write");
    loop.run();
  });
  std::uint16_t port = 0;
  if (read(port_pipe[0], &port, sizeof port) != sizeof port)
    fail("read");
  return {pid, {"ncadg_ip_udp", "127.0.0.1", std::to_string(port), {}, 5}};
}

// --- The empty call against a bare echo of the same sizes.

void bench_empty_call(const RpcServer& server) {
  const BareSocket echo = bare_socket();
  const BareSocket client = bare_socket();
  const pid_t echoing = child([&] {
    std::array<std::byte, 2048> buffer;
    sockaddr_in from{};
    for (;;) {
      socklen_t size = sizeof from;
      recvfrom(echo.descriptor, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from),
               &size);
      sendto(echo.descriptor, buffer.data(), rpc::kHeaderSize + 4, 0,
             reinterpret_cast<const sockaddr*>(&from), size);
    }
  });
  std::array<std::byte, 2048> buffer{};
  const auto bare = [&] {
    sendto(client.descriptor, buffer.data(), rpc::kHeaderSize, 0,
           reinterpret_cast<const sockaddr*>(&echo.address), sizeof echo.address);
    recv(client.descriptor, buffer.data(), buffer.size(), 0);
  };
  const auto call = [&] { rpc::invoke(server.target, kChangeOperation, {}, 4); };
  call();  // the server asks once who we are
  std::vector<double> of_call, of_bare;
  for (int turn = 0; turn < kPings / kPingsPerTurn; ++turn) {
    for (int i = 0; i < kPingsPerTurn; ++i)
      of_call.push_back(microseconds_of(call));
    for (int i = 0; i < kPingsPerTurn; ++i)
      of_bare.push_back(microseconds_of(bare));
  }
  end(echoing);
  const double call_median = median(of_call);
  const double bare_median = median(of_bare);
  std::printf("empty call       %8.2f us   bare echo   %8.2f us   ratio %.2f (goal 1.30)\n",
              call_median, bare_median, call_median / bare_median);
}

// --- A long reply against bare datagrams of the same sizes with the same acknowledgements.

// What one long reply looks like on the wire.
struct Pattern {
  std::size_t fragments = 0;
  std::size_t fragment_size = 0;  // header included
  std::size_t facks = 0;
  std::size_t most_in_flight = 0;
};

// The reply is watched by the server's own hook in a run that is not timed.
Pattern watch_long_reply() {
  Pattern pattern;
  BenchInterface interface;
  rpc::server::EventLoop loop;
  rpc::server::ServerHost host(loop);
  rpc::server::EndpointOptions options;
  options.interfaces = {&interface};
  std::size_t acknowledged = 0;
  options.on_datagram = [&](rpc::server::Direction direction, const rpc::SocketAddress&,
                            std::span<const std::byte> bytes) {
    const auto packet = rpc::decode_packet(bytes);
    if (direction == rpc::server::Direction::received &&
        packet->header.type == rpc::PacketType::fack) {
      ++pattern.facks;
      acknowledged = packet->header.fragment + 1U;
    }
    if (direction == rpc::server::Direction::sent &&
        packet->header.type == rpc::PacketType::response) {
      ++pattern.fragments;
      pattern.fragment_size = std::max(pattern.fragment_size, bytes.size());
      pattern.most_in_flight = std::max(pattern.most_in_flight, pattern.fragments - acknowledged);
    }
  };
  const auto opened = host.open(options);
  const std::string port = std::to_string(opened.endpoint->port());
  const pid_t caller = child([&] {
    rpc::invoke({"ncadg_ip_udp", "127.0.0.1", port, {}, 5}, kReadOperation, {}, kLongReply);
  });
  while (waitpid(caller, nullptr, WNOHANG) == 0)
    loop.run_once(std::chrono::milliseconds(20));
  return pattern;
}

// Sends the fragments of one reply whenever it is asked to, at most a window ahead of what is
// acknowledged.
[[noreturn]] void bare_sender(const BareSocket& socket, const Pattern& pattern) {
  std::vector<std::byte> buffer(65'536);
  for (;;) {
    sockaddr_in from{};
    socklen_t size = sizeof from;
    recvfrom(socket.descriptor, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from),
             &size);
    std::uint32_t acknowledged = 0;
    for (std::uint32_t sent = 0; sent < pattern.fragments; ++sent) {
      while (sent - acknowledged >= pattern.most_in_flight) {
        recv(socket.descriptor, buffer.data(), buffer.size(), 0);
        std::copy_n(buffer.data(), sizeof acknowledged,
                    reinterpret_cast<std::byte*>(&acknowledged));
      }
      sendto(socket.descriptor, buffer.data(), pattern.fragment_size, 0,
             reinterpret_cast<const sockaddr*>(&from), size);
    }
    while (acknowledged < pattern.fragments) {
      recv(socket.descriptor, buffer.data(), buffer.size(), 0);
      std::copy_n(buffer.data(), sizeof acknowledged, reinterpret_cast<std::byte*>(&acknowledged));
    }
  }
}

void bare_reply(const BareSocket& client, const BareSocket& server, const Pattern& pattern,
                std::vector<std::byte>& body) {
  constexpr std::size_t kFackSize = rpc::kHeaderSize + 16;
  const std::size_t each_fack = std::max<std::size_t>(1, pattern.fragments / pattern.facks);
  std::vector<std::byte> buffer(65'536);
  body.clear();
  const auto* const to = reinterpret_cast<const sockaddr*>(&server.address);
  sendto(client.descriptor, buffer.data(), rpc::kHeaderSize, 0, to, sizeof server.address);
  for (std::uint32_t received = 0; received < pattern.fragments;) {
    const ssize_t size = recv(client.descriptor, buffer.data(), buffer.size(), 0);
    body.insert(body.end(), buffer.begin() + rpc::kHeaderSize, buffer.begin() + size);
    ++received;
    if (received % each_fack == 0 || received == pattern.fragments) {
      std::copy_n(reinterpret_cast<const std::byte*>(&received), sizeof received, buffer.data());
      sendto(client.descriptor, buffer.data(), kFackSize, 0, to, sizeof server.address);
    }
  }
}

void bench_long_reply(const RpcServer& server) {
  const Pattern pattern = watch_long_reply();
  const BareSocket sender = bare_socket();
  const BareSocket client = bare_socket();
  const pid_t sending = child([&] { bare_sender(sender, pattern); });
  std::vector<std::byte> body;
  std::vector<double> of_call, of_bare;
  for (int i = 0; i < kLongReplies; ++i) {
    of_call.push_back(
        microseconds_of([&] { rpc::invoke(server.target, kReadOperation, {}, kLongReply); }));
    of_bare.push_back(microseconds_of([&] { bare_reply(client, sender, pattern, body); }));
  }
  end(sending);
  const double call_median = median(of_call);
  const double bare_median = median(of_bare);
  std::printf(
      "reply of 1 MiB   %8.1f us   bare        %8.1f us   rate %.0f %% of bare (goal 60 %%); "
      "%zu fragments of %zu, %zu facks, window %zu\n",
      call_median, bare_median, 100 * bare_median / call_median, pattern.fragments,
      pattern.fragment_size, pattern.facks, pattern.most_in_flight);
}

}  // namespace

int main() {
  stay_on(0);
  const RpcServer server = start_rpc_server();
  bench_empty_call(server);
  bench_long_reply(server);
  rpc::release_activities();
  end(server.pid);
}
