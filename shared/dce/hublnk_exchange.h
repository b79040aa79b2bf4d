// SPDX-License-Identifier: Apache-2.0
// One command of the location broker and its reply.

#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "shared/dce/hublnk_client.h"

inline std::uint32_t last_socket_error() {
  return static_cast<std::uint32_t>(sockets::WSAGetLastError());
}

class Exchange {
 public:
  explicit Exchange(HublnkCommand command) {
    message_.fHxmbIdf[1] = 'H';
    message_.fHxmbIdf[2] = 'X';
    message_.fHxmbIdf[3] = 'A';
    message_.fHxmbCom = command;
    message_.fHxmbData = data_.data();
  }

  // Appends a data item. A text for which there is no room makes the exchange fail.
  void add(std::string_view text) {
    const std::size_t size = text.size() + 2;
    if (size > data_.size() - kHublnkFixedSize - message_.fHxmbBcc) {
      fits_ = false;
      return;
    }
    std::uint8_t* at = data_.data() + message_.fHxmbBcc;
    *at++ = kHublnkItemMark;
    at = std::copy(text.begin(), text.end(), at);
    *at = 0;
    message_.fHxmbBcc = static_cast<std::uint16_t>(message_.fHxmbBcc + size);
  }

  // Sends the command and receives the reply. False: the status holds why. True without a reply
  // when the daemon closed the connection instead.
  bool run(sockets::Socket fd, const hublnk_Limits& limits, std::uint32_t* status) {
    if (!fits_) {
      *status = kHublnkMalformed;
      return false;
    }
    std::array<std::byte, kHublnkBufferSize> packet;
    std::size_t length = 0;
    if (!MarshallHublnkPacket(message_, packet, &length, status) ||
        !SendHublnkPacket(fd, std::span(packet).first(length), status, limits) ||
        !RecvHublnkPacket(fd, packet, &length, status, limits))
      return false;
    replied_ = length != 0;
    if (!replied_)
      return true;
    data_.fill(0);
    return UnmarshallHublnkPacket(message_, std::span(packet).first(length), status) != 0;
  }

  bool replied() const { return replied_; }
  const HXMessage_t& reply() const { return message_; }

  // The text of the reply's first item, without the mark before it.
  std::string first_item() const {
    if (message_.fHxmbBcc < 2)
      return {};
    const char* start = reinterpret_cast<const char*>(data_.data()) + 1;
    return std::string(start, strnlen(start, message_.fHxmbBcc - 1U));
  }

 private:
  HXMessage_t message_{};
  std::array<std::uint8_t, kHublnkBufferSize> data_{};
  bool fits_ = true;
  bool replied_ = false;
};
