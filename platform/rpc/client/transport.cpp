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
#include <optional>

#include "platform/rpc/wire/wire_bytes.h"

namespace rpc {
namespace {

// Asked for, so that a window of fragments waits in the kernel while we copy; the system may grant
// less.
constexpr int kWantedReceiveBuffer = 1024 * 1024;
// The kernel charges a datagram's bookkeeping to the buffer: up to twice the bytes of a full
// fragment. Half of what remains is left for stray packets.
constexpr std::size_t kBufferPerWindow = 4;
constexpr std::size_t kLeastWindow = 16;
constexpr std::size_t kLargestWindow = 128;
// Datagrams taken at once; a reply in fragments, or many calls at once, bring them in bursts.
constexpr std::size_t kBatch = 32;
constexpr std::size_t kDatagram = 65'536;  // no UDP datagram is larger
// Error reports read in a row; a flood of them must not keep the call from its clock.
constexpr int kMostErrors = 64;
// Even a call without any limit looks at its clock now and then.
constexpr Duration kLongestWait = std::chrono::hours(1);

int open_socket() {
  return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

// What a datagram that came back undelivered is reported as.
bool tells_undelivered(int error) {
  return error == ECONNREFUSED || error == EHOSTUNREACH || error == ENETUNREACH ||
         error == EHOSTDOWN || error == ENETDOWN || error == ENONET;
}

// Room for a batch. Pages that no datagram ever filled take no memory.
std::byte* receive_buffer(std::size_t index) {
  thread_local const auto bytes = std::make_unique_for_overwrite<std::byte[]>(kBatch * kDatagram);
  return bytes.get() + index * kDatagram;
}

// Whose call a packet concerns: a call-back names the activity that it asks about.
std::optional<uuid_t> activity_of(std::span<const std::byte> datagram) {
  const auto packet = decode_packet(datagram);
  if (!packet)
    return std::nullopt;
  if (packet->header.type != PacketType::request)
    return packet->header.activity;
  if (packet->body.size() < sizeof(uuid_t))
    return std::nullopt;
  return load_uuid(packet->body.data(), packet->header.representation.little_endian);
}

}  // namespace

struct Transport::Running {
  ClientCall& call;
  const Activity& activity;
  sys::Fiber* fiber;  // null: the thread itself waits
  int undelivered_reason = 0;
};

Transport::Transport() : descriptor_(open_socket()) {
  if (!open())
    return;
  const int on = 1;
  setsockopt(descriptor_, IPPROTO_IP, IP_RECVERR, &on, sizeof on);
  allow_fragments_of_ip(descriptor_);
  setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &kWantedReceiveBuffer,
             sizeof kWantedReceiveBuffer);
  socklen_t size = sizeof receive_buffer_;
  getsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &receive_buffer_, &size);
  sys::FiberLoop* const loop = sys::FiberLoop::current();
  if (loop == nullptr)
    return;
  watch_ = std::make_unique<sys::FiberLoop::Watch>(*loop, descriptor_,
                                                   [this] { receive(kBatch, MSG_DONTWAIT); });
  if (!watch_->valid()) {
    close(descriptor_);
    descriptor_ = -1;
  }
}

Transport::~Transport() {
  watch_.reset();
  if (open())
    close(descriptor_);
}

std::uint16_t Transport::window_kilobytes(std::size_t calls) const {
  const std::size_t kilobytes = static_cast<std::size_t>(std::max(receive_buffer_, 0)) /
                                kBufferPerWindow / 1024 / std::max<std::size_t>(calls, 1);
  return static_cast<std::uint16_t>(std::clamp(kilobytes, kLeastWindow, kLargestWindow));
}

int Transport::run(ClientCall& call, const Activity& activity) {
  Running self{call, activity, sys::current_fiber()};
  running_.push_back(&self);
  flush(self);
  while (!call.done()) {
    const Time now = Clock::now();
    const auto wakeup = call.wakeup();
    if (wakeup && *wakeup <= now)
      call.on_time(now);
    else
      wait(self, wakeup ? *wakeup : now + kLongestWait);
    flush(self);
  }
  std::erase(running_, &self);
  return self.undelivered_reason;
}

void Transport::flush(Running& running) {
  const Time now = Clock::now();
  while (const auto packet = running.call.next_datagram(now)) {
    int error = send_once(*packet);
    if (error == 0)
      continue;
    // The socket reports what became of earlier datagrams first; this one has not been sent.
    read_errors();
    if (running.call.done())
      continue;
    error = send_once(*packet);
    if (tells_undelivered(error)) {
      running.undelivered_reason = error;
      running.call.unreachable({}, packet->to, Clock::now());
    }
    // Any other failure (no buffers, a filter) is like a loss on the way: the call's clock mends
    // it.
  }
}

void Transport::wait(const Running& running, Time until) {
  if (running.fiber != nullptr) {
    sys::park(until);
    return;
  }
  wait_at_most(until - Clock::now());
  receive(running.call.receiving() ? kBatch : 1, MSG_WAITFORONE);
}

void Transport::send(const OutgoingDatagram& packet) {
  if (send_once(packet) == 0)
    return;
  read_errors();
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

void Transport::receive(std::size_t most, int flags) {
  std::array<sockaddr_in, kBatch> sources;
  std::array<iovec, kBatch> parts;
  std::array<mmsghdr, kBatch> messages;
  for (std::size_t i = 0; i < most; ++i) {
    parts[i] = {receive_buffer(i), kDatagram};
    messages[i] = {};
    messages[i].msg_hdr.msg_name = &sources[i];
    messages[i].msg_hdr.msg_namelen = sizeof sources[i];
    messages[i].msg_hdr.msg_iov = &parts[i];
    messages[i].msg_hdr.msg_iovlen = 1;
  }
  int received = 1;
  if (most == 1) {
    const ssize_t size = recvmsg(descriptor_, &messages[0].msg_hdr, 0);
    if (size < 0)
      received = -1;
    else
      messages[0].msg_len = static_cast<unsigned>(size);
  } else {
    received = recvmmsg(descriptor_, messages.data(), static_cast<unsigned>(most), flags, nullptr);
  }
  if (received < 0) {
    read_errors();
    return;
  }
  const Time now = Clock::now();
  for (std::size_t i = 0; i < static_cast<std::size_t>(received); ++i)
    deliver({receive_buffer(i), messages[i].msg_len}, from_sockaddr(sources[i]), now);
}

void Transport::deliver(std::span<const std::byte> datagram, const SocketAddress& source,
                        Time now) {
  if (running_.empty())
    return;
  // A question about an activity that runs no more is answered too, by any call.
  Running* to = running_.front();
  if (running_.size() > 1) {
    const auto activity = activity_of(datagram);
    for (Running* each : running_)
      if (activity && each->activity.id() == *activity)
        to = each;
  }
  to->call.receive(datagram, source, now);
  if (to->fiber != nullptr)
    sys::wake(*to->fiber);
}

void Transport::undelivered(int reason, std::span<const std::byte> quoted,
                            const SocketAddress& destination) {
  const auto sent = decode_header(quoted);
  for (Running* each : running_) {
    // Routers may quote less than a header; then only the address tells whose packet it was.
    if (each->call.peer() != destination || (sent && sent->activity != each->activity.id()))
      continue;
    each->undelivered_reason = reason;
    each->call.unreachable(quoted, destination, Clock::now());
    if (each->fiber != nullptr)
      sys::wake(*each->fiber);
  }
}

void Transport::read_errors() {
  for (int i = 0; i < kMostErrors; ++i)
    if (!read_error())
      return;
}

// One report of the error queue: the datagram's destination, its beginning as the network quoted
// it, and the reason. False when there is none.
bool Transport::read_error() {
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
    if (tells_undelivered(error))
      undelivered(error, std::span(quoted).first(static_cast<std::size_t>(size)),
                  from_sockaddr(destination));
  }
  return true;
}

}  // namespace rpc
