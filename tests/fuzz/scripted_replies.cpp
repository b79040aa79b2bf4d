// SPDX-License-Identifier: Apache-2.0
#include "tests/fuzz/scripted_replies.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>
#include <utility>

#include "platform/rpc/client/invoke.h"
#include "platform/rpc/rpc.h"
#include "shared/dce/hublnk_client.h"

namespace {

using Kind = RpcCallOutcome::Kind;
using rpc::FailureKind;

struct Failure {
  RPC_STATUS status;
  FailureKind kind;
  RpcCallOutcome outcome;
};
constexpr Failure kFailures[] = {
    {RPC_S_CALL_FAILED, FailureKind::communication, {Kind::silent}},
    {RPC_S_SERVER_UNAVAILABLE, FailureKind::communication, {Kind::undelivered, 10060}},
    {RPC_S_SERVER_UNAVAILABLE, FailureKind::communication, {Kind::undelivered, 10061}},
    {RPC_S_CALL_FAILED_DNE, FailureKind::communication, {Kind::reject, 0, 0x1C00000B}},
    {RPC_S_UNKNOWN_IF, FailureKind::communication, {Kind::reject, 0, 0x1C010003}},
    {RPC_S_COMM_FAILURE, FailureKind::communication, {Kind::undelivered, 10065}},
    {1728, FailureKind::fault, {Kind::fault, 0, 0x1C01000B}},
    {RPC_S_CALL_FAILED_DNE, FailureKind::communication, {Kind::restarted}},
    {RPC_S_CALL_FAILED, FailureKind::communication, {Kind::question_lost}},
};

constexpr std::array<std::byte, 8> kListening = {{{}, {}, {}, {}, std::byte{1}}};

std::vector<std::byte> map_reply;
std::span<const std::uint8_t> replies;

[[noreturn]] void fail(const Failure& failure) {
  rpc::set_last_call_outcome(failure.outcome);
  throw rpc::RpcException(failure.status, failure.kind);
}

}  // namespace

void fuzz::script_replies(const std::uint8_t* data, std::size_t size, std::vector<std::byte> map) {
  replies = {data, size};
  map_reply = std::move(map);
}

namespace rpc {

Reply invoke(const CallTarget&, const OperationSpec& operation, std::span<const std::byte>,
             std::size_t reply_limit) {
  const std::string_view name = operation.name;
  if (!map_reply.empty() && name == "ept_lookup")
    return {map_reply, {}};
  if (!map_reply.empty() && name == "mgmt_is_server_listening")
    return {{kListening.begin(), kListening.end()}, {}};
  Reply reply;
  if (replies.size() < 3)
    fail(kFailures[0]);
  const std::uint8_t flags = replies[0];
  reply.representation = {(flags & 1) == 0, (flags & 2) != 0, 0};
  const auto length =
      std::min<std::size_t>(replies[1] | std::size_t{replies[2]} << 8, replies.size() - 3);
  const auto body = std::as_bytes(replies.subspan(3, length));
  replies = replies.subspan(3 + length);
  if ((flags & 4) != 0)
    fail(
        kFailures[body.empty() ? 0 : std::to_integer<std::size_t>(body[0]) % std::size(kFailures)]);
  if (length > reply_limit)
    fail({RPC_X_BAD_STUB_DATA, FailureKind::local, {Kind::local}});
  set_last_call_outcome({});
  reply.body.assign(body.begin(), body.end());
  return reply;
}

std::optional<std::chrono::milliseconds> limit_waits(std::optional<std::chrono::milliseconds>) {
  return std::nullopt;
}

void release_activities(bool) {}

}  // namespace rpc

// --- The location broker.

std::uint16_t hublnk_Port() {
  return sockets::htons(kHublnkdPort);
}

unsigned char hublnk_OpenAt(const sockaddr_in&, const hublnk_Limits&, sockets::Socket* fd,
                            std::uint32_t* status) {
  *fd = sockets::kInvalidSocket;
  *status = 0;
  return 1;
}

unsigned char hublnk_Close(sockets::Socket&, std::uint32_t* status) {
  *status = 0;
  return 1;
}

unsigned char hublnk_Negotiate(sockets::Socket, std::uint16_t* major, std::uint16_t* minor,
                               std::uint32_t* status, const hublnk_Limits&, bool*) {
  *major = 2;
  *minor = 0;
  *status = 0;
  return 1;
}
