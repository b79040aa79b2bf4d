// SPDX-License-Identifier: Apache-2.0
// The connectionless packet header (C706 12.5.2) and the bodies that belong to the protocol itself:
// fragment acknowledgements, reject and fault statuses, cancels. Bytes in, values out.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/rpc/names/uuid.h"
#include "platform/rpc/wire/data_representation.h"

namespace rpc {

inline constexpr std::size_t kHeaderSize = 80;
inline constexpr std::size_t kMaxBodySize = 0xFFFF;
// The datagram, header included, that every receiver takes (C706 12.5.3.4); larger ones only after
// the receiver announced them.
inline constexpr std::size_t kLeastMaxFragment = 1464;
inline constexpr std::uint16_t kNoHint = 0xFFFF;

enum class PacketType : std::uint8_t {
  request = 0,
  ping = 1,
  response = 2,
  fault = 3,
  working = 4,
  nocall = 5,
  reject = 6,
  ack = 7,
  cancel = 8,
  fack = 9,
  cancel_ack = 10,
};

inline constexpr std::uint8_t kFlagLastFragment = 0x02;
inline constexpr std::uint8_t kFlagFragment = 0x04;
inline constexpr std::uint8_t kFlagNoFack = 0x08;
inline constexpr std::uint8_t kFlagMaybe = 0x10;
inline constexpr std::uint8_t kFlagIdempotent = 0x20;
inline constexpr std::uint8_t kFlagBroadcast = 0x40;

struct PacketHeader {
  PacketType type = PacketType::request;
  std::uint8_t flags1 = 0;
  std::uint8_t flags2 = 0;
  DataRepresentation representation;
  std::uint16_t serial = 0;
  uuid_t object{};
  uuid_t interface_id{};
  uuid_t activity{};
  std::uint32_t server_boot = 0;
  std::uint32_t interface_version = 0;
  std::uint32_t sequence = 0;
  std::uint16_t opnum = 0;
  std::uint16_t interface_hint = kNoHint;
  std::uint16_t activity_hint = kNoHint;
  std::uint16_t fragment = 0;
  std::uint8_t authentication = 0;  // protocol of the verifier; never sent, and dropped with it
};

// A decoded packet. `body` points into the datagram that was decoded.
struct Packet {
  PacketHeader header;
  std::span<const std::byte> body;
};

// Nothing for a datagram that must be dropped without a word: short, another protocol version, a
// body length beyond the datagram, an unknown packet type, an unknown integer format,
// authentication.
std::optional<Packet> decode_packet(std::span<const std::byte> datagram);

// The header at the front of bytes that may be only the beginning of a packet, as the network
// quotes it in an error; nothing for less than a header and for what decode_packet would drop but
// for its verifier.
std::optional<PacketHeader> decode_header(std::span<const std::byte> bytes);

// Only the header, for a body of `body_length` bytes (at most kMaxBodySize) that the caller sends
// behind it.
void encode_header(const PacketHeader& header, std::size_t body_length,
                   std::span<std::byte, kHeaderSize> out);

// The datagram of a header and its body, in the byte order that the header names. The body must be
// at most 65,535 bytes and is copied as it is.
std::vector<std::byte> encode_packet(const PacketHeader& header, std::span<const std::byte> body);

// The body of fack and of nocall with a body.
struct Fack {
  std::uint16_t window_kilobytes = 0;
  std::uint32_t max_tsdu = 0;
  std::uint32_t max_fragment = 0;
  std::uint16_t serial = 0;
  std::vector<std::uint32_t> selective;  // bit b: fragment (header's fragment + 1 + b) is here
};

// Nothing for an empty body (legal: only the header's fragment counts) and for a malformed one. The
// window of a version 0 body, which counts packets, is turned into kilobytes.
std::optional<Fack> decode_fack(std::span<const std::byte> body, bool little_endian);
std::vector<std::byte> encode_fack(const Fack& fack, bool little_endian);

// The 32-bit status of a reject or fault body; nothing when the body is too short.
std::optional<std::uint32_t> decode_status_body(std::span<const std::byte> body,
                                                bool little_endian);
std::vector<std::byte> encode_status_body(std::uint32_t status, bool little_endian);

// Version 0 and the cancel's number.
std::vector<std::byte> encode_cancel_body(std::uint32_t cancel_id, bool little_endian);

}  // namespace rpc
