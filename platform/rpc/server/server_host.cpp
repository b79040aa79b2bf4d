// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/server/server_host.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include "platform/rpc/names/random_source.h"
#include "platform/rpc/server/management_interface.h"

namespace rpc::server {
namespace {

using Clock = EventLoop::Clock;

// Datagrams taken from one socket before the others get their turn.
constexpr std::size_t kDatagramsPerTurn = 32;
constexpr std::size_t kLargestDatagram = 65'536;
// Room for a full window of fragments from several clients; the system may grant less.
constexpr int kSocketBuffer = 1024 * 1024;

class Socket {
 public:
  Socket() = default;
  explicit Socket(int descriptor) : descriptor_(descriptor) {}
  Socket(Socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Socket& operator=(Socket&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~Socket() {
    if (descriptor_ >= 0)
      ::close(descriptor_);
  }
  int get() const { return descriptor_; }
  explicit operator bool() const { return descriptor_ >= 0; }

 private:
  int descriptor_ = -1;
};

// A bound socket; without one errno says why.
Socket bound_socket(const SocketAddress& local) {
  Socket socket(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!socket)
    return socket;
  setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &kSocketBuffer, sizeof kSocketBuffer);
  setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &kSocketBuffer, sizeof kSocketBuffer);
  const sockaddr_in address = to_sockaddr(local);
  if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return Socket();
  return socket;
}

// The datagrams that waited in one socket. Pages that no datagram ever filled take no memory.
class Batch {
 public:
  // How many there are; the batch before is gone.
  int receive(int descriptor) {
    for (std::size_t i = 0; i < kDatagramsPerTurn; ++i) {
      parts_[i] = {bytes_.get() + i * kLargestDatagram, kLargestDatagram};
      messages_[i] = {};
      messages_[i].msg_hdr.msg_name = &sources_[i];
      messages_[i].msg_hdr.msg_namelen = sizeof sources_[i];
      messages_[i].msg_hdr.msg_iov = &parts_[i];
      messages_[i].msg_hdr.msg_iovlen = 1;
    }
    return recvmmsg(descriptor, messages_.data(), kDatagramsPerTurn, MSG_DONTWAIT, nullptr);
  }
  std::pair<SocketAddress, std::span<const std::byte>> at(std::size_t index) const {
    return {from_sockaddr(sources_[index]),
            {bytes_.get() + index * kLargestDatagram, messages_[index].msg_len}};
  }

 private:
  std::unique_ptr<std::byte[]> bytes_ =
      std::make_unique_for_overwrite<std::byte[]>(kDatagramsPerTurn * kLargestDatagram);
  std::array<sockaddr_in, kDatagramsPerTurn> sources_;
  std::array<iovec, kDatagramsPerTurn> parts_;
  std::array<mmsghdr, kDatagramsPerTurn> messages_;
};

// At most kDatagramsPerTurn. One that the system does not take is lost like one that the network
// loses.
void send_batch(int descriptor, std::span<OutgoingDatagram> batch) {
  std::array<sockaddr_in, kDatagramsPerTurn> destinations;
  std::array<std::array<iovec, 2>, kDatagramsPerTurn> parts;
  std::array<mmsghdr, kDatagramsPerTurn> messages;
  for (std::size_t i = 0; i < batch.size(); ++i) {
    const std::span<const std::byte> body = batch[i].body;
    destinations[i] = to_sockaddr(batch[i].to);
    parts[i] = {iovec{batch[i].header.data(), batch[i].header.size()},
                iovec{const_cast<std::byte*>(body.data()), body.size()}};
    messages[i] = {};
    messages[i].msg_hdr.msg_name = &destinations[i];
    messages[i].msg_hdr.msg_namelen = sizeof destinations[i];
    messages[i].msg_hdr.msg_iov = parts[i].data();
    messages[i].msg_hdr.msg_iovlen = body.empty() ? 1 : 2;
  }
  for (std::size_t sent = 0; sent < batch.size();) {
    const int count = sendmmsg(descriptor, messages.data() + sent,
                               static_cast<unsigned>(batch.size() - sent), MSG_NOSIGNAL);
    sent += count > 0 ? static_cast<std::size_t>(count) : 1;
  }
}

std::uint16_t local_port(const Socket& socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0)
    return 0;
  return ntohs(address.sin_port);
}

}  // namespace

class ServerHost::UdpEndpoint final : public Endpoint {
 public:
  UdpEndpoint(EventLoop& loop, EndpointOptions options)
      : loop_(loop),
        options_(std::move(options)),
        management_(options_.interfaces),
        random_boot_time_(options_.core.boot_time == 0),
        random_activity_(options_.core.call_back_activity == uuid_t{}) {
    management_.set_listening(options_.management != Management::not_listening);
    if (options_.receive_faults)
      receive_faults_.emplace(*options_.receive_faults);
    if (options_.send_faults)
      send_faults_.emplace(*options_.send_faults);
  }
  ~UdpEndpoint() override { kill(); }

  // Empty when the endpoint is open, else what failed.
  std::string start();

  std::uint32_t address() const override { return options_.address; }
  std::uint16_t port() const override { return options_.port; }
  bool alive() const override { return static_cast<bool>(socket_); }
  ServerCore::Statistics statistics() const override {
    return core_ ? core_->statistics() : ServerCore::Statistics{};
  }
  void kill() override;
  bool restart() override {
    kill();
    return start().empty();
  }

 private:
  bool watch(const Socket& socket, const Socket& place);
  void on_readable(const Socket& socket);
  void arrived(std::span<const std::byte> datagram, const SocketAddress& source);
  void settle();
  void start_call(ReadyCall call);
  void finish_call(const ReadyCall& call, const Verdict& verdict);
  static Outcome run(const ReadyCall& call, const Verdict& verdict);
  bool flush();
  void send_badly(const OutgoingDatagram& datagram);
  void transmit(std::span<OutgoingDatagram> output);
  const Socket& socket_for(bool call_back) const {
    return call_back && call_back_socket_ ? call_back_socket_ : socket_;
  }
  void later(Time time, std::function<void()> action);
  void set_wake_up();

  EventLoop& loop_;
  EndpointOptions options_;
  ManagementInterface management_;
  bool random_boot_time_;
  bool random_activity_;
  std::optional<FaultInjector> receive_faults_;
  std::optional<FaultInjector> send_faults_;
  Socket socket_;
  Socket call_back_socket_;
  std::unique_ptr<ServerCore> core_;
  // Replaced with each life of the endpoint, so that what an earlier one planned does not happen in
  // a later one.
  std::shared_ptr<const int> life_;
  bool settling_ = false;
  EventLoop::TimerNumber wake_timer_ = 0;
  Time wake_time_{};
};

std::string ServerHost::UdpEndpoint::start() {
  const SocketAddress local{options_.address, options_.port};
  const std::string name = to_text(local);
  Socket socket = bound_socket(local);
  Socket second =
      options_.call_back_from_other_port ? bound_socket({options_.address, 0}) : Socket();
  if (!socket || (options_.call_back_from_other_port && !second))
    return name + ": " + std::strerror(errno);
  if (!watch(socket, socket_) || (second && !watch(second, call_back_socket_))) {
    std::string error = name + ": " + std::strerror(errno);
    loop_.unwatch(socket.get());
    return error;
  }
  options_.port = local_port(socket);
  socket_ = std::move(socket);
  call_back_socket_ = std::move(second);

  if (random_boot_time_)
    options_.core.boot_time =
        std::max(options_.core.boot_time + 1, static_cast<std::uint32_t>(std::time(nullptr)));
  else if (life_)
    ++options_.core.boot_time;
  if (random_activity_)
    options_.core.call_back_activity = SystemRandom().uuid();
  std::vector<Interface*> interfaces = options_.interfaces;
  if (options_.management != Management::absent)
    interfaces.push_back(&management_);
  core_ = std::make_unique<ServerCore>(options_.core, std::move(interfaces));
  life_ = std::make_shared<const int>();
  return {};
}

// `place` is where the socket will stand when it is readable.
bool ServerHost::UdpEndpoint::watch(const Socket& socket, const Socket& place) {
  return loop_.watch(socket.get(), EPOLLIN, [this, &place](auto) { on_readable(place); });
}

void ServerHost::UdpEndpoint::kill() {
  for (Socket* socket : {&socket_, &call_back_socket_}) {
    if (*socket)
      loop_.unwatch(socket->get());
    *socket = Socket();
  }
  loop_.cancel(wake_timer_);
  wake_timer_ = 0;
  life_ = std::make_shared<const int>();
}

void ServerHost::UdpEndpoint::on_readable(const Socket& socket) {
  // One system call for all that waits, and none to learn that nothing more does.
  static thread_local Batch batch;
  const std::weak_ptr<const int> life = life_;
  const int count = batch.receive(socket.get());
  for (int i = 0; i < count && !life.expired(); ++i) {
    const auto [source, datagram] = batch.at(static_cast<std::size_t>(i));
    if (options_.on_datagram)
      options_.on_datagram(Direction::received, source, datagram);
    if (!receive_faults_) {
      arrived(datagram, source);
      continue;
    }
    for (FaultInjector::Delivery& delivery : receive_faults_->pass(datagram, Clock::now()))
      later(delivery.time,
            [this, source = source, bytes = std::move(delivery.bytes)] { arrived(bytes, source); });
  }
}

void ServerHost::UdpEndpoint::arrived(std::span<const std::byte> datagram,
                                      const SocketAddress& source) {
  if (options_.mute)
    return;
  core_->receive(datagram, source, Clock::now());
  settle();
}

// Carries out what the core wants until it wants nothing more. Calls that end while others are
// started here are settled by the outermost turn.
void ServerHost::UdpEndpoint::settle() {
  if (std::exchange(settling_, true))
    return;
  const std::weak_ptr<const int> life = life_;
  for (;;) {
    std::vector<ReadyCall> calls = core_->take_calls();
    if (!flush() && calls.empty())
      break;
    for (ReadyCall& call : calls) {
      if (!life.expired())
        start_call(std::move(call));
    }
    if (life.expired())
      break;
  }
  settling_ = false;
  if (life.expired())
    return;
  for (const uuid_t& activity : core_->take_gone_clients()) {
    if (options_.on_client_gone)
      options_.on_client_gone(activity);
  }
  set_wake_up();
}

void ServerHost::UdpEndpoint::start_call(ReadyCall call) {
  Verdict verdict;
  if (call.interface == &management_) {
    if (options_.management == Management::mute)
      verdict = Verdict::silent();
  } else if (options_.before_dispatch) {
    verdict = options_.before_dispatch(call.info, *call.operation);
  }

  switch (verdict.action) {
    case Verdict::Action::die:
      kill();
      return;
    case Verdict::Action::silent:
      core_->abandon(call.number);
      return;
    case Verdict::Action::run:
    case Verdict::Action::fault:
    case Verdict::Action::reject:
      break;
  }
  auto end = [this, verdict, shared = std::make_shared<ReadyCall>(std::move(call))] {
    finish_call(*shared, verdict);
  };
  if (verdict.delay.count() > 0)
    later(Clock::now() + verdict.delay, std::move(end));
  else
    end();
}

void ServerHost::UdpEndpoint::finish_call(const ReadyCall& call, const Verdict& verdict) {
  // The operation may kill or restart the very endpoint that it runs on.
  const std::weak_ptr<const int> life = life_;
  Outcome outcome = run(call, verdict);
  if (options_.after_dispatch && call.interface != &management_)
    options_.after_dispatch(call.info, *call.operation, outcome);
  if (life.expired())
    return;
  core_->complete(call.number, std::move(outcome), Clock::now());
  settle();
}

Outcome ServerHost::UdpEndpoint::run(const ReadyCall& call, const Verdict& verdict) {
  if (verdict.action == Verdict::Action::fault)
    return Outcome::fault(verdict.status);
  if (verdict.action == Verdict::Action::reject)
    return Outcome::reject(verdict.status);
  return call.interface->dispatch(call.info, call.operation->opnum, call.request,
                                  call.representation, call.reply_little_endian);
}

// Sends what the core has to send; false when that is nothing.
bool ServerHost::UdpEndpoint::flush() {
  std::vector<OutgoingDatagram> output;
  while (const auto datagram = core_->next_datagram())
    output.push_back(*datagram);
  if (!send_faults_)
    transmit(output);
  else
    std::for_each(output.begin(), output.end(), [this](const auto& each) { send_badly(each); });
  return !output.empty();
}

// Through the bad network; what is left of the datagram may not even be a header.
void ServerHost::UdpEndpoint::send_badly(const OutgoingDatagram& datagram) {
  for (FaultInjector::Delivery& delivery : send_faults_->pass(datagram.bytes(), Clock::now())) {
    later(delivery.time, [this, to = datagram.to, call_back = datagram.call_back,
                          bytes = std::move(delivery.bytes)] {
      if (!socket_)
        return;
      const sockaddr_in address = to_sockaddr(to);
      sendto(socket_for(call_back).get(), bytes.data(), bytes.size(), MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&address), sizeof address);
      if (options_.on_datagram)
        options_.on_datagram(Direction::sent, to, bytes);
    });
  }
}

void ServerHost::UdpEndpoint::transmit(std::span<OutgoingDatagram> output) {
  while (!output.empty() && socket_) {
    const bool call_back = output.front().call_back;
    const auto same = std::find_if(output.begin(), output.end(), [&](const auto& datagram) {
      return datagram.call_back != call_back;
    });
    const auto batch =
        output.first(std::min(static_cast<std::size_t>(same - output.begin()), kDatagramsPerTurn));
    send_batch(socket_for(call_back).get(), batch);
    if (options_.on_datagram) {
      for (const OutgoingDatagram& datagram : batch)
        options_.on_datagram(Direction::sent, datagram.to, datagram.bytes());
    }
    output = output.subspan(batch.size());
  }
}

// At once when the time has come; never in another life of the endpoint.
void ServerHost::UdpEndpoint::later(Time time, std::function<void()> action) {
  if (time <= Clock::now()) {
    action();
    return;
  }
  loop_.at(time, [life = std::weak_ptr<const int>(life_), action = std::move(action)] {
    if (!life.expired())
      action();
  });
}

// A timer that fires too early does no harm, so one is only replaced by an earlier one.
void ServerHost::UdpEndpoint::set_wake_up() {
  const std::optional<Time> due = core_->wakeup();
  if (!due || (wake_timer_ != 0 && wake_time_ <= *due))
    return;
  loop_.cancel(wake_timer_);
  wake_time_ = *due;
  wake_timer_ = loop_.at(*due, [this] {
    wake_timer_ = 0;
    core_->on_time(Clock::now());
    settle();
  });
}

ServerHost::ServerHost(EventLoop& loop) : loop_(loop) {}

ServerHost::~ServerHost() = default;

ServerHost::Opened ServerHost::open(EndpointOptions options) {
  auto endpoint = std::make_unique<UdpEndpoint>(loop_, std::move(options));
  std::string error = endpoint->start();
  if (!error.empty())
    return {nullptr, std::move(error)};
  endpoints_.push_back(std::move(endpoint));
  return {endpoints_.back().get(), {}};
}

void ServerHost::close(Endpoint* endpoint) {
  std::erase_if(endpoints_, [endpoint](const auto& each) { return each.get() == endpoint; });
}

}  // namespace rpc::server
