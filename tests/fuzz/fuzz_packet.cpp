// SPDX-License-Identifier: Apache-2.0
// Packet header and fack codec: what decodes must encode to the same meaning again.

#include <cstdint>
#include <cstdlib>
#include <span>

#include "platform/rpc/wire/pdu.h"
#include "tests/fuzz/require.h"

namespace {

bool same_header(const rpc::PacketHeader& a, const rpc::PacketHeader& b) {
  return a.type == b.type && a.flags1 == b.flags1 && a.flags2 == b.flags2 &&
         a.representation == b.representation && a.serial == b.serial && a.object == b.object &&
         a.interface_id == b.interface_id && a.activity == b.activity &&
         a.server_boot == b.server_boot && a.interface_version == b.interface_version &&
         a.sequence == b.sequence && a.opnum == b.opnum && a.interface_hint == b.interface_hint &&
         a.activity_hint == b.activity_hint && a.fragment == b.fragment;
}

void check_fack(std::span<const std::byte> body, bool little_endian) {
  const auto fack = rpc::decode_fack(body, little_endian);
  if (!fack)
    return;
  fuzz::require(fack->selective.size() * 4 + 16 <= body.size());
  const auto again = rpc::decode_fack(rpc::encode_fack(*fack, !little_endian), !little_endian);
  fuzz::require(again && again->window_kilobytes == fack->window_kilobytes &&
                again->max_tsdu == fack->max_tsdu && again->max_fragment == fack->max_fragment &&
                again->serial == fack->serial && again->selective == fack->selective);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto datagram = std::as_bytes(std::span(data, size));
  check_fack(datagram, true);
  check_fack(datagram, false);
  const auto quoted = rpc::decode_header(datagram);
  const auto packet = rpc::decode_packet(datagram);
  if (!packet)
    return 0;
  fuzz::require(quoted && same_header(*quoted, packet->header));
  fuzz::require(packet->body.size() + rpc::kHeaderSize <= size);
  const auto encoded = rpc::encode_packet(packet->header, packet->body);
  const auto again = rpc::decode_packet(encoded);
  fuzz::require(again && same_header(again->header, packet->header) &&
                again->body.size() == packet->body.size());
  check_fack(packet->body, packet->header.representation.little_endian);
  rpc::decode_status_body(packet->body, packet->header.representation.little_endian);
  return 0;
}
