// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/wire/pdu.h"

#include <cassert>
#include <cstring>

#include "platform/rpc/wire/wire_bytes.h"

namespace rpc {
namespace {

// Offsets of the header's fields (C706 12.5.2).
constexpr std::size_t kVersionAt = 0;
constexpr std::size_t kTypeAt = 1;
constexpr std::size_t kFlags1At = 2;
constexpr std::size_t kFlags2At = 3;
constexpr std::size_t kRepresentationAt = 4;
constexpr std::size_t kSerialHighAt = 7;
constexpr std::size_t kObjectAt = 8;
constexpr std::size_t kInterfaceAt = 24;
constexpr std::size_t kActivityAt = 40;
constexpr std::size_t kBootTimeAt = 56;
constexpr std::size_t kInterfaceVersionAt = 60;
constexpr std::size_t kSequenceAt = 64;
constexpr std::size_t kOpnumAt = 68;
constexpr std::size_t kInterfaceHintAt = 70;
constexpr std::size_t kActivityHintAt = 72;
constexpr std::size_t kLengthAt = 74;
constexpr std::size_t kFragmentAt = 76;
constexpr std::size_t kAuthenticationAt = 78;
constexpr std::size_t kSerialLowAt = 79;
static_assert(kSerialLowAt + 1 == kHeaderSize);

constexpr std::uint8_t kProtocolVersion = 4;
constexpr std::uint8_t kTypeMask = 0x1F;

// The fack body (C706 12.5.3.4).
constexpr std::size_t kFackFixedSize = 16;
constexpr std::uint8_t kFackVersionPackets = 0;
constexpr std::uint8_t kFackVersionKilobytes = 1;
constexpr std::size_t kFackWindowAt = 2;
constexpr std::size_t kFackTsduAt = 4;
constexpr std::size_t kFackMaxFragmentAt = 8;
constexpr std::size_t kFackSerialAt = 12;
constexpr std::size_t kFackMaskCountAt = 14;

constexpr std::uint32_t kKilobyte = 1024;

std::uint8_t octet(std::span<const std::byte> bytes, std::size_t at) {
  return std::to_integer<std::uint8_t>(bytes[at]);
}

// A version 0 window counts packets of the least size that every receiver takes.
std::uint16_t kilobytes_of_packets(std::uint16_t packets) {
  const std::uint32_t kilobytes =
      (packets * static_cast<std::uint32_t>(kLeastMaxFragment) + kKilobyte - 1) / kKilobyte;
  return static_cast<std::uint16_t>(kilobytes < 0xFFFF ? kilobytes : 0xFFFF);
}

}  // namespace

std::optional<PacketHeader> decode_header(std::span<const std::byte> datagram) {
  if (datagram.size() < kHeaderSize || octet(datagram, kVersionAt) != kProtocolVersion)
    return std::nullopt;
  const std::uint8_t type = octet(datagram, kTypeAt) & kTypeMask;
  if (type > static_cast<std::uint8_t>(PacketType::cancel_ack))
    return std::nullopt;
  const std::uint8_t representation = octet(datagram, kRepresentationAt);
  const std::uint8_t integer_format = representation >> 4;
  if (integer_format > 1)
    return std::nullopt;

  const bool little = integer_format == 1;
  const std::byte* bytes = datagram.data();
  PacketHeader header;
  header.type = static_cast<PacketType>(type);
  header.flags1 = octet(datagram, kFlags1At);
  header.flags2 = octet(datagram, kFlags2At);
  header.representation.little_endian = little;
  header.representation.ebcdic = (representation & 0x0F) != 0;
  header.representation.floating_point = octet(datagram, kRepresentationAt + 1);
  header.serial = static_cast<std::uint16_t>(octet(datagram, kSerialHighAt) << 8 |
                                             octet(datagram, kSerialLowAt));
  header.object = load_uuid(bytes + kObjectAt, little);
  header.interface_id = load_uuid(bytes + kInterfaceAt, little);
  header.activity = load_uuid(bytes + kActivityAt, little);
  header.server_boot = load32(bytes + kBootTimeAt, little);
  header.interface_version = load32(bytes + kInterfaceVersionAt, little);
  header.sequence = load32(bytes + kSequenceAt, little);
  header.opnum = load16(bytes + kOpnumAt, little);
  header.interface_hint = load16(bytes + kInterfaceHintAt, little);
  header.activity_hint = load16(bytes + kActivityHintAt, little);
  header.fragment = load16(bytes + kFragmentAt, little);
  header.authentication = octet(datagram, kAuthenticationAt);
  return header;
}

std::optional<Packet> decode_packet(std::span<const std::byte> datagram) {
  const auto header = decode_header(datagram);
  if (!header || header->authentication != 0)
    return std::nullopt;
  const std::size_t length =
      load16(datagram.data() + kLengthAt, header->representation.little_endian);
  if (length > datagram.size() - kHeaderSize)
    return std::nullopt;
  return Packet{*header, datagram.subspan(kHeaderSize, length)};
}

void encode_header(const PacketHeader& header, std::size_t body_length,
                   std::span<std::byte, kHeaderSize> out) {
  assert(body_length <= kMaxBodySize);
  const bool little = header.representation.little_endian;
  std::byte* bytes = out.data();
  bytes[kVersionAt] = std::byte{kProtocolVersion};
  bytes[kTypeAt] = static_cast<std::byte>(header.type);
  bytes[kFlags1At] = static_cast<std::byte>(header.flags1);
  bytes[kFlags2At] = static_cast<std::byte>(header.flags2);
  bytes[kRepresentationAt] =
      static_cast<std::byte>((little ? 0x10 : 0x00) | (header.representation.ebcdic ? 0x01 : 0x00));
  bytes[kRepresentationAt + 1] = static_cast<std::byte>(header.representation.floating_point);
  bytes[kRepresentationAt + 2] = std::byte{0};
  bytes[kSerialHighAt] = static_cast<std::byte>(header.serial >> 8);
  store_uuid(bytes + kObjectAt, header.object, little);
  store_uuid(bytes + kInterfaceAt, header.interface_id, little);
  store_uuid(bytes + kActivityAt, header.activity, little);
  store32(bytes + kBootTimeAt, header.server_boot, little);
  store32(bytes + kInterfaceVersionAt, header.interface_version, little);
  store32(bytes + kSequenceAt, header.sequence, little);
  store16(bytes + kOpnumAt, header.opnum, little);
  store16(bytes + kInterfaceHintAt, header.interface_hint, little);
  store16(bytes + kActivityHintAt, header.activity_hint, little);
  store16(bytes + kLengthAt, static_cast<std::uint16_t>(body_length), little);
  store16(bytes + kFragmentAt, header.fragment, little);
  bytes[kAuthenticationAt] = std::byte{0};
  bytes[kSerialLowAt] = static_cast<std::byte>(header.serial & 0xFF);
}

std::vector<std::byte> encode_packet(const PacketHeader& header, std::span<const std::byte> body) {
  std::vector<std::byte> datagram(kHeaderSize + body.size());
  encode_header(header, body.size(),
                std::span<std::byte, kHeaderSize>(datagram.data(), kHeaderSize));
  if (!body.empty())
    std::memcpy(datagram.data() + kHeaderSize, body.data(), body.size());
  return datagram;
}

std::optional<Fack> decode_fack(std::span<const std::byte> body, bool little_endian) {
  if (body.size() < kFackFixedSize)
    return std::nullopt;
  const std::uint8_t version = octet(body, 0);
  if (version > kFackVersionKilobytes)
    return std::nullopt;
  const std::byte* bytes = body.data();
  const std::size_t masks = load16(bytes + kFackMaskCountAt, little_endian);
  if (masks > (body.size() - kFackFixedSize) / 4)
    return std::nullopt;

  Fack fack;
  const std::uint16_t window = load16(bytes + kFackWindowAt, little_endian);
  fack.window_kilobytes = version == kFackVersionPackets ? kilobytes_of_packets(window) : window;
  fack.max_tsdu = load32(bytes + kFackTsduAt, little_endian);
  fack.max_fragment = load32(bytes + kFackMaxFragmentAt, little_endian);
  fack.serial = load16(bytes + kFackSerialAt, little_endian);
  fack.selective.reserve(masks);
  for (std::size_t mask = 0; mask < masks; ++mask)
    fack.selective.push_back(load32(bytes + kFackFixedSize + 4 * mask, little_endian));
  return fack;
}

std::vector<std::byte> encode_fack(const Fack& fack, bool little_endian) {
  assert(fack.selective.size() <= 0xFFFF);
  std::vector<std::byte> body(kFackFixedSize + 4 * fack.selective.size());
  std::byte* bytes = body.data();
  bytes[0] = std::byte{kFackVersionKilobytes};
  store16(bytes + kFackWindowAt, fack.window_kilobytes, little_endian);
  store32(bytes + kFackTsduAt, fack.max_tsdu, little_endian);
  store32(bytes + kFackMaxFragmentAt, fack.max_fragment, little_endian);
  store16(bytes + kFackSerialAt, fack.serial, little_endian);
  store16(bytes + kFackMaskCountAt, static_cast<std::uint16_t>(fack.selective.size()),
          little_endian);
  for (std::size_t mask = 0; mask < fack.selective.size(); ++mask)
    store32(bytes + kFackFixedSize + 4 * mask, fack.selective[mask], little_endian);
  return body;
}

std::optional<std::uint32_t> decode_status_body(std::span<const std::byte> body,
                                                bool little_endian) {
  if (body.size() < 4)
    return std::nullopt;
  return load32(body.data(), little_endian);
}

std::vector<std::byte> encode_status_body(std::uint32_t status, bool little_endian) {
  std::vector<std::byte> body(4);
  store32(body.data(), status, little_endian);
  return body;
}

std::vector<std::byte> encode_cancel_body(std::uint32_t cancel_id, bool little_endian) {
  std::vector<std::byte> body(8);
  store32(body.data() + 4, cancel_id, little_endian);
  return body;
}

}  // namespace rpc
