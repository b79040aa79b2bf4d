// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/client/invoke.h"

#include <algorithm>
#include <cerrno>
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
#include "platform/sys/fiber.h"
#include "platform/sys/sockets.h"

namespace rpc {
namespace {

// Sockets kept open; a sweep over many hosts must not use up the process's descriptors.
constexpr std::size_t kMostSockets = 32;
// Host names remembered, so that one name's calls do not each ask the resolver.
constexpr std::size_t kMostNames = 1024;
// Memory of the last reply that is kept for the next one; a longer one is given back.
constexpr std::size_t kKeptReplyMemory = 2 * 1024 * 1024;

// A server and the activity of our calls to it. The activity lives as long as the thread, so that
// the server asks only once who we are; the socket only while it is among the last used.
struct Server {
  Server(const SocketAddress& address, RandomSource& random) : activity(address, random) {}

  Activity activity;
  std::unique_ptr<Transport> transport;
  std::uint64_t last_use = 0;
};

// What one thread needs for its calls: an activity carries one call at a time, so threads share
// none.
class Caller {
 public:
  Caller() = default;
  ~Caller() { acknowledge_all(); }
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;

  Reply call(const CallTarget& target, const OperationSpec& operation,
             std::span<const std::byte> request, std::size_t reply_limit);
  void acknowledge_all();

 private:
  SocketAddress resolve(const CallTarget& target);
  Server& server_at(const SocketAddress& address);
  void turn_to(Server& server);
  void close_idle_socket();
  static void acknowledge(Server& server);

  SystemRandom random_;
  ReceiveBuffers buffers_;
  std::vector<std::byte> reply_memory_;
  std::unordered_map<std::string, std::uint32_t> names_;
  std::vector<std::unique_ptr<Server>> servers_;
  Server* current_ = nullptr;
  std::uint64_t uses_ = 0;
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
  if (call.status() == RPC_S_OK)
    return {};
  if (call.status() == RPC_S_SERVER_UNAVAILABLE && call.answer_number() == 0)
    return {Kind::undelivered, network_error(undelivered_reason), 0, call.status()};
  if (call.answer_number() == 0)
    return {call.kind() == FailureKind::communication ? Kind::silent : Kind::local, 0, 0,
            call.status()};
  return {call.kind() == FailureKind::fault ? Kind::fault : Kind::reject, 0, call.answer_number(),
          call.status()};
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

Server& Caller::server_at(const SocketAddress& address) {
  if (current_ != nullptr && current_->activity.server() == address)
    return *current_;
  for (const auto& each : servers_)
    if (each->activity.server() == address)
      return *each;
  servers_.push_back(std::make_unique<Server>(address, random_));
  return *servers_.back();
}

void Caller::turn_to(Server& server) {
  if (current_ != nullptr && current_ != &server)
    acknowledge(*current_);
  current_ = &server;
  server.last_use = ++uses_;
  if (server.transport == nullptr) {
    close_idle_socket();
    server.transport = std::make_unique<Transport>(server.activity.server());
  }
  if (!server.transport->open()) {
    server.transport.reset();
    fail(RPC_S_OUT_OF_MEMORY);
  }
}

void Caller::close_idle_socket() {
  Server* oldest = nullptr;
  std::size_t open = 0;
  for (const auto& each : servers_) {
    if (each->transport == nullptr)
      continue;
    ++open;
    if (oldest == nullptr || each->last_use < oldest->last_use)
      oldest = each.get();
  }
  if (open >= kMostSockets)
    oldest->transport.reset();
}

void Caller::acknowledge(Server& server) {
  if (server.transport == nullptr)
    return;
  if (const auto ack = server.activity.take_ack())
    server.transport->send(*ack);
}

void Caller::acknowledge_all() {
  for (const auto& each : servers_)
    acknowledge(*each);
}

Reply Caller::call(const CallTarget& target, const OperationSpec& operation,
                   std::span<const std::byte> request, std::size_t reply_limit) {
  set_last_call_outcome({RpcCallOutcome::Kind::local});
  Server& server = server_at(resolve(target));
  turn_to(server);

  CallRequest what;
  what.operation = &operation;
  what.object = target.object;
  what.body = request;
  what.timeout_level = target.timeout_level;
  what.silence = target.silence;
  what.reply_limit = reply_limit;
  what.path_limit = server.transport->path_limit();
  what.max_fragment =
      static_cast<std::uint32_t>(std::max(server.transport->path_limit(), kLeastMaxFragment));
  what.window_kilobytes = server.transport->window_kilobytes();
  ClientCall call(server.activity, ClientIdentity::of_this_process(), random_, what, Clock::now(),
                  std::exchange(reply_memory_, {}));
  server.transport->run(call, buffers_);

  set_last_call_outcome(outcome_of(call, server.transport->undelivered_reason()));
  if (call.status() != RPC_S_OK)
    throw RpcException(call.status(), call.kind());
  // The body grew in memory that is used again; the caller gets one of its exact size.
  std::vector<std::byte> joined = call.take_reply();
  Reply reply{{joined.begin(), joined.end()}, call.representation()};
  if (joined.capacity() <= kKeptReplyMemory)
    reply_memory_ = std::move(joined);
  return reply;
}

sys::FiberLocal<RpcCallOutcome> last_call_outcome;

Caller& this_threads_caller() {
  thread_local Caller caller;
  return caller;
}

}  // namespace

Reply invoke(const CallTarget& target, const OperationSpec& operation,
             std::span<const std::byte> request, std::size_t reply_limit) {
  return this_threads_caller().call(target, operation, request, reply_limit);
}

void release_activities() {
  this_threads_caller().acknowledge_all();
}

void set_last_call_outcome(const RpcCallOutcome& outcome) {
  *last_call_outcome = outcome;
}

}  // namespace rpc

const RpcCallOutcome& RpcLastCallOutcome() {
  return *rpc::last_call_outcome;
}
