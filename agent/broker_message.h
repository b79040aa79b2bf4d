// SPDX-License-Identifier: Apache-2.0
// The location broker's message block: a fixed header, up to eight 16-bit words, a data area. All
// numbers are big-endian. Bytes in, values out.
//
//   0  identifier 00 'H' 'X' 'A'   4  total length   6  command   7  words W
//   8  status   10  eight reserved words   26  W words   26 + 2W  data bytes B   28 + 2W  data

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace agent {

inline constexpr std::size_t kBrokerHeaderSize = 28;  // without words and data
inline constexpr std::size_t kLargestBrokerMessage = 16384;
inline constexpr std::size_t kMostBrokerWords = 8;

enum class BrokerCommand : std::uint8_t {
  negotiate = 0,
  shutdown = 1,
  activate = 2,
  deactivate = 3,
  register_server = 5,
  unregister_server = 6,
};

struct BrokerMessage {
  std::uint8_t command = 0;
  std::uint16_t status = 0;
  std::vector<std::uint16_t> words;  // at most 8
  std::vector<std::byte> data;
};

struct BrokerDecoding {
  enum class State { incomplete, malformed, complete };
  State state = State::incomplete;
  std::size_t size = 0;  // of the complete message; more may follow it
  BrokerMessage message;
};

// The message at the front of `bytes`. A wrong identifier, length or count is malformed as soon as
// it can be seen, so an incomplete message never grows beyond kLargestBrokerMessage.
BrokerDecoding decode_broker_message(std::span<const std::byte> bytes);
// The message must stay within kLargestBrokerMessage.
std::vector<std::byte> encode_broker_message(const BrokerMessage& message);

// Data items: the byte 0x02, a text and a zero byte each. False when the data is anything else or
// holds more than `most` items.
bool decode_broker_items(std::span<const std::byte> data, std::size_t most,
                         std::vector<std::string>& items);
std::vector<std::byte> encode_broker_item(std::string_view text);

}  // namespace agent
