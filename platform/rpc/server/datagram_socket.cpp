// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/server/datagram_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace rpc::server {
namespace {

// Datagrams taken from one socket before the others get their turn.
constexpr std::size_t kDatagramsPerTurn = 32;
constexpr std::size_t kLargestDatagram = 65'536;
// Room for a full window of fragments from several clients; the system may grant less.
constexpr int kSocketBuffer = 1024 * 1024;

using Control = std::array<std::byte, CMSG_SPACE(sizeof(in_pktinfo))>;

// The datagrams that waited in one socket. Pages that no datagram ever filled take no memory.
class Batch {
 public:
  struct Item {
    SocketAddress source;
    std::uint32_t destination;  // 0 where the socket does not tell
    std::span<const std::byte> bytes;
  };

  Batch() {
    for (std::size_t i = 0; i < kDatagramsPerTurn; ++i) {
      parts_[i] = {bytes_.get() + i * kLargestDatagram, kLargestDatagram};
      messages_[i] = {};
      messages_[i].msg_hdr.msg_name = &sources_[i];
      messages_[i].msg_hdr.msg_iov = &parts_[i];
      messages_[i].msg_hdr.msg_iovlen = 1;
      messages_[i].msg_hdr.msg_control = controls_[i].data();
    }
  }

  // How many there are; the batch before is gone.
  int receive(int descriptor) {
    // The lengths of those that the last batch filled are theirs.
    for (std::size_t i = 0; i < filled_; ++i) {
      messages_[i].msg_hdr.msg_namelen = sizeof sources_[i];
      messages_[i].msg_hdr.msg_controllen = controls_[i].size();
    }
    const int count =
        recvmmsg(descriptor, messages_.data(), kDatagramsPerTurn, MSG_DONTWAIT, nullptr);
    filled_ = static_cast<std::size_t>(std::max(count, 0));
    return count;
  }
  Item at(std::size_t index) {
    return {from_sockaddr(sources_[index]),
            destination(messages_[index].msg_hdr),
            {bytes_.get() + index * kLargestDatagram, messages_[index].msg_len}};
  }

 private:
  static std::uint32_t destination(msghdr& message) {
    for (cmsghdr* each = CMSG_FIRSTHDR(&message); each != nullptr;
         each = CMSG_NXTHDR(&message, each))
      if (each->cmsg_level == IPPROTO_IP && each->cmsg_type == IP_PKTINFO) {
        in_pktinfo info{};
        std::memcpy(&info, CMSG_DATA(each), sizeof info);
        return ntohl(info.ipi_addr.s_addr);
      }
    return 0;
  }

  std::unique_ptr<std::byte[]> bytes_ =
      std::make_unique_for_overwrite<std::byte[]>(kDatagramsPerTurn * kLargestDatagram);
  std::array<sockaddr_in, kDatagramsPerTurn> sources_;
  std::array<iovec, kDatagramsPerTurn> parts_;
  alignas(cmsghdr) std::array<Control, kDatagramsPerTurn> controls_;
  std::array<mmsghdr, kDatagramsPerTurn> messages_;
  std::size_t filled_ = kDatagramsPerTurn;
};

// Makes a datagram leave from this address.
void put_source(msghdr& message, Control& control, std::uint32_t address) {
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = IPPROTO_IP;
  header->cmsg_type = IP_PKTINFO;
  header->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
  in_pktinfo info{};
  info.ipi_spec_dst.s_addr = htonl(address);
  std::memcpy(CMSG_DATA(header), &info, sizeof info);
}

std::uint16_t local_port(int descriptor) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    return 0;
  return ntohs(address.sin_port);
}

// Nothing that comes from a real network reaches a socket of all loopback addresses.
bool prepare(int descriptor, const SocketAddress& local) {
  setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &kSocketBuffer, sizeof kSocketBuffer);
  setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &kSocketBuffer, sizeof kSocketBuffer);
  allow_fragments_of_ip(descriptor);
  if (local.host == DatagramSocket::kEveryLoopbackAddress) {
    const int yes = 1;
    if (setsockopt(descriptor, SOL_SOCKET, SO_BINDTODEVICE, "lo", sizeof "lo") != 0 ||
        setsockopt(descriptor, IPPROTO_IP, IP_PKTINFO, &yes, sizeof yes) != 0)
      return false;
  }
  const sockaddr_in address = to_sockaddr(local);
  return bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

DatagramSocket::Opened DatagramSocket::open(EventLoop& loop, SocketAddress local) {
  const auto failed = [&local] {
    return Opened{nullptr, to_text(local) + ": " + std::strerror(errno)};
  };
  const int descriptor = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (descriptor < 0)
    return failed();
  if (!prepare(descriptor, local)) {
    Opened result = failed();
    ::close(descriptor);
    return result;
  }
  local.port = local_port(descriptor);
  auto socket = std::make_shared<DatagramSocket>(loop, descriptor, local);
  if (!loop.watch(descriptor, EPOLLIN, [raw = socket.get()](auto) { raw->on_readable(); }))
    return failed();
  return {std::move(socket), {}};
}

DatagramSocket::DatagramSocket(EventLoop& loop, int descriptor, SocketAddress local)
    : loop_(loop), descriptor_(descriptor), local_(local) {}

DatagramSocket::~DatagramSocket() {
  loop_.unwatch(descriptor_);
  ::close(descriptor_);
}

bool DatagramSocket::attach(std::uint32_t address, Receiver receiver) {
  return receivers_.try_emplace(address, std::make_shared<const Receiver>(std::move(receiver)))
      .second;
}

void DatagramSocket::detach(std::uint32_t address) {
  receivers_.erase(address);
}

void DatagramSocket::on_readable() {
  // One system call for all that waits, and none to learn that nothing more does.
  static thread_local Batch batch;
  // A receiver may let go of the socket, and of any receiver.
  const std::shared_ptr<DatagramSocket> keep = shared_from_this();
  const auto receiver_at = [this](std::uint32_t address) {
    const auto found = receivers_.find(address);
    return found == receivers_.end() ? nullptr : found->second;
  };
  std::uint32_t address = local_.host;
  const auto done = [&] {
    if (const auto receiver = receiver_at(address))
      receiver->done();
  };
  const int count = batch.receive(descriptor_);
  for (int i = 0; i < count; ++i) {
    const Batch::Item item = batch.at(static_cast<std::size_t>(i));
    if (shared() && item.destination != address) {
      done();
      address = item.destination;
    }
    if (const auto receiver = receiver_at(address))
      receiver->datagram(item.source, item.bytes);
  }
  done();
}

void DatagramSocket::send(std::uint32_t address, std::span<const OutgoingDatagram> datagrams) {
  std::array<sockaddr_in, kDatagramsPerTurn> destinations;
  std::array<std::array<iovec, 2>, kDatagramsPerTurn> parts;
  alignas(cmsghdr) std::array<Control, kDatagramsPerTurn> controls;
  std::array<mmsghdr, kDatagramsPerTurn> messages;
  while (!datagrams.empty()) {
    const std::size_t size = std::min(datagrams.size(), kDatagramsPerTurn);
    for (std::size_t i = 0; i < size; ++i) {
      const OutgoingDatagram& each = datagrams[i];
      destinations[i] = to_sockaddr(each.to);
      parts[i] = {iovec{const_cast<std::byte*>(each.header.data()), each.header.size()},
                  iovec{const_cast<std::byte*>(each.body.data()), each.body.size()}};
      messages[i] = {};
      messages[i].msg_hdr.msg_name = &destinations[i];
      messages[i].msg_hdr.msg_namelen = sizeof destinations[i];
      messages[i].msg_hdr.msg_iov = parts[i].data();
      messages[i].msg_hdr.msg_iovlen = each.body.empty() ? 1 : 2;
      if (shared())
        put_source(messages[i].msg_hdr, controls[i], address);
    }
    for (std::size_t sent = 0; sent < size;) {
      const int count = sendmmsg(descriptor_, messages.data() + sent,
                                 static_cast<unsigned>(size - sent), MSG_NOSIGNAL);
      sent += count > 0 ? static_cast<std::size_t>(count) : 1;
    }
    datagrams = datagrams.subspan(size);
  }
}

void DatagramSocket::send(std::uint32_t address, const SocketAddress& to,
                          std::span<const std::byte> bytes) {
  sockaddr_in destination = to_sockaddr(to);
  iovec part{const_cast<std::byte*>(bytes.data()), bytes.size()};
  alignas(cmsghdr) Control control;
  msghdr message{};
  message.msg_name = &destination;
  message.msg_namelen = sizeof destination;
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  if (shared())
    put_source(message, control, address);
  [[maybe_unused]] const ssize_t sent = sendmsg(descriptor_, &message, MSG_NOSIGNAL);
}

}  // namespace rpc::server
