// SPDX-License-Identifier: Apache-2.0
// The 16-byte identifier of interfaces, objects and activities, and its text form
// (DCE 1.1: RPC, C706, appendix A).

#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Fields in host order; on the wire the first three follow the packet's byte order.
struct uuid_t {
  std::uint32_t time_low;
  std::uint16_t time_mid;
  std::uint16_t time_hi_and_version;
  std::uint8_t clock_seq_hi_and_reserved;
  std::uint8_t clock_seq_low;
  std::uint8_t node[6];

  friend bool operator==(const uuid_t&, const uuid_t&) = default;
  friend auto operator<=>(const uuid_t&, const uuid_t&) = default;
};
static_assert(sizeof(uuid_t) == 16 && alignof(uuid_t) == 4);
static_assert(offsetof(uuid_t, node) == 10);

using UUID = uuid_t;

namespace rpc {

// 8-4-4-4-12 hexadecimal digits, written in lower case.
std::string uuid_to_text(const uuid_t& uuid);
// Reads both cases; nothing for any other form, surrounding blanks included.
std::optional<uuid_t> uuid_from_text(std::string_view text);

}  // namespace rpc
