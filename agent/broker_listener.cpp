// SPDX-License-Identifier: Apache-2.0
#include "agent/broker_listener.h"

#include <linux/filter.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

namespace agent {

namespace {

using namespace std::chrono_literals;
using rpc::SocketAddress;

constexpr auto kPauseWithoutDescriptors = 100ms;
// Connections taken from the queue before other descriptors get their turn.
constexpr int kConnectionsPerTurn = 64;

bool drop_everything(int descriptor) {
  sock_filter drop = BPF_STMT(BPF_RET | BPF_K, 0);
  const sock_fprog program{1, &drop};
  return ::setsockopt(descriptor, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0;
}

// Null, or what went wrong; errno says why.
const char* prepare(int descriptor, const SocketAddress& local, BrokerListener::Manner manner) {
  const int yes = 1;
  ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  // Nothing that comes from a real network reaches a socket of all loopback addresses.
  if (local.host == 0 &&
      ::setsockopt(descriptor, SOL_SOCKET, SO_BINDTODEVICE, "lo", sizeof "lo") != 0)
    return "cannot keep to loopback";
  const sockaddr_in name = rpc::to_sockaddr(local);
  if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0)
    return "cannot bind";
  if (manner == BrokerListener::Manner::unanswering && !drop_everything(descriptor))
    return "cannot drop what comes in";
  return ::listen(descriptor, SOMAXCONN) == 0 ? nullptr : "cannot listen";
}

SocketAddress local_name(int descriptor) {
  sockaddr_in name{};
  socklen_t size = sizeof name;
  if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&name), &size) != 0)
    return {};
  return rpc::from_sockaddr(name);
}

void reset(int descriptor) {
  const linger abrupt{1, 0};
  ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
  ::close(descriptor);
}

}  // namespace

BrokerListener::Opened BrokerListener::open(rpc::server::EventLoop& loop, SocketAddress local,
                                            Manner manner) {
  const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const char* problem = descriptor < 0 ? "no socket" : prepare(descriptor, local, manner);
  if (problem == nullptr) {
    local.port = local_name(descriptor).port;
    auto listener = std::make_shared<BrokerListener>(loop, descriptor, local);
    if (loop.watch(descriptor, EPOLLIN, [raw = listener.get()](auto) { raw->accept_some(); }))
      return {std::move(listener), {}};
    problem = "cannot wait for connections";
  }
  Opened failed{nullptr, "TCP " + rpc::dotted(local.host) + " port " + std::to_string(local.port) +
                             ": " + problem + ": " + std::strerror(errno)};
  if (descriptor >= 0)
    ::close(descriptor);
  return failed;
}

BrokerListener::BrokerListener(rpc::server::EventLoop& loop, int descriptor, SocketAddress local)
    : loop_(loop), descriptor_(descriptor), local_(local) {}

BrokerListener::~BrokerListener() {
  loop_.cancel(resuming_);
  loop_.unwatch(descriptor_);
  ::close(descriptor_);
}

bool BrokerListener::attach(std::uint32_t address, Receiver receiver) {
  return receivers_.try_emplace(address, std::move(receiver)).second;
}

void BrokerListener::accept_some() {
  for (int i = 0; i < kConnectionsPerTurn; ++i) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    const int descriptor = ::accept4(descriptor_, reinterpret_cast<sockaddr*>(&peer), &size,
                                     SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (descriptor >= 0)
      hand_over(descriptor, rpc::from_sockaddr(peer));
    else if (errno == EMFILE || errno == ENFILE)
      return pause();
    else if (errno != ECONNABORTED && errno != EINTR)
      return;
  }
}

void BrokerListener::hand_over(int descriptor, const SocketAddress& client) {
  const auto found = receivers_.find(local_.host != 0 ? local_.host : local_name(descriptor).host);
  if (found == receivers_.end())
    return reset(descriptor);
  found->second(descriptor, client);
}

// Without descriptors the waiting client would wake the loop again at once, for ever.
void BrokerListener::pause() {
  loop_.change(descriptor_, 0);
  resuming_ = loop_.after(kPauseWithoutDescriptors, [this] { loop_.change(descriptor_, EPOLLIN); });
}

BrokerListener::Opened SharedListeners::attach(const SocketAddress& local,
                                               BrokerListener::Receiver receiver) {
  std::erase_if(listeners_, [](const auto& each) { return each.expired(); });
  for (const auto& each : listeners_) {
    auto listener = each.lock();
    const bool fits = local.port == 0 || listener->port() == local.port;
    if (fits && listener->attach(local.host, receiver))
      return {std::move(listener), {}};
  }
  auto opened = BrokerListener::open(loop_, {0, local.port}, BrokerListener::Manner::accepting);
  if (opened.listener != nullptr) {
    listeners_.push_back(opened.listener);
    opened.listener->attach(local.host, std::move(receiver));
  }
  return opened;
}

}  // namespace agent
