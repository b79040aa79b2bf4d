// SPDX-License-Identifier: Apache-2.0
// Bytes and packets for tests of the packet layer: written as hexadecimal text, as in docs/formats,
// and as names.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/rpc/wire/pdu.h"

namespace rpc::test {

using Bytes = std::vector<std::byte>;

// "04 02 ff" to bytes; blanks and line ends are skipped, "00*16" repeats a byte.
inline Bytes hex(std::string_view text) {
  Bytes bytes;
  std::string digits;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '*') {
      std::size_t length = 0;
      const int count = std::stoi(std::string(text.substr(i + 1, 6)), &length);
      bytes.insert(bytes.end(), static_cast<std::size_t>(count - 1), bytes.back());
      i += length;
    } else if (text[i] != ' ' && text[i] != '\n') {
      digits += text[i];
    }
    if (digits.size() == 2) {
      bytes.push_back(static_cast<std::byte>(std::stoi(digits, nullptr, 16)));
      digits.clear();
    }
  }
  return bytes;
}

// The same the other way, in groups of four bytes.
inline std::string hex_text(std::span<const std::byte> bytes) {
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    char digits[4];
    std::snprintf(digits, sizeof(digits), "%s%02x", i % 4 == 0 && i > 0 ? " " : "",
                  std::to_integer<unsigned>(bytes[i]));
    text += digits;
  }
  return text;
}

inline const char* name_of(PacketType type) {
  static constexpr const char* kNames[] = {"request", "ping",   "response",  "fault",
                                           "working", "nocall", "reject",    "ack",
                                           "cancel",  "fack",   "cancel_ack"};
  return kNames[static_cast<std::size_t>(type)];
}

// The types of packets that have a header: "request ping ping".
template <typename Packets>
std::string names(const Packets& packets) {
  std::string result;
  for (const auto& packet : packets)
    result += (result.empty() ? "" : " ") + std::string(name_of(packet.header.type));
  return result;
}

// Bytes that differ from place to place, so that a body joined wrongly shows.
inline Bytes pattern(std::size_t size, std::uint32_t seed = 1) {
  Bytes bytes(size);
  std::uint32_t state = seed * 2654435761U + 1;
  for (std::byte& each : bytes) {
    state = state * 1664525U + 1013904223U;
    each = static_cast<std::byte>(state >> 24);
  }
  return bytes;
}

}  // namespace rpc::test
