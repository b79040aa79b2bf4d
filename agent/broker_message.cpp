// SPDX-License-Identifier: Apache-2.0
#include "agent/broker_message.h"

#include <algorithm>
#include <array>

namespace agent {

namespace {

constexpr std::array<std::byte, 4> kIdentifier = {std::byte{0}, std::byte{'H'}, std::byte{'X'},
                                                  std::byte{'A'}};
constexpr std::byte kItemMark{0x02};
constexpr std::size_t kLengthOffset = 4;
constexpr std::size_t kWordCountOffset = 7;
constexpr std::size_t kStatusOffset = 8;
constexpr std::size_t kReservedSize = 16;
constexpr std::size_t kWordsOffset = kStatusOffset + 2 + kReservedSize;

std::uint16_t word_at(std::span<const std::byte> bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(std::to_integer<unsigned>(bytes[offset]) << 8 |
                                    std::to_integer<unsigned>(bytes[offset + 1]));
}

void put_word(std::vector<std::byte>& bytes, std::size_t value) {
  bytes.push_back(static_cast<std::byte>(value >> 8 & 0xFF));
  bytes.push_back(static_cast<std::byte>(value & 0xFF));
}

}  // namespace

BrokerDecoding decode_broker_message(std::span<const std::byte> bytes) {
  BrokerDecoding result;
  const std::size_t compared = std::min(bytes.size(), kIdentifier.size());
  if (!std::equal(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(compared),
                  kIdentifier.begin())) {
    result.state = BrokerDecoding::State::malformed;
    return result;
  }
  if (bytes.size() <= kWordCountOffset)
    return result;
  const std::size_t length = word_at(bytes, kLengthOffset);
  const std::size_t words = std::to_integer<std::size_t>(bytes[kWordCountOffset]);
  if (words > kMostBrokerWords || length > kLargestBrokerMessage ||
      length < kBrokerHeaderSize + 2 * words) {
    result.state = BrokerDecoding::State::malformed;
    return result;
  }
  if (bytes.size() < length)
    return result;
  const std::size_t data_offset = kBrokerHeaderSize + 2 * words;
  if (data_offset + word_at(bytes, data_offset - 2) != length) {
    result.state = BrokerDecoding::State::malformed;
    return result;
  }
  result.state = BrokerDecoding::State::complete;
  result.size = length;
  result.message.command = std::to_integer<std::uint8_t>(bytes[kWordCountOffset - 1]);
  result.message.status = word_at(bytes, kStatusOffset);
  for (std::size_t i = 0; i < words; ++i)
    result.message.words.push_back(word_at(bytes, kWordsOffset + 2 * i));
  const auto data = bytes.subspan(data_offset, length - data_offset);
  result.message.data.assign(data.begin(), data.end());
  return result;
}

std::vector<std::byte> encode_broker_message(const BrokerMessage& message) {
  std::vector<std::byte> bytes(kIdentifier.begin(), kIdentifier.end());
  put_word(bytes, kBrokerHeaderSize + 2 * message.words.size() + message.data.size());
  bytes.push_back(static_cast<std::byte>(message.command));
  bytes.push_back(static_cast<std::byte>(message.words.size()));
  put_word(bytes, message.status);
  bytes.resize(bytes.size() + kReservedSize);
  for (const std::uint16_t word : message.words)
    put_word(bytes, word);
  put_word(bytes, message.data.size());
  bytes.insert(bytes.end(), message.data.begin(), message.data.end());
  return bytes;
}

bool decode_broker_items(std::span<const std::byte> data, std::size_t most,
                         std::vector<std::string>& items) {
  while (!data.empty()) {
    const auto end = std::find(data.begin(), data.end(), std::byte{0});
    if (data.front() != kItemMark || end == data.end() || items.size() == most)
      return false;
    std::string& item = items.emplace_back();
    std::transform(data.begin() + 1, end, std::back_inserter(item),
                   [](std::byte byte) { return static_cast<char>(byte); });
    data = data.subspan(static_cast<std::size_t>(end - data.begin()) + 1);
  }
  return true;
}

std::vector<std::byte> encode_broker_item(std::string_view text) {
  std::vector<std::byte> bytes{kItemMark};
  std::transform(text.begin(), text.end(), std::back_inserter(bytes),
                 [](char c) { return static_cast<std::byte>(c); });
  bytes.push_back(std::byte{0});
  return bytes;
}

}  // namespace agent
