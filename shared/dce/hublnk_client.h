// SPDX-License-Identifier: Apache-2.0
// Client of the agent's location broker daemon (hublnkd): message blocks of a fixed header, up to
// eight parameter words and a data area, over one TCP connection. docs/formats/location-broker.md
// shows the bytes.
//
// Every operation returns 1 for success and 0 for failure and stores a status: 0, a number of the
// client itself, a socket error, or the status word of the daemon's reply.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/rpc/names/uuid.h"
#include "platform/sys/sockets.h"

inline constexpr const char* cHublnkdServiceName = "hublnkd";
inline constexpr const char* cZtserverServiceName = "ztserver";
inline constexpr std::uint16_t kHublnkdPort = 382;  // when the services database has neither

// --- The message on the wire; 16-bit fields in network byte order.
inline constexpr std::size_t kHublnkLengthOffset = 4;
inline constexpr std::size_t kHublnkCommandOffset = 6;
inline constexpr std::size_t kHublnkWordCountOffset = 7;
inline constexpr std::size_t kHublnkStatusOffset = 8;
inline constexpr std::size_t kHublnkReservedOffset = 10;
inline constexpr std::size_t kHublnkWordsOffset = 26;
inline constexpr std::size_t kHublnkReservedWords = 8;
inline constexpr std::size_t kHublnkMostWords = 8;
inline constexpr std::size_t kHublnkFixedSize = 28;  // without words and data
inline constexpr std::size_t kHublnkBufferSize = 16384;
inline constexpr unsigned char kHublnkItemMark = 0x02;
static_assert(kHublnkReservedOffset + 2 * kHublnkReservedWords == kHublnkWordsOffset);

enum HublnkCommand : std::uint8_t {
  kHublnkNegotiate = 0,
  kHublnkShutdown = 1,
  kHublnkActivateServer = 2,
  kHublnkDeactivateServer = 3,
  kHublnkRegisterServer = 5,
  kHublnkUnregisterServer = 6,
};

// Statuses of the client itself.
inline constexpr std::uint32_t kHublnkLookupNotSupported = 8;
inline constexpr std::uint32_t kHublnkNoReply = 9;
inline constexpr std::uint32_t kHublnkMalformed = sockets::WSAEINVAL;
inline constexpr std::uint32_t kHublnkCutShort = sockets::WSAECONNRESET;

struct HXMessage_t {
  std::uint8_t fHxmbIdf[4];
  std::uint16_t fHxmbLen;  // filled on receipt
  std::uint8_t fHxmbCom;
  std::uint8_t fHxmbWct;  // parameter words that travel, at most 8
  std::uint16_t fHxmbErr;
  std::uint16_t fHxmbRes[kHublnkReservedWords];
  std::uint16_t fHxmbParms[kHublnkMostWords];
  std::uint16_t fHxmbBcc;
  std::uint8_t*
      fHxmbData;  // the caller's: what is sent, or kHublnkBufferSize bytes to receive into
};

struct hublnk_sServerDescriptor {
  uuid_t fObjId;
  uuid_t fObjType;
  std::uint16_t fNameLen;
  std::uint16_t fPathLen;
  char fName[256];
  char fPath[1024];
};

// How long a connection attempt and the receipt of one whole reply may take.
struct hublnk_Limits {
  std::chrono::seconds connect = sockets::kLongestConnect;
  std::chrono::seconds reply{30};
};

// The port of the daemon in network byte order, from the services database or the default.
std::uint16_t hublnk_Port();

unsigned char hublnk_Open(const char* hostName, sockets::Socket* fd, std::uint32_t* status);
// The same to an address, with limits of the caller's.
unsigned char hublnk_OpenAt(const sockaddr_in& address, const hublnk_Limits& limits,
                            sockets::Socket* fd, std::uint32_t* status);
// Always succeeds; the descriptor becomes invalid.
unsigned char hublnk_Close(sockets::Socket& fd, std::uint32_t* status);

// A daemon that closes without a reply counts as version 1.0 with status 0; `closed`, where it is
// given, tells it from one that says so.
unsigned char hublnk_Negotiate(sockets::Socket fd, std::uint16_t* versionMajor,
                               std::uint16_t* versionMinor, std::uint32_t* status,
                               const hublnk_Limits& limits = {}, bool* closed = nullptr);
unsigned char hublnk_Shutdown(sockets::Socket fd, std::uint32_t* status);
unsigned char hublnk_RegisterServer(sockets::Socket fd, uuid_t serverType, const char* serverName,
                                    const char* serverPath, uuid_t* serverObjId,
                                    std::uint32_t* status);
unsigned char hublnk_UnregisterServer(sockets::Socket fd, uuid_t serverType, const char* serverName,
                                      std::uint32_t* status);
unsigned char hublnk_ActivateServer(sockets::Socket fd, uuid_t serverType, const char* serverName,
                                    uuid_t* serverObjId, std::uint32_t* status);
unsigned char hublnk_DeactivateServer(sockets::Socket fd, uuid_t serverType, const char* serverName,
                                      std::uint32_t* status);
// Not supported: sends nothing, status 8, result 0.
unsigned char hublnk_LookupServer(sockets::Socket fd, uuid_t serverType,
                                  std::uint32_t* lookupHandle, std::uint32_t maxIndex,
                                  std::uint32_t* lastIndex, hublnk_sServerDescriptor* results,
                                  std::uint32_t* status);

// --- Framing.
// Writes the message; the buffer holds kHublnkBufferSize bytes. A message that does not fit is
// refused with kHublnkMalformed.
unsigned char MarshallHublnkPacket(const HXMessage_t& hxaMessage, std::span<std::byte> msgBuf,
                                   std::size_t* msgBufLen, std::uint32_t* status);
// Reads the message at the start of the buffer. Words that did not travel keep the values they had.
// Refused with kHublnkMalformed: a length that is not the sum of its parts or exceeds the buffer,
// and more words than there are.
unsigned char UnmarshallHublnkPacket(HXMessage_t& hxaMessage, std::span<const std::byte> msgBuf,
                                     std::uint32_t* status);
unsigned char SendHublnkPacket(sockets::Socket fd, std::span<const std::byte> msgBuf,
                               std::uint32_t* status, const hublnk_Limits& limits = {});
// Receives one packet; length 0 with status 0 when the daemon closed or reset the connection before
// the first byte. A connection that ends within the packet gives kHublnkCutShort, a length field
// that no packet can have kHublnkMalformed, a time-out 10060.
unsigned char RecvHublnkPacket(sockets::Socket fd, std::span<std::byte> msgBuf,
                               std::size_t* msgBufLen, std::uint32_t* status,
                               const hublnk_Limits& limits = {});
