// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/client/transport.h"

#include <linux/errqueue.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace rpc {
namespace {

constexpr std::size_t kIpAndUdpHeaders = 28;
// Larger fragments gain little and make every loss dearer.
constexpr std::size_t kLargestFragment = 8192;
// Asked for, so that a window of fragments waits in the kernel while we copy; the system may grant
// less.
constexpr int kWantedReceiveBuffer = 1024 * 1024;
// The kernel charges a datagram's bookkeeping to the buffer: up to twice the bytes of a full
// fragment. Half of what remains is left for stray packets.
constexpr int kBufferPerWindow = 4;
constexpr std::uint16_t kLeastWindow = 16;
constexpr std::uint16_t kLargestWindow = 128;
// Error reports read in a row; a flood of them must not keep the call from its clock.
constexpr int kMostErrors = 64;
// Even a call without any limit looks at its clock now and then.
constexpr Duration kLongestWait = std::chrono::hours(1);

int open_socket() {
  return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

// The route's MTU, which the kernel tells of connected sockets only.
std::size_t path_limit_to(const SocketAddress& server) {
  const int probe = open_socket();
  if (probe < 0)
    return kLeastMaxFragment;
  const sockaddr_in address = to_sockaddr(server);
  int mtu = 0;
  socklen_t size = sizeof mtu;
  const bool known =
      connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      getsockopt(probe, IPPROTO_IP, IP_MTU, &mtu, &size) == 0 &&
      mtu > static_cast<int>(kIpAndUdpHeaders);
  close(probe);
  if (!known)
    return kLeastMaxFragment;
  return std::min(static_cast<std::size_t>(mtu) - kIpAndUdpHeaders, kLargestFragment);
}

std::uint16_t window_of(int descriptor) {
  setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &kWantedReceiveBuffer, sizeof kWantedReceiveBuffer);
  int granted = 0;
  socklen_t size = sizeof granted;
  if (getsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &granted, &size) != 0)
    return kLeastWindow;
  const int kilobytes = granted / kBufferPerWindow / 1024;
  return static_cast<std::uint16_t>(std::clamp<int>(kilobytes, kLeastWindow, kLargestWindow));
}

// What a datagram that came back undelivered is reported as.
bool tells_undelivered(int error) {
  return error == ECONNREFUSED || error == EHOSTUNREACH || error == ENETUNREACH ||
         error == EHOSTDOWN || error == ENETDOWN || error == ENONET;
}

}  // namespace

ReceiveBuffers::ReceiveBuffers()
    : bytes_(std::make_unique_for_overwrite<std::byte[]>(kCount * kSize)) {}

Transport::Transport(const SocketAddress& server) : descriptor_(open_socket()) {
  if (!open())
    return;
  const int on = 1;
  setsockopt(descriptor_, IPPROTO_IP, IP_RECVERR, &on, sizeof on);
  window_kilobytes_ = window_of(descriptor_);
  path_limit_ = path_limit_to(server);
}

Transport::~Transport() {
  if (open())
    close(descriptor_);
}

void Transport::run(ClientCall& call, ReceiveBuffers& buffers) {
  undelivered_reason_ = 0;
  flush(call);
  while (!call.done()) {
    const Time now = Clock::now();
    const auto wakeup = call.wakeup();
    if (wakeup && *wakeup <= now)
      call.on_time(now);
    else
      receive(call, buffers, wakeup ? *wakeup - now : kLongestWait);
    flush(call);
  }
}

void Transport::flush(ClientCall& call) {
  const Time now = Clock::now();
  while (const auto packet = call.next_datagram(now)) {
    int error = send_once(*packet);
    if (error == 0)
      continue;
    // The socket reports what became of earlier datagrams first; this one has not been sent.
    read_errors(&call);
    if (call.done())
      continue;
    error = send_once(*packet);
    if (tells_undelivered(error))
      undelivered(call, error, {}, packet->to);
    // Any other failure (no buffers, a filter) is like a loss on the way: the call's clock mends
    // it.
  }
}

void Transport::undelivered(ClientCall& call, int reason, std::span<const std::byte> quoted,
                            const SocketAddress& destination) {
  undelivered_reason_ = reason;
  call.unreachable(quoted, destination, Clock::now());
}

void Transport::send(const OutgoingDatagram& packet) {
  if (send_once(packet) == 0)
    return;
  read_errors(nullptr);
  send_once(packet);
}

int Transport::send_once(const OutgoingDatagram& packet) {
  sockaddr_in to = to_sockaddr(packet.to);
  std::array<iovec, 2> parts = {
      iovec{const_cast<std::byte*>(packet.header.data()), packet.header.size()},
      iovec{const_cast<std::byte*>(packet.body.data()), packet.body.size()}};
  msghdr message{};
  message.msg_name = &to;
  message.msg_namelen = sizeof to;
  message.msg_iov = parts.data();
  message.msg_iovlen = packet.body.empty() ? 1 : 2;
  while (sendmsg(descriptor_, &message, MSG_NOSIGNAL) < 0)
    if (errno != EINTR)
      return errno;
  return 0;
}

// Blocks the next receive for at most this long. The kernel is told only when what it knows would
// sleep too long, or would wake so early that the clock would be looked at for nothing: calls in a
// row begin with the same wait and cost no system call here.
void Transport::wait_at_most(Duration longest) {
  const bool fits = receive_timeout_ > Duration::zero() && receive_timeout_ <= longest &&
                    longest - receive_timeout_ <= receive_timeout_ / 4;
  if (fits)
    return;
  const auto microseconds =
      std::max<std::int64_t>(std::chrono::ceil<std::chrono::microseconds>(longest).count(), 1000);
  timeval timeout{};
  timeout.tv_sec = microseconds / 1'000'000;
  timeout.tv_usec = microseconds % 1'000'000;
  setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  receive_timeout_ = std::chrono::microseconds(microseconds);
}

void Transport::receive(ClientCall& call, ReceiveBuffers& buffers, Duration longest) {
  wait_at_most(longest);
  std::array<sockaddr_in, ReceiveBuffers::kCount> sources;
  std::array<iovec, ReceiveBuffers::kCount> parts;
  std::array<mmsghdr, ReceiveBuffers::kCount> messages;
  // Only a reply in fragments comes in bursts.
  const std::size_t wanted = call.receiving() ? ReceiveBuffers::kCount : 1;
  for (std::size_t i = 0; i < wanted; ++i) {
    parts[i] = {buffers.at(i), ReceiveBuffers::kSize};
    messages[i] = {};
    messages[i].msg_hdr.msg_name = &sources[i];
    messages[i].msg_hdr.msg_namelen = sizeof sources[i];
    messages[i].msg_hdr.msg_iov = &parts[i];
    messages[i].msg_hdr.msg_iovlen = 1;
  }
  int received = 1;
  if (wanted == 1) {
    const ssize_t size = recvmsg(descriptor_, &messages[0].msg_hdr, 0);
    if (size < 0)
      received = -1;
    else
      messages[0].msg_len = static_cast<unsigned>(size);
  } else {
    received = recvmmsg(descriptor_, messages.data(), static_cast<unsigned>(wanted), MSG_WAITFORONE,
                        nullptr);
  }
  if (received < 0) {
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
      read_errors(&call);
    return;
  }
  const Time now = Clock::now();
  for (std::size_t i = 0; i < static_cast<std::size_t>(received); ++i)
    call.receive({buffers.at(i), messages[i].msg_len}, from_sockaddr(sources[i]), now);
}

void Transport::read_errors(ClientCall* call) {
  for (int i = 0; i < kMostErrors; ++i)
    if (!read_error(call))
      return;
}

// One report of the error queue: the datagram's destination, its beginning as the network quoted
// it, and the reason. False when there is none.
bool Transport::read_error(ClientCall* call) {
  std::array<std::byte, kHeaderSize> quoted;
  alignas(cmsghdr) std::array<std::byte, 256> control;
  sockaddr_in destination{};
  iovec part{quoted.data(), quoted.size()};
  msghdr message{};
  message.msg_name = &destination;
  message.msg_namelen = sizeof destination;
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  const ssize_t size = recvmsg(descriptor_, &message, MSG_ERRQUEUE | MSG_DONTWAIT);
  if (size < 0)
    return false;
  for (cmsghdr* each = CMSG_FIRSTHDR(&message); each != nullptr;
       each = CMSG_NXTHDR(&message, each)) {
    if (each->cmsg_level != IPPROTO_IP || each->cmsg_type != IP_RECVERR)
      continue;
    sock_extended_err reason;
    std::memcpy(&reason, CMSG_DATA(each), sizeof reason);
    const int error = static_cast<int>(reason.ee_errno);
    if (call != nullptr && tells_undelivered(error))
      undelivered(*call, error, std::span(quoted).first(static_cast<std::size_t>(size)),
                  from_sockaddr(destination));
  }
  return true;
}

}  // namespace rpc
