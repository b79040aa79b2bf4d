// SPDX-License-Identifier: Apache-2.0
// The RPC runtime over loopback against bare sockets that move the same datagrams, batched where
// ours are: the time of an empty call, and of a long reply in fragments. Both ends are processes of
// their own.

#include <netinet/in.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "bench/measure.h"
#include "platform/rpc/client/invoke.h"
#include "platform/rpc/server/event_loop.h"
#include "platform/rpc/server/server_host.h"
#include "platform/rpc/wire/pdu.h"
#include "tests/support/echo_interface.h"

namespace {

using rpc::server::kChangeOperation;
using rpc::server::kReadOperation;

constexpr int kPings = 4'000;
constexpr std::size_t kLongReply = 1024 * 1024;
constexpr int kLongReplies = 60;
// As many as the runtime gives to one system call.
constexpr unsigned kBatch = 32;

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

// The median time of so many runs.
double each(int runs, const std::function<void()>& work) {
  std::vector<double> times;
  for (int run = 0; run < runs; ++run)
    times.push_back(bench::seconds_of(work));
  return bench::median(times);
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

RpcServer start_rpc_server(std::size_t fragment_size) {
  int port_pipe[2];
  if (pipe(port_pipe) != 0)
    fail("pipe");
  const pid_t pid = child([&] {
    BenchInterface interface;
    rpc::server::EventLoop loop;
    rpc::server::ServerHost host(loop);
    rpc::server::EndpointOptions options;
    options.interfaces = {&interface};
    options.core.fragment_size = fragment_size;
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
  bench::report({.what = "call without parameters over loopback",
                 .ours = [&] { return each(kPings, call); },
                 .against = "bare echo of the same sizes",
                 .baseline = [&] { return each(kPings, bare); },
                 .unit = bench::kMicroseconds,
                 .goal = "1.10 or less"});
  end(echoing);
}

// --- A long reply against bare datagrams of the same sizes with the same acknowledgements.

// What one long reply looks like on the wire.
struct Pattern {
  std::vector<std::size_t> parts;  // of the body, as the fragments carry them
  std::size_t facks = 0;
  std::size_t most_in_flight = 0;
};

// The reply is watched by the server's own hook in a run that is not timed: the second one of a
// client, whose server knows by then how large its fragments may be.
Pattern watch_long_reply(std::size_t fragment_size) {
  Pattern pattern;
  BenchInterface interface;
  rpc::server::EventLoop loop;
  rpc::server::ServerHost host(loop);
  rpc::server::EndpointOptions options;
  options.interfaces = {&interface};
  options.core.fragment_size = fragment_size;
  std::size_t acknowledged = 0;
  options.on_datagram = [&](const rpc::server::DatagramReport& report) {
    const auto packet = rpc::decode_packet(report.bytes);
    if (packet->header.type == rpc::PacketType::request) {
      pattern = {};
      acknowledged = 0;
    }
    if (report.direction == rpc::server::Direction::received &&
        packet->header.type == rpc::PacketType::fack) {
      ++pattern.facks;
      acknowledged = static_cast<std::uint16_t>(packet->header.fragment + 1);
    }
    if (report.direction == rpc::server::Direction::sent &&
        packet->header.type == rpc::PacketType::response) {
      pattern.parts.push_back(packet->body.size());
      pattern.most_in_flight =
          std::max(pattern.most_in_flight, pattern.parts.size() - acknowledged);
    }
  };
  const auto opened = host.open(options);
  const std::string port = std::to_string(opened.endpoint->port());
  const pid_t caller = child([&] {
    for (int call = 0; call < 2; ++call)
      rpc::invoke({"ncadg_ip_udp", "127.0.0.1", port, {}, 5}, kReadOperation, {}, kLongReply);
  });
  while (waitpid(caller, nullptr, WNOHANG) == 0)
    loop.run_once(std::chrono::milliseconds(20));
  return pattern;
}

// Datagrams received together.
class InBatch {
 public:
  InBatch() : bytes_(kBatch * kRoom) {
    for (unsigned i = 0; i < kBatch; ++i) {
      parts_[i] = {bytes_.data() + i * kRoom, kRoom};
      messages_[i].msg_hdr.msg_iov = &parts_[i];
      messages_[i].msg_hdr.msg_iovlen = 1;
    }
  }
  std::span<const std::byte> at(unsigned i) const {
    return {bytes_.data() + i * kRoom, messages_[i].msg_len};
  }

  // Waits for one, takes what is there.
  unsigned receive(int descriptor) {
    const int count = recvmmsg(descriptor, messages_.data(), kBatch, MSG_WAITFORONE, nullptr);
    if (count <= 0)
      fail("recvmmsg");
    return static_cast<unsigned>(count);
  }

 private:
  static constexpr std::size_t kRoom = 9000;
  std::vector<std::byte> bytes_;
  std::array<iovec, kBatch> parts_;
  std::array<mmsghdr, kBatch> messages_{};
};

// Sends the next parts of a body together, each behind a header; what is left of the body.
std::span<const std::byte> send_parts(int descriptor, std::span<const std::size_t> sizes,
                                      std::span<const std::byte> body, sockaddr_in to) {
  static std::array<std::byte, rpc::kHeaderSize> header{};
  std::array<std::array<iovec, 2>, kBatch> parts;
  std::array<mmsghdr, kBatch> messages{};
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    parts[i] = {iovec{header.data(), header.size()},
                iovec{const_cast<std::byte*>(body.data()), sizes[i]}};
    messages[i].msg_hdr.msg_name = &to;
    messages[i].msg_hdr.msg_namelen = sizeof to;
    messages[i].msg_hdr.msg_iov = parts[i].data();
    messages[i].msg_hdr.msg_iovlen = parts[i].size();
    body = body.subspan(sizes[i]);
  }
  const auto count = static_cast<int>(sizes.size());
  if (sendmmsg(descriptor, messages.data(), static_cast<unsigned>(count), 0) != count)
    fail("sendmmsg");
  return body;
}

constexpr std::size_t kQuestionSize = rpc::kHeaderSize;
constexpr std::size_t kFackSize = rpc::kHeaderSize + 16;

// The number that a bare acknowledgement carries.
std::uint32_t number_in(std::span<const std::byte> bytes) {
  std::uint32_t number = 0;
  std::memcpy(&number, bytes.data(), sizeof number);
  return number;
}

// Makes a reply, as the operation behind ours does, and sends its fragments whenever it is asked
// to, at most a window ahead of what is acknowledged.
[[noreturn]] void bare_sender(const BareSocket& socket, const sockaddr_in& client,
                              const Pattern& pattern) {
  InBatch in;
  std::uint32_t acknowledged = 0;
  bool asked = false;
  // The last acknowledgement and the next question may come together.
  const auto receive = [&] {
    const unsigned count = in.receive(socket.descriptor);
    for (unsigned i = 0; i < count; ++i) {
      if (in.at(i).size() == kQuestionSize)
        asked = true;
      else
        acknowledged = number_in(in.at(i));
    }
  };
  for (;;) {
    while (!asked)
      receive();
    asked = false;
    acknowledged = 0;
    const std::vector<std::byte> body(kLongReply);
    std::span<const std::byte> rest = body;
    for (std::size_t sent = 0; acknowledged < pattern.parts.size();) {
      const std::size_t window = pattern.most_in_flight - (sent - acknowledged);
      const std::size_t count =
          std::min<std::size_t>({kBatch, window, pattern.parts.size() - sent});
      if (count == 0) {
        receive();
        continue;
      }
      rest = send_parts(socket.descriptor, std::span(pattern.parts).subspan(sent, count), rest,
                        client);
      sent += count;
    }
  }
}

void bare_reply(const BareSocket& client, const BareSocket& server, const Pattern& pattern,
                InBatch& batch, std::vector<std::byte>& body) {
  const std::size_t each_fack = std::max<std::size_t>(1, pattern.parts.size() / pattern.facks);
  std::array<std::byte, kFackSize> fack{};
  const auto* const to = reinterpret_cast<const sockaddr*>(&server.address);
  body.clear();
  sendto(client.descriptor, fack.data(), kQuestionSize, 0, to, sizeof server.address);
  for (std::uint32_t received = 0, answered = 0; received < pattern.parts.size();) {
    const unsigned count = batch.receive(client.descriptor);
    for (unsigned i = 0; i < count; ++i) {
      const auto part = batch.at(i).subspan(rpc::kHeaderSize);
      body.insert(body.end(), part.begin(), part.end());
    }
    received += count;
    if (received - answered < each_fack && received < pattern.parts.size())
      continue;
    answered = received;
    std::memcpy(fack.data(), &received, sizeof received);
    sendto(client.descriptor, fack.data(), fack.size(), 0, to, sizeof server.address);
  }
}

void bench_long_reply(std::size_t fragment_size) {
  const RpcServer server = start_rpc_server(fragment_size);
  const Pattern pattern = watch_long_reply(fragment_size);
  const BareSocket sender = bare_socket();
  const BareSocket client = bare_socket();
  const pid_t sending = child([&] { bare_sender(sender, client.address, pattern); });
  InBatch batch;
  std::vector<std::byte> body;
  bench::report(
      {.what = "reply of 1 MiB in " + std::to_string(pattern.parts.size()) +
               " fragments of up to " + std::to_string(fragment_size) + " octets with " +
               std::to_string(pattern.facks) + " acknowledgements",
       .ours =
           [&] {
             return each(kLongReplies,
                         [&] { rpc::invoke(server.target, kReadOperation, {}, kLongReply); });
           },
       .against = "bare sockets moving the same datagrams in batches",
       .baseline =
           [&] {
             return each(kLongReplies, [&] { bare_reply(client, sender, pattern, batch, body); });
           },
       .unit = bench::kMicroseconds,
       .goal = "1.05 or less"});
  bench::require(body.size() >= kLongReply, "the bare reply is too short");
  end(sending);
  end(server.pid);
}

}  // namespace

int main() {
  stay_on(0);
  const RpcServer server = start_rpc_server(rpc::kLeastMaxFragment);
  bench_empty_call(server);
  // In what every client takes, and in what ours takes over loopback.
  for (const std::size_t fragment_size : {rpc::kLeastMaxFragment, std::size_t{8192}})
    bench_long_reply(fragment_size);
  end(server.pid);
}
