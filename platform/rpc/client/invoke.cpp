// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/client/invoke.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <list>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/numbers/network_error.h"
#include "platform/rpc/client/activity.h"
#include "platform/rpc/client/client_call.h"
#include "platform/rpc/client/transport.h"
#include "platform/rpc/exception.h"
#include "platform/rpc/names/network_address.h"
#include "platform/rpc/names/protocol_sequence.h"
#include "platform/rpc/names/random_source.h"
#include "platform/rpc/rpc.h"
#include "platform/rpc/wire/path_limit.h"
#include "platform/sys/fiber.h"
#include "platform/sys/sockets.h"

namespace rpc {
namespace {

// Jobs that share a socket before another one is opened, and sockets at most.
constexpr std::size_t kJobsPerSocket = 16;
constexpr std::size_t kMostSockets = 32;
// Servers remembered by one job; the one that was called longest ago goes first.
constexpr std::size_t kMostServers = 256;
// Host names remembered, so that one name's calls do not each ask the resolver.
constexpr std::size_t kMostNames = 1024;
// Memory of the last reply that is kept for the next one; a longer one is given back.
constexpr std::size_t kKeptReplyMemory = 2 * 1024 * 1024;

struct ByAddress {
  std::size_t operator()(const SocketAddress& address) const {
    return std::hash<std::uint64_t>()(std::uint64_t{address.host} << 16 | address.port);
  }
};

class Caller;

// The sockets of all jobs of a loop, or of a thread outside loops.
class Sockets {
 public:
  // The one that the fewest jobs use; null when the system gives none.
  Transport* take() {
    const auto fewest = std::min_element(shares_.begin(), shares_.end(),
                                         [](auto& a, auto& b) { return a.jobs < b.jobs; });
    const bool full = fewest == shares_.end() || fewest->jobs >= kJobsPerSocket;
    if (full && shares_.size() < kMostSockets) {
      auto made = std::make_unique<Transport>();
      if (made->open()) {
        shares_.push_back({std::move(made), 1});
        return shares_.back().transport.get();
      }
    }
    if (shares_.empty())
      return nullptr;
    ++fewest->jobs;
    return fewest->transport.get();
  }

  void give_back(const Transport* transport) {
    for (Share& each : shares_)
      if (each.transport.get() == transport)
        --each.jobs;
  }
  std::size_t jobs(const Transport* transport) const {
    for (const Share& each : shares_)
      if (each.transport.get() == transport)
        return each.jobs;
    return 1;
  }

  SystemRandom random;
  std::vector<Caller*> callers;

 private:
  struct Share {
    std::unique_ptr<Transport> transport;
    std::size_t jobs;
  };
  std::vector<Share> shares_;
};

const sys::LoopLocal<Sockets> sockets_of_loop;

// What one job, or thread outside loops, needs for its calls: an activity carries one call at a
// time, so jobs share none. What is kept of servers goes with it; until then a server asks only
// once who we are.
class Caller {
 public:
  Caller() : sockets_(*sockets_of_loop) { sockets_.callers.push_back(this); }
  ~Caller() {
    acknowledge_all();
    std::erase(sockets_.callers, this);
    sockets_.give_back(transport_);
  }
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;

  Reply call(const CallTarget& target, const OperationSpec& operation,
             std::span<const std::byte> request, std::size_t reply_limit);
  void acknowledge_all();
  std::optional<std::chrono::milliseconds> limit_waits(
      std::optional<std::chrono::milliseconds> longest) {
    return std::exchange(longest_wait_, longest);
  }
  void keep(std::vector<std::byte>&& reply_memory);

 private:
  using Activities = std::list<Activity>;

  SocketAddress resolve(const CallTarget& target);
  Activity& activity_at(const SocketAddress& address);
  std::size_t path_limit(const SocketAddress& address);
  void acknowledge(Activity& activity);

  Sockets& sockets_;
  Transport* transport_ = nullptr;
  std::vector<std::byte> reply_memory_;
  std::unordered_map<std::string, std::uint32_t> names_;
  Activities activities_;  // last called first
  std::unordered_map<SocketAddress, Activities::iterator, ByAddress> by_address_;
  std::uint32_t path_host_ = 0;  // whose path was looked at last
  std::size_t path_limit_ = 0;
  std::optional<std::chrono::milliseconds> longest_wait_;
};

// Why nothing answered; 10060 when no datagram came back either.
RPC_STATUS network_error(int undelivered_reason) {
  return undelivered_reason == 0
             ? static_cast<RPC_STATUS>(sockets::WSAETIMEDOUT)
             : static_cast<RPC_STATUS>(sockets::workstation_error(undelivered_reason));
}

// What is known of a call that is over.
RpcCallOutcome outcome_of(const ClientCall& call, int undelivered_reason) {
  using Kind = RpcCallOutcome::Kind;
  RpcCallOutcome outcome;
  outcome.status = call.status();
  outcome.number = call.answer_number();
  outcome.verifiers = call.verifiers_dropped();
  if (call.status() == RPC_S_OK)
    return outcome;
  if (call.restarted())
    outcome.kind = Kind::restarted;
  else if (outcome.number != 0)
    outcome.kind = call.kind() == FailureKind::fault ? Kind::fault : Kind::reject;
  else if (call.question_lost())
    outcome.kind = Kind::question_lost;
  else if (call.status() == RPC_S_SERVER_UNAVAILABLE)
    outcome.kind = Kind::undelivered;
  else
    outcome.kind = call.kind() == FailureKind::communication ? Kind::silent : Kind::local;
  if (outcome.kind == Kind::undelivered)
    outcome.network = network_error(undelivered_reason);
  return outcome;
}

[[noreturn]] void fail(RPC_STATUS status) {
  throw RpcException(status, FailureKind::communication);
}

SocketAddress Caller::resolve(const CallTarget& target) {
  if (target.protocol_sequence != protseq::kUdp)
    fail(RPC_S_PROTSEQ_NOT_SUPPORTED);
  if (target.endpoint.empty())
    fail(EPT_S_NOT_REGISTERED);
  const auto port = parse_port(target.endpoint);
  if (!port)
    fail(RPC_S_INVALID_ENDPOINT_FORMAT);
  const auto known = names_.find(target.network_address);
  if (known != names_.end())
    return {known->second, *port};
  const ResolvedHost resolved = resolve_host(target.network_address);
  if (resolved.status != RPC_S_OK)
    fail(resolved.status);
  if (names_.size() >= kMostNames)
    names_.clear();
  names_.emplace(target.network_address, resolved.host);
  return {resolved.host, *port};
}

Activity& Caller::activity_at(const SocketAddress& address) {
  if (!activities_.empty() && activities_.front().server() == address)
    return activities_.front();
  // Whoever is left waits for its acknowledgement no longer.
  if (!activities_.empty())
    acknowledge(activities_.front());
  if (const auto known = by_address_.find(address); known != by_address_.end()) {
    activities_.splice(activities_.begin(), activities_, known->second);
    return activities_.front();
  }
  if (activities_.size() == kMostServers) {
    by_address_.erase(activities_.back().server());
    activities_.pop_back();
  }
  activities_.emplace_front(address, sockets_.random);
  by_address_.emplace(address, activities_.begin());
  return activities_.front();
}

std::size_t Caller::path_limit(const SocketAddress& address) {
  if (path_limit_ == 0 || path_host_ != address.host) {
    path_limit_ = path_limit_to(address);
    path_host_ = address.host;
  }
  return path_limit_;
}

void Caller::acknowledge(Activity& activity) {
  if (const auto ack = activity.take_ack())
    transport_->send(*ack);
}

void Caller::acknowledge_all() {
  for (Activity& each : activities_)
    acknowledge(each);
}

Reply Caller::call(const CallTarget& target, const OperationSpec& operation,
                   std::span<const std::byte> request, std::size_t reply_limit) {
  set_last_call_outcome({RpcCallOutcome::Kind::local});
  const SocketAddress address = resolve(target);
  if (transport_ == nullptr)
    transport_ = sockets_.take();
  if (transport_ == nullptr)
    fail(RPC_S_OUT_OF_MEMORY);
  Activity& activity = activity_at(address);

  CallRequest what;
  what.operation = &operation;
  what.object = target.object;
  what.body = request;
  what.timeout_level = target.timeout_level;
  if (longest_wait_) {
    const auto level = silence_of_level(target.timeout_level);
    what.silence = std::min<Duration>(*longest_wait_, level.value_or(std::chrono::hours(24)));
  }
  what.longest = target.longest;
  what.reply_limit = reply_limit;
  what.path_limit = path_limit(address);
  what.max_fragment = static_cast<std::uint32_t>(std::max(what.path_limit, kLeastMaxFragment));
  what.window_kilobytes = transport_->window_kilobytes(sockets_.jobs(transport_));
  ClientCall call(activity, ClientIdentity::of_this_process(), sockets_.random, what, Clock::now(),
                  std::exchange(reply_memory_, {}));
  RpcCallOutcome outcome = outcome_of(call, transport_->run(call, activity));
  outcome.big_endian = !call.representation().little_endian;
  set_last_call_outcome(outcome);
  if (call.status() != RPC_S_OK)
    throw RpcException(call.status(), call.kind());
  return {call.take_reply(), call.representation()};
}

void Caller::keep(std::vector<std::byte>&& reply_memory) {
  if (reply_memory.capacity() <= kKeptReplyMemory)
    reply_memory_ = std::move(reply_memory);
}

const sys::FiberLocal<Caller> caller;

void take_back(std::vector<std::byte>&& reply_memory) {
  caller->keep(std::move(reply_memory));
}

}  // namespace

Reply invoke(const CallTarget& target, const OperationSpec& operation,
             std::span<const std::byte> request, std::size_t reply_limit) {
  Reply reply = caller->call(target, operation, request, reply_limit);
  reply.take_back = take_back;
  return reply;
}

void release_activities(bool of_all_jobs) {
  if (!of_all_jobs) {
    caller->acknowledge_all();
    return;
  }
  for (Caller* each : sockets_of_loop->callers)
    each->acknowledge_all();
}

std::optional<std::chrono::milliseconds> limit_waits(
    std::optional<std::chrono::milliseconds> longest) {
  return caller->limit_waits(longest);
}

}  // namespace rpc
