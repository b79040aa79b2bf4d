#include "platform/rpc/uuid.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "platform/rpc/rpc.h"
#include "platform/rpc/text.h"

namespace rpc {
namespace {

constexpr std::size_t kTextLength = 36;

constexpr bool is_dash_position(std::size_t index) {
  return index == 8 || index == 13 || index == 18 || index == 23;
}

// 16 for anything but a hexadecimal digit. Independent of the locale.
constexpr unsigned digit_value(char c) {
  if (c >= '0' && c <= '9')
    return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f')
    return static_cast<unsigned>(c - 'a') + 10;
  if (c >= 'A' && c <= 'F')
    return static_cast<unsigned>(c - 'A') + 10;
  return 16;
}

// The text's digits are the bytes of the UUID in network order.
uuid_t from_network_bytes(const std::array<std::uint8_t, 16>& bytes) {
  uuid_t uuid{};
  uuid.time_low = static_cast<std::uint32_t>(bytes[0]) << 24 |
                  static_cast<std::uint32_t>(bytes[1]) << 16 |
                  static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
  uuid.time_mid = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
  uuid.time_hi_and_version = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
  uuid.clock_seq_hi_and_reserved = bytes[8];
  uuid.clock_seq_low = bytes[9];
  for (std::size_t i = 0; i < sizeof uuid.node; ++i)
    uuid.node[i] = bytes[10 + i];
  return uuid;
}

bool fill_random(std::array<std::uint8_t, 16>& bytes) {
  // Up to 256 bytes come whole or not at all; only the wait for the seed at boot is interruptible.
  for (;;) {
    const ssize_t got = getrandom(bytes.data(), bytes.size(), 0);
    if (got == static_cast<ssize_t>(bytes.size()))
      return true;
    if (got < 0 && errno != EINTR)
      return false;
  }
}

}  // namespace

std::optional<uuid_t> random_uuid() {
  std::array<std::uint8_t, 16> bytes{};
  if (!fill_random(bytes))
    return std::nullopt;
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
  return from_network_bytes(bytes);
}

std::string uuid_to_text(const uuid_t& uuid) {
  std::array<char, kTextLength + 1> text{};
  std::snprintf(text.data(), text.size(), "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                uuid.time_low, uuid.time_mid, uuid.time_hi_and_version,
                uuid.clock_seq_hi_and_reserved, uuid.clock_seq_low, uuid.node[0], uuid.node[1],
                uuid.node[2], uuid.node[3], uuid.node[4], uuid.node[5]);
  return {text.data(), kTextLength};
}

std::optional<uuid_t> uuid_from_text(std::string_view text) {
  if (text.size() != kTextLength)
    return std::nullopt;
  std::array<std::uint8_t, 16> bytes{};
  std::size_t digits = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (is_dash_position(i)) {
      if (text[i] != '-')
        return std::nullopt;
      continue;
    }
    const unsigned value = digit_value(text[i]);
    if (value > 15)
      return std::nullopt;
    std::uint8_t& byte = bytes[digits / 2];
    byte = static_cast<std::uint8_t>(byte << 4 | value);
    ++digits;
  }
  return from_network_bytes(bytes);
}

}  // namespace rpc

RPC_STATUS UuidCreate(uuid_t* uuid) {
  if (uuid == nullptr)
    return RPC_S_INVALID_ARG;
  const std::optional<uuid_t> created = rpc::random_uuid();
  if (!created)
    return RPC_S_CANNOT_SUPPORT;
  *uuid = *created;
  return RPC_S_OK;
}

RPC_STATUS UuidCreateNil(uuid_t* uuid) {
  if (uuid == nullptr)
    return RPC_S_INVALID_ARG;
  *uuid = uuid_t{};
  return RPC_S_OK;
}

int UuidIsNil(const uuid_t* uuid, RPC_STATUS* status) {
  if (status != nullptr)
    *status = RPC_S_OK;
  return uuid == nullptr || *uuid == uuid_t{} ? 1 : 0;
}

RPC_STATUS UuidToStringA(const uuid_t* uuid, char** text) {
  if (uuid == nullptr || text == nullptr)
    return RPC_S_INVALID_ARG;
  return rpc::hand_out_text(rpc::uuid_to_text(*uuid), text);
}

RPC_STATUS UuidFromStringA(const char* text, uuid_t* uuid) {
  if (uuid == nullptr)
    return RPC_S_INVALID_ARG;
  if (text == nullptr)
    return RPC_S_INVALID_STRING_UUID;
  const std::optional<uuid_t> read = rpc::uuid_from_text(text);
  if (!read)
    return RPC_S_INVALID_STRING_UUID;
  *uuid = *read;
  return RPC_S_OK;
}
