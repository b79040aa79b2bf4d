// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/names/uuid.h"

#include <array>
#include <cstdio>

#include "platform/rpc/handed_out_text.h"
#include "platform/rpc/names/random_source.h"
#include "platform/rpc/rpc.h"
#include "platform/rpc/wire/wire_bytes.h"

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

}  // namespace

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
  // The digits are the bytes in network order.
  std::array<std::byte, 16> bytes{};
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
    std::byte& byte = bytes[digits / 2];
    byte = byte << 4 | static_cast<std::byte>(value);
    ++digits;
  }
  return load_uuid(bytes.data(), false);
}

}  // namespace rpc

RPC_STATUS UuidCreate(uuid_t* uuid) {
  if (uuid == nullptr)
    return RPC_S_INVALID_ARG;
  *uuid = rpc::SystemRandom().uuid();
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
