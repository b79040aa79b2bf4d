// SPDX-License-Identifier: Apache-2.0
#include "agent/broker_server.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <tuple>
#include <utility>
#include <vector>

#include "agent/scenario_names.h"
#include "platform/rpc/names/socket_address.h"

namespace agent {

namespace {

using namespace std::chrono_literals;
using rpc::server::EventLoop;

constexpr auto kLongestConnection = 10min;

void put_word(std::vector<std::byte>& bytes, std::size_t offset, std::size_t value) {
  bytes[offset] = static_cast<std::byte>(value >> 8 & 0xFF);
  bytes[offset + 1] = static_cast<std::byte>(value & 0xFF);
}

// What becomes of a sound reply: the bytes to send, and whether they never end.
struct BadReply {
  std::vector<std::byte> bytes;
  bool endless = false;
};

BadReply spoil(std::vector<std::byte> reply, Malformation kind) {
  const std::size_t words = std::to_integer<std::size_t>(reply[7]);
  switch (kind) {
    case Malformation::identifier:
      reply[1] = std::byte{'X'};
      break;
    case Malformation::length_zero:
      put_word(reply, 4, 0);
      break;
    case Malformation::length_short:
      put_word(reply, 4, kBrokerHeaderSize - 8);
      break;
    case Malformation::length_huge:
      put_word(reply, 4, 0xFFFF);
      put_word(reply, kBrokerHeaderSize + 2 * words - 2, 0xFFFF - kBrokerHeaderSize - 2 * words);
      return {std::move(reply), true};
    case Malformation::too_many_words:
      reply[7] = std::byte{200};
      break;
    case Malformation::data_too_long:
      put_word(reply, kBrokerHeaderSize + 2 * words - 2, 0x7FFF);
      break;
    case Malformation::cut:
      reply.resize(reply.size() / 2);
      break;
    case Malformation::garbage: {
      std::uint32_t state = 12345;
      for (std::byte& byte : reply)
        byte = static_cast<std::byte>((state = state * 1664525 + 1013904223) >> 24);
      break;
    }
  }
  return {std::move(reply), false};
}

std::string command_name(std::uint8_t command) {
  static constexpr std::array<const char*, 7> kNames = {
      "negotiate", "shutdown", "activate", "deactivate", "command 4", "register", "unregister"};
  return command < kNames.size() ? kNames[command] : "command " + std::to_string(command);
}

}  // namespace

// One client: its bytes come in until a message is whole, its reply goes out before the next
// message is looked at.
class BrokerServer::Connection {
 public:
  Connection(BrokerServer& owner, int descriptor, std::string peer)
      : owner_(owner), descriptor_(descriptor), peer_(std::move(peer)) {
    deadline_ = owner_.loop_.after(kLongestConnection, [this] { finish("is closed for its age"); });
    wait_for_request();
    owner_.loop_.watch(descriptor_, EPOLLIN, [this](std::uint32_t events) { handle(events); });
  }
  ~Connection() {
    for (const EventLoop::TimerNumber timer : {deadline_, idle_, pacing_})
      owner_.loop_.cancel(timer);
    owner_.loop_.unwatch(descriptor_);
    ::close(descriptor_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // When it last waited for a request; nothing while it is being answered.
  std::optional<EventLoop::Clock::time_point> idle_since() const { return idle_since_; }
  void make_way() { finish("is closed to make room for another"); }

 private:
  void wait_for_request() {
    owner_.loop_.cancel(idle_);
    idle_since_ = EventLoop::Clock::now();
    idle_ = owner_.loop_.after(std::chrono::seconds(owner_.settings_.idle_seconds),
                               [this] { finish("is closed, it says nothing"); });
  }
  void stop_waiting() {
    owner_.loop_.cancel(idle_);
    idle_since_.reset();
  }

  void handle(std::uint32_t events) {
    if ((events & (EPOLLERR | EPOLLHUP)) != 0)
      return finish("is lost");
    if (sending_)
      return send_some();
    receive_some();
  }

  void receive_some() {
    std::array<std::byte, kLargestBrokerMessage> block;
    const ssize_t got = ::recv(descriptor_, block.data(), block.size() - input_.size(), 0);
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
      return;
    if (got <= 0)
      return finish("is closed by the client");
    wait_for_request();
    if (owner_.settings_.mode == BrokerMode::silent)
      return stop_waiting();
    input_.insert(input_.end(), block.begin(), block.begin() + got);
    answer();
  }

  // Answers the message at the front of the input, if it is whole.
  void answer() {
    BrokerDecoding decoded = decode_broker_message(input_);
    if (decoded.state == BrokerDecoding::State::incomplete)
      return;
    if (decoded.state == BrokerDecoding::State::malformed) {
      owner_.log_.write(LogEvent("violation", owner_.name_)
                            .text("detail", "this is no message of a location broker")
                            .text("peer", peer_));
      BrokerMessage reply;
      reply.status = kBrokerBadRequest;
      last_ = true;
      return start(encode_broker_message(reply));
    }
    input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(decoded.size));
    if (owner_.settings_.mode == BrokerMode::closing)
      return finish("is closed without an answer");
    if (owner_.settings_.mode == BrokerMode::reset)
      return reset();
    const BrokerMessage reply = owner_.registry_->answer(decoded.message);
    if (owner_.log_.enabled())
      owner_.log_.write(LogEvent("request", owner_.name_)
                            .text("peer", peer_)
                            .text("command", command_name(decoded.message.command))
                            .number("status", reply.status));
    last_ = owner_.registry_->shut_down();
    if (last_)
      owner_.close_listener();
    start(encode_broker_message(reply));
  }

  void start(std::vector<std::byte> reply) {
    stop_waiting();
    if (owner_.settings_.mode == BrokerMode::malformed) {
      BadReply bad = spoil(std::move(reply), owner_.settings_.malformation);
      reply = std::move(bad.bytes);
      endless_ = bad.endless;
      last_ = true;
    }
    output_ = std::move(reply);
    sent_ = 0;
    sending_ = true;
    if (owner_.settings_.mode == BrokerMode::slow) {
      owner_.loop_.change(descriptor_, 0);
      send_slowly();
    } else {
      send_some();
    }
  }

  void send_some() {
    while (sent_ < output_.size()) {
      const ssize_t sent =
          ::send(descriptor_, output_.data() + sent_, output_.size() - sent_, MSG_NOSIGNAL);
      if (sent < 0 && (errno == EAGAIN || errno == EINTR)) {
        owner_.loop_.change(descriptor_, EPOLLOUT);
        return;
      }
      if (sent < 0)
        return finish("is lost");
      sent_ += static_cast<std::size_t>(sent);
      if (endless_ && sent_ == output_.size()) {
        output_.assign(4096, std::byte{0});
        sent_ = 0;
        owner_.loop_.change(descriptor_, EPOLLOUT);
        return;
      }
    }
    sent_all();
  }

  void send_slowly() {
    const std::uint32_t rate = owner_.settings_.bytes_per_second;
    const std::size_t share = std::min<std::size_t>(output_.size() - sent_, rate / 100 + 1);
    if (::send(descriptor_, output_.data() + sent_, share, MSG_NOSIGNAL) < 0 && errno != EAGAIN)
      return finish("is lost");
    sent_ += share;
    if (sent_ == output_.size())
      return sent_all();
    pacing_ = owner_.loop_.after(std::chrono::microseconds(share * 1'000'000 / rate),
                                 [this] { send_slowly(); });
  }

  void sent_all() {
    sending_ = false;
    if (last_)
      return finish("is closed");
    owner_.loop_.change(descriptor_, EPOLLIN);
    wait_for_request();
    answer();
  }

  void reset() {
    const linger abrupt{1, 0};
    ::setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
    finish("is reset");
  }

  // Destroys this connection.
  void finish(const char* how) {
    owner_.tell_connection(peer_, how);
    owner_.remove(this);
  }

  BrokerServer& owner_;
  const int descriptor_;
  const std::string peer_;
  EventLoop::TimerNumber deadline_ = 0;
  EventLoop::TimerNumber idle_ = 0;
  EventLoop::TimerNumber pacing_ = 0;
  std::optional<EventLoop::Clock::time_point> idle_since_;
  std::vector<std::byte> input_;
  std::vector<std::byte> output_;
  std::size_t sent_ = 0;
  bool sending_ = false;
  bool endless_ = false;
  bool last_ = false;  // the connection ends with this reply
};

BrokerServer::BrokerServer(EventLoop& loop, const Log& log, std::string name, std::uint32_t address,
                           const LocationBroker& settings, SharedListeners* shared)
    : loop_(loop),
      log_(log),
      name_(std::move(name)),
      address_(address),
      shared_(shared),
      settings_(settings),
      registry_(settings) {}

BrokerServer::~BrokerServer() {
  close_listener();
}

void BrokerServer::leave_listener(SharedListeners* shared) {
  if (std::exchange(shared_, shared) != shared)
    close_listener();
}

std::string BrokerServer::apply(const LocationBroker& settings, SharedListeners* shared) {
  leave_listener(shared);
  const LocationBroker old = std::exchange(settings_, settings);
  const auto takes_connections = [](const LocationBroker& broker) {
    return broker.mode != BrokerMode::refused && broker.mode != BrokerMode::unanswered;
  };
  if (settings_.mode != old.mode)
    log_.write(
        LogEvent("state", name_)
            .text("change",
                  "is in mode " + std::string(name_of(settings_.mode, kBrokerModes)) + " now"));
  if (std::tie(old.major, old.minor, old.status, old.servers) !=
      std::tie(settings_.major, settings_.minor, settings_.status, settings_.servers))
    registry_.emplace(settings_);
  if (listener_ != nullptr && old.port == settings_.port && takes_connections(old) &&
      takes_connections(settings_))
    return {};
  close_listener();
  return open();
}

std::string BrokerServer::open() {
  if (settings_.mode == BrokerMode::refused)
    return {};
  const auto receiver = [this](int descriptor, const rpc::SocketAddress& client) {
    accepted(descriptor, client);
  };
  const rpc::SocketAddress local{address_, settings_.port};
  BrokerListener::Opened opened;
  if (shared_ != nullptr) {
    opened = shared_->attach(local, receiver);
  } else {
    const bool unanswered = settings_.mode == BrokerMode::unanswered;
    opened = BrokerListener::open(
        loop_, local,
        unanswered ? BrokerListener::Manner::unanswering : BrokerListener::Manner::accepting);
    if (opened.listener != nullptr)
      opened.listener->attach(address_, receiver);
  }
  listener_ = std::move(opened.listener);
  return opened.error;
}

void BrokerServer::accepted(int descriptor, const rpc::SocketAddress& client) {
  const std::string text = rpc::to_text(client);
  if (connections_.size() == kMostConnections && !make_room()) {
    tell_connection(text, "is one too many");
    ::close(descriptor);
    return;
  }
  tell_connection(text, "is accepted");
  connections_.push_back(std::make_unique<Connection>(*this, descriptor, text));
}

// Idle connections must not keep clients out that have something to ask: the longest idle goes.
bool BrokerServer::make_room() {
  Connection* longest = nullptr;
  for (const auto& one : connections_)
    if (one->idle_since() && (longest == nullptr || *one->idle_since() < *longest->idle_since()))
      longest = one.get();
  if (longest != nullptr)
    longest->make_way();
  return longest != nullptr;
}

void BrokerServer::close_listener() {
  if (listener_ != nullptr)
    listener_->detach(address_);
  listener_.reset();
}

void BrokerServer::tell_connection(const std::string& peer, const char* change) const {
  if (log_.enabled())
    log_.write(LogEvent("connection", name_).text("peer", peer).text("change", change));
}

void BrokerServer::remove(Connection* connection) {
  connections_.remove_if([&](const auto& one) { return one.get() == connection; });
}

}  // namespace agent
