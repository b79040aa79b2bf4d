// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/server/server_host.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "platform/numbers/status.h"
#include "platform/rpc/names/random_source.h"
#include "platform/rpc/server/datagram_socket.h"
#include "platform/rpc/server/management_interface.h"

namespace rpc::server {
namespace {

using Clock = EventLoop::Clock;
using SocketPointer = std::shared_ptr<DatagramSocket>;

}  // namespace

// The sockets of all loopback addresses, each there as long as an endpoint uses it.
class ServerHost::SharedSockets {
 public:
  explicit SharedSockets(EventLoop& loop) : loop_(loop) {}

  // Attaches the receiver to the port's socket; port 0 is that of the first socket whose port was
  // free to choose and that has no receiver at the address yet.
  DatagramSocket::Opened attach(SocketAddress local, const DatagramSocket::Receiver& receiver) {
    std::erase_if(sockets_, [](const Shared& each) { return each.socket.expired(); });
    for (const Shared& each : sockets_) {
      const SocketPointer socket = each.socket.lock();
      const bool fits = local.port == 0 ? each.any_port : socket->port() == local.port;
      if (fits && socket->attach(local.host, receiver))
        return {socket, {}};
    }
    auto opened = DatagramSocket::open(loop_, {DatagramSocket::kEveryLoopbackAddress, local.port});
    if (opened.socket != nullptr) {
      sockets_.push_back({opened.socket, local.port == 0});
      opened.socket->attach(local.host, receiver);
    }
    return opened;
  }

 private:
  struct Shared {
    std::weak_ptr<DatagramSocket> socket;
    bool any_port;
  };
  EventLoop& loop_;
  std::vector<Shared> sockets_;
};

class ServerHost::UdpEndpoint final : public Endpoint {
 public:
  UdpEndpoint(EventLoop& loop, SharedSockets& shared, EndpointOptions options)
      : loop_(loop),
        shared_(shared),
        options_(std::move(options)),
        management_(options_.interfaces),
        random_boot_time_(options_.core.boot_time == 0),
        random_activity_(options_.core.call_back_activity == uuid_t{}) {
    set_management(options_.management);
    set_faults(options_.receive_faults, options_.send_faults);
  }
  ~UdpEndpoint() override { kill(); }

  // Empty when the endpoint is open, else what failed.
  std::string start();

  std::uint32_t address() const override { return options_.address; }
  std::uint16_t port() const override { return options_.port; }
  bool alive() const override { return socket_ != nullptr; }
  ServerCore::Statistics statistics() const override {
    return core_ ? core_->statistics() : ServerCore::Statistics{};
  }
  void set_mute(bool mute) override { options_.mute = mute; }
  void set_management(Management management) override {
    options_.management = management;
    management_.set_listening(management != Management::not_listening);
  }
  void set_faults(const std::optional<FaultPlan>& receive,
                  const std::optional<FaultPlan>& send) override {
    receive_faults_.reset();
    send_faults_.reset();
    if (receive)
      receive_faults_.emplace(*receive);
    if (send)
      send_faults_.emplace(*send);
  }
  void kill() override;
  bool restart() override;

 private:
  std::string open_sockets();
  void begin_life();
  void end_life();
  void received(const SocketAddress& source, std::span<const std::byte> datagram);
  void arrived(std::span<const std::byte> datagram, const SocketAddress& source);
  void settle();
  void start_call(ReadyCall call);
  void finish_call(const ReadyCall& call, const Verdict& verdict);
  void report(Direction direction, const SocketAddress& peer, std::span<const std::byte> bytes,
              const std::vector<FaultInjector::Delivery>* deliveries = nullptr) const;
  bool flush();
  void send_badly(const OutgoingDatagram& datagram);
  void transmit(std::span<OutgoingDatagram> output);
  const SocketPointer& socket_for(bool call_back) const {
    return call_back && call_back_socket_ ? call_back_socket_ : socket_;
  }
  void later(Time time, std::function<void()> action);
  void set_wake_up();

  EventLoop& loop_;
  SharedSockets& shared_;
  EndpointOptions options_;
  ManagementInterface management_;
  bool random_boot_time_;
  bool random_activity_;
  std::optional<FaultInjector> receive_faults_;
  std::optional<FaultInjector> send_faults_;
  SocketPointer socket_;
  SocketPointer call_back_socket_;
  std::unique_ptr<ServerCore> core_;
  // Replaced with each life of the endpoint, so that what an earlier one planned does not happen in
  // a later one.
  std::shared_ptr<const int> life_;
  bool settling_ = false;
  bool damaged_ = false;  // the datagram that is being looked at was changed on its way
  std::vector<OutgoingDatagram> output_;  // its memory serves every flush
  EventLoop::TimerNumber wake_timer_ = 0;
  Time wake_time_{};
};

std::string ServerHost::UdpEndpoint::start() {
  std::string error = open_sockets();
  if (error.empty())
    begin_life();
  return error;
}

std::string ServerHost::UdpEndpoint::open_sockets() {
  const SocketAddress local{options_.address, options_.port};
  const DatagramSocket::Receiver receiver = {
      [this](const SocketAddress& source, std::span<const std::byte> datagram) {
        received(source, datagram);
      },
      [this] { settle(); }};
  DatagramSocket::Opened main;
  if (options_.shared_socket) {
    main = shared_.attach(local, receiver);
  } else {
    main = DatagramSocket::open(loop_, local);
    if (main.socket != nullptr)
      main.socket->attach(local.host, receiver);
  }
  if (main.socket == nullptr)
    return main.error;
  socket_ = std::move(main.socket);
  if (options_.call_back_from_other_port) {
    DatagramSocket::Opened second = DatagramSocket::open(loop_, {local.host, 0});
    if (second.socket == nullptr)
      return second.error;
    second.socket->attach(local.host, receiver);
    call_back_socket_ = std::move(second.socket);
  }
  options_.port = socket_->port();
  return {};
}

void ServerHost::UdpEndpoint::begin_life() {
  if (random_boot_time_)
    options_.core.boot_time =
        std::max(options_.core.boot_time + 1, static_cast<std::uint32_t>(std::time(nullptr)));
  else if (life_)
    ++options_.core.boot_time;
  if (random_activity_)
    options_.core.call_back_activity = SystemRandom().uuid();
  std::vector<Interface*> interfaces = options_.interfaces;
  interfaces.push_back(&management_);
  CoreOptions core = options_.core;
  if (core.on_event)
    core.on_event = [this](CoreEvent event) {
      event.damaged = damaged_;
      options_.core.on_event(event);
    };
  core_ = std::make_unique<ServerCore>(core, std::move(interfaces));
  life_ = std::make_shared<const int>();
}

// What the life has planned does not happen any more.
void ServerHost::UdpEndpoint::end_life() {
  loop_.cancel(wake_timer_);
  wake_timer_ = 0;
  life_ = std::make_shared<const int>();
  if (options_.on_life_over)
    options_.on_life_over();
}

void ServerHost::UdpEndpoint::kill() {
  if (socket_ == nullptr)
    return;
  for (SocketPointer* socket : {&socket_, &call_back_socket_}) {
    if (*socket != nullptr)
      (*socket)->detach(options_.address);
    socket->reset();
  }
  end_life();
}

bool ServerHost::UdpEndpoint::restart() {
  if (socket_ == nullptr)
    return start().empty();
  end_life();
  begin_life();
  return true;
}

void ServerHost::UdpEndpoint::received(const SocketAddress& source,
                                       std::span<const std::byte> datagram) {
  if (!receive_faults_) {
    report(Direction::received, source, datagram);
    arrived(datagram, source);
    return;
  }
  auto deliveries = receive_faults_->pass(datagram, Clock::now());
  report(Direction::received, source, datagram, &deliveries);
  for (FaultInjector::Delivery& delivery : deliveries)
    later(delivery.time, [this, source, damaged = delivery.cut_to || !delivery.flipped.empty(),
                          bytes = std::move(delivery.bytes)] {
      damaged_ = damaged;
      arrived(bytes, source);
      damaged_ = false;
      settle();
    });
}

void ServerHost::UdpEndpoint::report(Direction direction, const SocketAddress& peer,
                                     std::span<const std::byte> bytes,
                                     const std::vector<FaultInjector::Delivery>* deliveries) const {
  if (options_.on_datagram)
    options_.on_datagram({direction, peer, bytes, deliveries, Clock::now(),
                          options_.mute && direction == Direction::received});
}

void ServerHost::UdpEndpoint::arrived(std::span<const std::byte> datagram,
                                      const SocketAddress& source) {
  if (options_.mute || socket_ == nullptr)
    return;
  core_->receive(datagram, source, Clock::now());
}

// Carries out what the core wants until it wants nothing more. Calls that end while others are
// started here are settled by the outermost turn.
void ServerHost::UdpEndpoint::settle() {
  if (socket_ == nullptr || std::exchange(settling_, true))
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
  for (const uuid_t& client : core_->take_gone_clients()) {
    if (options_.on_client_gone)
      options_.on_client_gone(client);
  }
  set_wake_up();
}

void ServerHost::UdpEndpoint::start_call(ReadyCall call) {
  Verdict verdict;
  if (call.interface == &management_) {
    if (options_.management == Management::mute)
      verdict.outcome = Outcome::none();
    else if (options_.management == Management::absent)
      verdict.outcome = Outcome::reject(nca::kUnknownInterface);
  } else if (options_.before_dispatch) {
    verdict = options_.before_dispatch(call.info, *call.operation);
  }

  const CallNumber number = call.number;
  switch (verdict.action) {
    case Verdict::Action::die:
      kill();
      return;
    case Verdict::Action::restart:
      restart();
      return;
    case Verdict::Action::silent:
      core_->abandon(number);
      return;
    case Verdict::Action::working:
      return;
    case Verdict::Action::no_call:
      core_->deny(number);
      if (verdict.delay.count() == 0)
        return;
      break;
    case Verdict::Action::run:
      break;
  }
  if (verdict.delay.count() == 0) {
    finish_call(call, verdict);
    return;
  }
  later(Clock::now() + verdict.delay,
        [this, verdict, shared = std::make_shared<ReadyCall>(std::move(call))] {
          core_->admit(shared->number);
          finish_call(*shared, verdict);
        });
}

void ServerHost::UdpEndpoint::finish_call(const ReadyCall& call, const Verdict& verdict) {
  if (!core_->running(call.number))
    return;
  // The operation may kill or restart the very endpoint that it runs on.
  const std::weak_ptr<const int> life = life_;
  CallRecord record;
  CallInfo info = call.info;
  info.record = options_.record_calls ? &record : nullptr;
  info.forced_status = verdict.status;
  bool leaves_context = false;
  info.leaves_context = &leaves_context;
  Outcome outcome = verdict.outcome
                        ? *verdict.outcome
                        : call.interface->dispatch(info, call.operation->opnum, call.request,
                                                   call.representation, call.reply_little_endian);
  outcome.leaves_context = leaves_context;
  if (verdict.spoil)
    verdict.spoil(outcome);
  if (options_.after_dispatch)
    options_.after_dispatch(info, *call.operation, outcome);
  if (life.expired())
    return;
  if (outcome.kind == Outcome::Kind::none)
    core_->abandon(call.number);
  else
    core_->complete(call.number, std::move(outcome), Clock::now());
  settle();
}

// Sends what the core has to send; false when that is nothing.
bool ServerHost::UdpEndpoint::flush() {
  output_.clear();
  const Time now = Clock::now();
  while (const auto datagram = core_->next_datagram(now))
    output_.push_back(*datagram);
  if (!send_faults_)
    transmit(output_);
  else
    std::for_each(output_.begin(), output_.end(), [this](const auto& each) { send_badly(each); });
  return !output_.empty();
}

// Through the bad network; what is left of the datagram may not even be a header.
void ServerHost::UdpEndpoint::send_badly(const OutgoingDatagram& datagram) {
  const std::vector<std::byte> whole = datagram.bytes();
  auto deliveries = send_faults_->pass(whole, Clock::now());
  report(Direction::sent, datagram.to, whole, &deliveries);
  for (FaultInjector::Delivery& delivery : deliveries) {
    later(delivery.time, [this, to = datagram.to, call_back = datagram.call_back,
                          bytes = std::move(delivery.bytes)] {
      if (socket_)
        socket_for(call_back)->send(options_.address, to, bytes);
    });
  }
}

void ServerHost::UdpEndpoint::transmit(std::span<OutgoingDatagram> output) {
  while (!output.empty() && socket_) {
    const bool call_back = output.front().call_back;
    const auto same = std::find_if(output.begin(), output.end(), [&](const auto& datagram) {
      return datagram.call_back != call_back;
    });
    const auto batch = output.first(static_cast<std::size_t>(same - output.begin()));
    socket_for(call_back)->send(options_.address, batch);
    if (options_.on_datagram) {
      for (const OutgoingDatagram& datagram : batch)
        report(Direction::sent, datagram.to, datagram.bytes());
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

ServerHost::ServerHost(EventLoop& loop)
    : loop_(loop), shared_(std::make_unique<SharedSockets>(loop)) {}

ServerHost::~ServerHost() = default;

ServerHost::Opened ServerHost::open(EndpointOptions options) {
  auto endpoint = std::make_unique<UdpEndpoint>(loop_, *shared_, std::move(options));
  std::string error = endpoint->start();
  if (!error.empty())
    return {nullptr, std::move(error)};
  Endpoint* const opened = endpoint.get();
  endpoints_.emplace(opened, std::move(endpoint));
  return {opened, {}};
}

void ServerHost::close(Endpoint* endpoint) {
  endpoints_.erase(endpoint);
}

}  // namespace rpc::server
