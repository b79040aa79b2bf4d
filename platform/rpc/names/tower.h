// SPDX-License-Identifier: Apache-2.0
// Protocol towers (C706 appendices I and L): how a server's interface, protocol sequence, address
// and endpoint are written in the endpoint map. One floor of the tower says one thing; all numbers
// are little-endian but ports and addresses, which are in network order.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/rpc/rpc.h"

namespace rpc {

// Identifiers of the floors (C706 appendix I).
namespace floor_id {
inline constexpr std::uint8_t kTcp = 0x07;
inline constexpr std::uint8_t kUdp = 0x08;
inline constexpr std::uint8_t kIp = 0x09;
inline constexpr std::uint8_t kConnectionless = 0x0A;
inline constexpr std::uint8_t kConnectionOriented = 0x0B;
inline constexpr std::uint8_t kLocal = 0x0C;
inline constexpr std::uint8_t kUuid = 0x0D;
inline constexpr std::uint8_t kIpx = 0x0E;
inline constexpr std::uint8_t kNamedPipe = 0x0F;
inline constexpr std::uint8_t kLocalPipe = 0x10;
inline constexpr std::uint8_t kNetBios = 0x11;
inline constexpr std::uint8_t kSpx = 0x13;
inline constexpr std::uint8_t kHttp = 0x1F;
}  // namespace floor_id

// The transfer syntax of every tower that is written: NDR version 2.0 (C706 14).
inline constexpr uuid_t kNdrSyntax = {0x8a885d04, 0x1ceb, 0x11c9,
                                      0x9f,       0xe8,   {0x08, 0x00, 0x2b, 0x10, 0x48, 0x60}};
inline constexpr std::uint16_t kNdrMajor = 2;
inline constexpr std::uint16_t kNdrMinor = 0;

struct Tower {
  // Empty for a tower whose protocols the runtime does not know; `floors` then says which they are.
  rpc_if_id_t interface_id{};
  std::string protocol_sequence;
  // Internet: dotted. IPX and SPX: network and node as 20 hexadecimal digits. Named pipes: the
  // server's name. Local calls: empty.
  std::string network_address;
  // A decimal port (empty for port 0, which says that there is none) or the name of a pipe.
  std::string endpoint;
  std::vector<unsigned> floors = {};  // identifiers from the third floor on
};

// Nothing for bytes that are no tower of a protocol sequence that the runtime knows: a length
// beyond the end, a floor of another kind or size, a text without its end. The transfer syntax is
// not judged. Floors and bytes behind the address are ignored.
std::optional<Tower> decode_tower(std::span<const std::byte> octets);
// The same, and towers of other protocols as far as they are known: interface and floors.
std::optional<Tower> decode_any_tower(std::span<const std::byte> octets);

// Nothing for an unknown protocol sequence and for an address or endpoint that it cannot carry.
std::optional<std::vector<std::byte>> encode_tower(const Tower& tower);

}  // namespace rpc
