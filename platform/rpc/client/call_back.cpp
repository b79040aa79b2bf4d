// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/client/call_back.h"

#include "platform/numbers/status.h"
#include "platform/rpc/wire/conversation.h"
#include "platform/rpc/wire/wire_bytes.h"

namespace rpc {
namespace {

using conversation::kAreYouThere;
using conversation::kWhoAreYou2;

// An activity's UUID and the server's boot time.
constexpr std::size_t kRequestSize = 20;
constexpr std::size_t kBootTimeAt = 16;

constexpr bool kLittleEndian = true;

CallBackAnswer reject(CallBackAnswer answer, std::uint32_t status) {
  answer.header.type = PacketType::reject;
  answer.body = encode_status_body(status, kLittleEndian);
  return answer;
}

std::uint32_t identity_status(const Packet& request, const RunningCall& call) {
  const bool little = request.header.representation.little_endian;
  if (load_uuid(request.body.data(), little) != call.activity)
    return nca::kBadActivity;
  const std::uint32_t boot_time = load32(request.body.data() + kBootTimeAt, little);
  return call.server_boot != 0 && boot_time != call.server_boot ? nca::kYouCrashed : 0;
}

}  // namespace

CallBackAnswer answer_call_back(const Packet& request, const RunningCall& call,
                                const ClientIdentity& identity) {
  CallBackAnswer answer;
  answer.header = request.header;
  answer.header.type = PacketType::response;
  answer.header.flags1 = answer.header.flags2 = 0;
  answer.header.representation = DataRepresentation{};
  answer.header.server_boot = identity.boot_time;
  answer.header.interface_hint = answer.header.activity_hint = kNoHint;
  answer.header.fragment = 0;

  if (request.header.interface_id != conversation::kOfClients ||
      (request.header.interface_version & 0xFFFF) != conversation::kOfClientsMajor)
    return reject(answer, nca::kUnknownInterface);
  const std::uint16_t opnum = request.header.opnum;
  if (opnum > kAreYouThere)
    return reject(answer, nca::kOperationRange);
  if (request.body.size() < kRequestSize)
    return reject(answer, nca::kProtocolError);

  const std::uint32_t status = identity_status(request, call);
  answer.known = status != nca::kBadActivity;
  if (status == 0)
    answer.server_boot =
        load32(request.body.data() + kBootTimeAt, request.header.representation.little_endian);
  const std::size_t sequence_size = opnum == kAreYouThere ? 0 : 4;
  const std::size_t identity_size = opnum == kWhoAreYou2 ? 16 : 0;
  answer.body.resize(sequence_size + identity_size + 4);
  std::byte* at = answer.body.data();
  if (sequence_size != 0)
    store32(at, answer.known ? call.sequence : 0, kLittleEndian);
  if (identity_size != 0)
    store_uuid(at + sequence_size, identity.address_space, kLittleEndian);
  store32(at + sequence_size + identity_size, status, kLittleEndian);
  return answer;
}

bool CallBackLimiter::allow(Time now) {
  if (now - second_ >= std::chrono::seconds(1)) {
    second_ = now;
    answered_ = 0;
  }
  return ++answered_ <= kCallBacksPerSecond;
}

}  // namespace rpc
