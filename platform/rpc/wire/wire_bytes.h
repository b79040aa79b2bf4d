// SPDX-License-Identifier: Apache-2.0
// Loads and stores of fixed-size values in either byte order, for the packet layer. The caller has
// checked that the bytes are there.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/rpc/names/uuid.h"

namespace rpc {

inline std::uint16_t load16(const std::byte* at, bool little_endian) {
  const auto first = std::to_integer<std::uint16_t>(at[0]);
  const auto second = std::to_integer<std::uint16_t>(at[1]);
  return static_cast<std::uint16_t>(little_endian ? first | second << 8 : first << 8 | second);
}

inline std::uint32_t load32(const std::byte* at, bool little_endian) {
  const std::uint32_t first = load16(at, little_endian);
  const std::uint32_t second = load16(at + 2, little_endian);
  return little_endian ? first | second << 16 : first << 16 | second;
}

inline void store16(std::byte* at, std::uint16_t value, bool little_endian) {
  const auto low = static_cast<std::byte>(value & 0xFF);
  const auto high = static_cast<std::byte>(value >> 8);
  at[0] = little_endian ? low : high;
  at[1] = little_endian ? high : low;
}

inline void store32(std::byte* at, std::uint32_t value, bool little_endian) {
  const auto low = static_cast<std::uint16_t>(value & 0xFFFF);
  const auto high = static_cast<std::uint16_t>(value >> 16);
  store16(at, little_endian ? low : high, little_endian);
  store16(at + 2, little_endian ? high : low, little_endian);
}

inline uuid_t load_uuid(const std::byte* at, bool little_endian) {
  uuid_t uuid{};
  uuid.time_low = load32(at, little_endian);
  uuid.time_mid = load16(at + 4, little_endian);
  uuid.time_hi_and_version = load16(at + 6, little_endian);
  uuid.clock_seq_hi_and_reserved = std::to_integer<std::uint8_t>(at[8]);
  uuid.clock_seq_low = std::to_integer<std::uint8_t>(at[9]);
  std::memcpy(uuid.node, at + 10, sizeof uuid.node);
  return uuid;
}

inline void store_uuid(std::byte* at, const uuid_t& uuid, bool little_endian) {
  store32(at, uuid.time_low, little_endian);
  store16(at + 4, uuid.time_mid, little_endian);
  store16(at + 6, uuid.time_hi_and_version, little_endian);
  at[8] = static_cast<std::byte>(uuid.clock_seq_hi_and_reserved);
  at[9] = static_cast<std::byte>(uuid.clock_seq_low);
  std::memcpy(at + 10, uuid.node, sizeof uuid.node);
}

}  // namespace rpc
