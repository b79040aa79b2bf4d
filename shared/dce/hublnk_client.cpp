// SPDX-License-Identifier: Apache-2.0
#include "shared/dce/hublnk_client.h"

#include <algorithm>
#include <cstring>

#include "shared/dce/hublnk_exchange.h"

namespace {

// The workstation's C library numbers for an interrupted call and an invalid argument; like a
// reset, they count as the end of the connection and not as an error of their own.
constexpr int kInterrupted = 4;
constexpr int kInvalidArgument = 22;

bool ends_silently(int error) {
  return error == kInterrupted || error == kInvalidArgument || error == sockets::WSAECONNRESET;
}

void put16(std::span<std::byte> buffer, std::size_t offset, std::size_t value) {
  buffer[offset] = static_cast<std::byte>(value >> 8 & 0xFF);
  buffer[offset + 1] = static_cast<std::byte>(value & 0xFF);
}

std::uint16_t get16(std::span<const std::byte> buffer, std::size_t offset) {
  return static_cast<std::uint16_t>(std::to_integer<unsigned>(buffer[offset]) << 8 |
                                    std::to_integer<unsigned>(buffer[offset + 1]));
}

std::size_t packet_length(const HXMessage_t& message) {
  return message.fHxmbBcc + 2U * message.fHxmbWct + kHublnkFixedSize;
}

}  // namespace

std::uint16_t hublnk_Port() {
  for (const char* service : {cHublnkdServiceName, cZtserverServiceName}) {
    if (const auto entry = sockets::getservbyname(service, "tcp"))
      return entry->s_port;
  }
  return sockets::htons(kHublnkdPort);
}

unsigned char hublnk_OpenAt(const sockaddr_in& address, const hublnk_Limits& limits,
                            sockets::Socket* fd, std::uint32_t* status) {
  *status = 0;
  sockets::Socket connection = sockets::socket(AF_INET, SOCK_STREAM, 0);
  if (connection == sockets::kInvalidSocket) {
    *status = last_socket_error();
    return 0;
  }
  if (sockets::connect(connection, address, limits.connect) != 0) {
    *status = last_socket_error();
    sockets::closesocket(connection);
    return 0;
  }
  *fd = connection;
  return 1;
}

unsigned char hublnk_Close(sockets::Socket& fd, std::uint32_t* status) {
  sockets::closesocket(fd);
  fd = sockets::kInvalidSocket;
  *status = 0;
  return 1;
}

unsigned char hublnk_Negotiate(sockets::Socket fd, std::uint16_t* versionMajor,
                               std::uint16_t* versionMinor, std::uint32_t* status,
                               const hublnk_Limits& limits, bool* closed) {
  *status = 0;
  Exchange exchange(kHublnkNegotiate);
  if (!exchange.run(fd, limits, status))
    return 0;
  if (closed != nullptr)
    *closed = !exchange.replied();
  if (!exchange.replied()) {
    // A daemon from before the negotiation closes the connection at the unknown command.
    *versionMajor = 1;
    *versionMinor = 0;
    return 1;
  }
  *versionMajor = exchange.reply().fHxmbParms[0];
  *versionMinor = exchange.reply().fHxmbParms[1];
  *status = exchange.reply().fHxmbErr;
  return 1;
}

unsigned char MarshallHublnkPacket(const HXMessage_t& hxaMessage, std::span<std::byte> msgBuf,
                                   std::size_t* msgBufLen, std::uint32_t* status) {
  *status = 0;
  *msgBufLen = 0;
  const std::size_t length = packet_length(hxaMessage);
  if (hxaMessage.fHxmbWct > kHublnkMostWords ||
      length > std::min(msgBuf.size(), kHublnkBufferSize)) {
    *status = kHublnkMalformed;
    return 0;
  }
  std::memcpy(msgBuf.data(), hxaMessage.fHxmbIdf, sizeof hxaMessage.fHxmbIdf);
  put16(msgBuf, kHublnkLengthOffset, length);
  msgBuf[kHublnkCommandOffset] = std::byte{hxaMessage.fHxmbCom};
  msgBuf[kHublnkWordCountOffset] = std::byte{hxaMessage.fHxmbWct};
  put16(msgBuf, kHublnkStatusOffset, hxaMessage.fHxmbErr);
  for (std::size_t i = 0; i < kHublnkReservedWords; ++i)
    put16(msgBuf, kHublnkReservedOffset + 2 * i, hxaMessage.fHxmbRes[i]);
  for (std::size_t i = 0; i < hxaMessage.fHxmbWct; ++i)
    put16(msgBuf, kHublnkWordsOffset + 2 * i, hxaMessage.fHxmbParms[i]);
  put16(msgBuf, kHublnkWordsOffset + 2U * hxaMessage.fHxmbWct, hxaMessage.fHxmbBcc);
  if (hxaMessage.fHxmbBcc != 0)
    std::memcpy(msgBuf.data() + length - hxaMessage.fHxmbBcc, hxaMessage.fHxmbData,
                hxaMessage.fHxmbBcc);
  *msgBufLen = length;
  return 1;
}

unsigned char UnmarshallHublnkPacket(HXMessage_t& hxaMessage, std::span<const std::byte> msgBuf,
                                     std::uint32_t* status) {
  *status = kHublnkMalformed;
  if (msgBuf.size() < kHublnkFixedSize)
    return 0;
  const std::size_t words = std::to_integer<std::size_t>(msgBuf[kHublnkWordCountOffset]);
  const std::size_t length = get16(msgBuf, kHublnkLengthOffset);
  if (words > kHublnkMostWords || length > std::min(msgBuf.size(), kHublnkBufferSize) ||
      length < kHublnkFixedSize + 2 * words)
    return 0;
  const std::uint16_t bytes = get16(msgBuf, kHublnkWordsOffset + 2 * words);
  if (length != kHublnkFixedSize + 2 * words + bytes)
    return 0;

  std::memcpy(hxaMessage.fHxmbIdf, msgBuf.data(), sizeof hxaMessage.fHxmbIdf);
  hxaMessage.fHxmbLen = static_cast<std::uint16_t>(length);
  hxaMessage.fHxmbCom = std::to_integer<std::uint8_t>(msgBuf[kHublnkCommandOffset]);
  hxaMessage.fHxmbWct = static_cast<std::uint8_t>(words);
  hxaMessage.fHxmbErr = get16(msgBuf, kHublnkStatusOffset);
  for (std::size_t i = 0; i < kHublnkReservedWords; ++i)
    hxaMessage.fHxmbRes[i] = get16(msgBuf, kHublnkReservedOffset + 2 * i);
  for (std::size_t i = 0; i < words; ++i)
    hxaMessage.fHxmbParms[i] = get16(msgBuf, kHublnkWordsOffset + 2 * i);
  hxaMessage.fHxmbBcc = bytes;
  if (bytes != 0)
    std::memcpy(hxaMessage.fHxmbData, msgBuf.data() + length - bytes, bytes);
  *status = 0;
  return 1;
}

unsigned char SendHublnkPacket(sockets::Socket fd, std::span<const std::byte> msgBuf,
                               std::uint32_t* status, const hublnk_Limits& limits) {
  *status = sockets::send(fd, msgBuf, sockets::deadline_after(limits.reply)) < 0
                ? last_socket_error()
                : 0;
  return *status == 0;
}

unsigned char RecvHublnkPacket(sockets::Socket fd, std::span<std::byte> msgBuf,
                               std::size_t* msgBufLen, std::uint32_t* status,
                               const hublnk_Limits& limits) {
  *status = 0;
  *msgBufLen = 0;
  const std::size_t most = std::min(msgBuf.size(), kHublnkBufferSize);
  // One deadline for the whole packet: a daemon that sends a byte now and then gains no time.
  const sockets::Deadline deadline = sockets::deadline_after(limits.reply);
  std::size_t expected = 0;  // unknown until the length field is there
  while (expected == 0 || *msgBufLen < expected) {
    const int count = sockets::recv(fd, msgBuf.subspan(*msgBufLen, most - *msgBufLen), deadline);
    if (count <= 0) {
      const bool ended = count == 0 || ends_silently(sockets::WSAGetLastError());
      if (!ended)
        *status = last_socket_error();
      else if (*msgBufLen != 0)
        *status = kHublnkCutShort;
      return *status == 0;
    }
    *msgBufLen += static_cast<std::size_t>(count);
    if (expected == 0 && *msgBufLen >= kHublnkLengthOffset + 2) {
      expected = get16(msgBuf, kHublnkLengthOffset);
      if (expected < kHublnkFixedSize || expected > most) {
        *status = kHublnkMalformed;
        return 0;
      }
    }
  }
  return 1;
}
