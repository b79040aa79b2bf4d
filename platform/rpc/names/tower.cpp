// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/names/tower.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/rpc/names/protocol_sequence.h"
#include "platform/rpc/wire/wire_bytes.h"

namespace rpc {
namespace {

using Bytes = std::span<const std::byte>;

// How the floors above the RPC protocol say where a server is.
enum class Layout {
  internet,  // port, then an internet address
  netware,   // socket, network and node
  pipe,      // pipe name, then the server's name
  local,     // pipe name
};

struct Profile {
  std::string_view protocol_sequence;
  std::uint8_t protocol;   // floor 3
  std::uint8_t transport;  // floor 4
  Layout layout;
};

constexpr Profile kProfiles[] = {
    {protseq::kUdp, floor_id::kConnectionless, floor_id::kUdp, Layout::internet},
    {protseq::kTcp, floor_id::kConnectionOriented, floor_id::kTcp, Layout::internet},
    {protseq::kHttp, floor_id::kConnectionOriented, floor_id::kHttp, Layout::internet},
    {protseq::kNamedPipe, floor_id::kConnectionOriented, floor_id::kNamedPipe, Layout::pipe},
    {protseq::kLocal, floor_id::kLocal, floor_id::kLocalPipe, Layout::local},
    {protseq::kIpx, floor_id::kConnectionless, floor_id::kIpx, Layout::netware},
    {protseq::kSpx, floor_id::kConnectionOriented, floor_id::kSpx, Layout::netware},
};

constexpr std::size_t kCountSize = 2;
constexpr std::size_t kLengthSize = 2;
constexpr std::size_t kUuidLeftSize = 1 + 16 + 2;
constexpr std::size_t kVersionSize = 2;
constexpr std::size_t kPortSize = 2;
constexpr std::size_t kInternetAddressSize = 4;
constexpr std::size_t kNetwareAddressSize = 10;  // network 4, node 6
constexpr std::size_t kAddressFloor = 4;         // counted from 0
constexpr std::size_t kUsedFloors = 16;

struct Floor {
  Bytes left;
  Bytes right;

  bool has(std::uint8_t id, std::size_t right_size) const {
    return is(id) && right.size() == right_size;
  }
  bool is(std::uint8_t id) const {
    return left.size() == 1 && std::to_integer<std::uint8_t>(left[0]) == id;
  }
};

// A counted part of a floor; moves `rest` behind it.
std::optional<Bytes> take_part(Bytes& rest) {
  if (rest.size() < kLengthSize)
    return std::nullopt;
  const std::size_t length = load16(rest.data(), true);
  if (rest.size() - kLengthSize < length)
    return std::nullopt;
  const Bytes part = rest.subspan(kLengthSize, length);
  rest = rest.subspan(kLengthSize + length);
  return part;
}

// All floors are walked, so that a tower cut short is known as one; as many as anybody uses are
// returned.
std::optional<std::vector<Floor>> split_floors(Bytes octets) {
  if (octets.size() < kCountSize)
    return std::nullopt;
  const std::size_t count = load16(octets.data(), true);
  Bytes rest = octets.subspan(kCountSize);
  std::vector<Floor> floors;
  for (std::size_t i = 0; i < count; ++i) {
    const std::optional<Bytes> left = take_part(rest);
    const std::optional<Bytes> right = left ? take_part(rest) : std::nullopt;
    if (!right)
      return std::nullopt;
    if (floors.size() < kUsedFloors)
      floors.push_back({*left, *right});
  }
  return floors;
}

bool is_uuid_floor(const Floor& floor) {
  return floor.left.size() == kUuidLeftSize && floor.right.size() == kVersionSize &&
         std::to_integer<std::uint8_t>(floor.left[0]) == floor_id::kUuid;
}

const Profile* find_profile(const Floor& protocol, const Floor& transport) {
  const auto* found =
      std::find_if(std::begin(kProfiles), std::end(kProfiles), [&](const Profile& profile) {
        return protocol.has(profile.protocol, kVersionSize) && transport.is(profile.transport);
      });
  return found == std::end(kProfiles) ? nullptr : found;
}

std::string read_port(Bytes octets) {
  const unsigned port = load16(octets.data(), false);
  return port == 0 ? std::string{} : std::to_string(port);
}

std::string read_internet_address(Bytes octets) {
  std::string text;
  for (const std::byte octet : octets)
    text += (text.empty() ? "" : ".") + std::to_string(std::to_integer<unsigned>(octet));
  return text;
}

std::string read_netware_address(Bytes octets) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::byte octet : octets) {
    text.push_back(kDigits[std::to_integer<unsigned>(octet >> 4)]);
    text.push_back(kDigits[std::to_integer<unsigned>(octet & std::byte{0x0F})]);
  }
  return text;
}

std::optional<std::string> read_text(Bytes octets) {
  const auto end = std::find(octets.begin(), octets.end(), std::byte{0});
  if (end == octets.end())
    return std::nullopt;
  std::string text(static_cast<std::size_t>(end - octets.begin()), '\0');
  std::copy(octets.begin(), end, reinterpret_cast<std::byte*>(text.data()));
  return text;
}

bool read_internet(const std::vector<Floor>& floors, Tower& tower) {
  if (floors.size() <= kAddressFloor || floors[3].right.size() != kPortSize ||
      !floors[kAddressFloor].has(floor_id::kIp, kInternetAddressSize))
    return false;
  tower.endpoint = read_port(floors[3].right);
  tower.network_address = read_internet_address(floors[kAddressFloor].right);
  return true;
}

// Both forms are met: address and socket in one floor, and the address in a floor of its own.
bool read_netware(const std::vector<Floor>& floors, Tower& tower) {
  Bytes address;
  Bytes socket = floors[3].right;
  if (socket.size() == kNetwareAddressSize + kPortSize) {
    address = socket.first(kNetwareAddressSize);
    socket = socket.subspan(kNetwareAddressSize);
  } else if (floors.size() > kAddressFloor) {
    address = floors[kAddressFloor].right;
    if (address.size() != kNetwareAddressSize)
      return false;
  }
  if (socket.size() != kPortSize)
    return false;
  tower.endpoint = read_port(socket);
  tower.network_address = read_netware_address(address);
  return true;
}

bool read_pipe(const std::vector<Floor>& floors, Tower& tower) {
  if (floors.size() <= kAddressFloor || !floors[kAddressFloor].is(floor_id::kNetBios))
    return false;
  std::optional<std::string> name = read_text(floors[3].right);
  std::optional<std::string> server = read_text(floors[kAddressFloor].right);
  if (!name || !server)
    return false;
  tower.endpoint = std::move(*name);
  tower.network_address = std::move(*server);
  return true;
}

bool read_local(const std::vector<Floor>& floors, Tower& tower) {
  std::optional<std::string> name = read_text(floors[3].right);
  if (!name)
    return false;
  tower.endpoint = std::move(*name);
  return true;
}

bool read_place(Layout layout, const std::vector<Floor>& floors, Tower& tower) {
  switch (layout) {
    case Layout::internet:
      return read_internet(floors, tower);
    case Layout::netware:
      return read_netware(floors, tower);
    case Layout::pipe:
      return read_pipe(floors, tower);
    case Layout::local:
      return read_local(floors, tower);
  }
  return false;
}

using Octets = std::vector<std::byte>;

Octets octets_of_16(std::uint16_t value, bool little_endian) {
  Octets octets(2);
  store16(octets.data(), value, little_endian);
  return octets;
}

Octets octets_of_text(std::string_view text) {
  Octets octets(text.size() + 1);
  std::memcpy(octets.data(), text.data(), text.size());
  return octets;
}

class Writer {
 public:
  // False when a part is longer than its length field can say.
  bool add_floor(const Octets& left, const Octets& right) {
    if (left.size() > 0xFFFF || right.size() > 0xFFFF)
      return false;
    add_part(left);
    add_part(right);
    ++count_;
    store16(octets_.data(), count_, true);
    return true;
  }

  bool add_floor(std::uint8_t id, const Octets& right) {
    return add_floor(Octets{std::byte{id}}, right);
  }

  bool add_uuid_floor(const uuid_t& uuid, std::uint16_t major, std::uint16_t minor) {
    Octets left(kUuidLeftSize);
    left[0] = std::byte{floor_id::kUuid};
    store_uuid(left.data() + 1, uuid, true);
    store16(left.data() + 17, major, true);
    return add_floor(left, octets_of_16(minor, true));
  }

  Octets take() { return std::move(octets_); }

 private:
  void add_part(const Octets& part) {
    const Octets length = octets_of_16(static_cast<std::uint16_t>(part.size()), true);
    octets_.insert(octets_.end(), length.begin(), length.end());
    octets_.insert(octets_.end(), part.begin(), part.end());
  }

  Octets octets_ = Octets(kCountSize);
  std::uint16_t count_ = 0;
};

std::optional<Octets> port_octets(std::string_view text) {
  std::uint16_t port = 0;
  if (!text.empty()) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc{} || end != text.data() + text.size())
      return std::nullopt;
  }
  return octets_of_16(port, false);
}

std::optional<Octets> netware_octets(const std::string& text) {
  if (text.empty())
    return Octets{};
  Octets octets(kNetwareAddressSize);
  if (text.size() != 2 * kNetwareAddressSize)
    return std::nullopt;
  for (std::size_t i = 0; i < octets.size(); ++i) {
    unsigned value = 0;
    const char* const digits = text.data() + 2 * i;
    if (std::from_chars(digits, digits + 2, value, 16).ptr != digits + 2)
      return std::nullopt;
    octets[i] = static_cast<std::byte>(value);
  }
  return octets;
}

bool write_internet(std::uint8_t transport, const Tower& tower, Writer& writer) {
  const std::optional<Octets> port = port_octets(tower.endpoint);
  Octets address(kInternetAddressSize);
  return port && inet_pton(AF_INET, tower.network_address.c_str(), address.data()) == 1 &&
         writer.add_floor(transport, *port) && writer.add_floor(floor_id::kIp, address);
}

bool write_netware(std::uint8_t transport, const Tower& tower, Writer& writer) {
  std::optional<Octets> place = netware_octets(tower.network_address);
  const std::optional<Octets> socket = port_octets(tower.endpoint);
  if (!place || !socket)
    return false;
  place->insert(place->end(), socket->begin(), socket->end());
  return writer.add_floor(transport, *place);
}

bool write_place(const Profile& profile, const Tower& tower, Writer& writer) {
  switch (profile.layout) {
    case Layout::internet:
      return write_internet(profile.transport, tower, writer);
    case Layout::netware:
      return write_netware(profile.transport, tower, writer);
    case Layout::pipe:
      return writer.add_floor(profile.transport, octets_of_text(tower.endpoint)) &&
             writer.add_floor(floor_id::kNetBios, octets_of_text(tower.network_address));
    case Layout::local:
      return writer.add_floor(profile.transport, octets_of_text(tower.endpoint));
  }
  return false;
}

}  // namespace

std::optional<Tower> decode_any_tower(std::span<const std::byte> octets) {
  const std::optional<std::vector<Floor>> floors = split_floors(octets);
  if (!floors || floors->size() < 3 || !is_uuid_floor((*floors)[0]) || !is_uuid_floor((*floors)[1]))
    return std::nullopt;
  Tower tower;
  const std::byte* const identity = (*floors)[0].left.data() + 1;
  tower.interface_id = {load_uuid(identity, true), load16(identity + 16, true),
                        load16((*floors)[0].right.data(), true)};
  for (std::size_t i = 2; i < floors->size(); ++i) {
    const Bytes left = (*floors)[i].left;
    tower.floors.push_back(left.empty() ? 0 : std::to_integer<unsigned>(left[0]));
  }
  const Profile* profile = floors->size() > 3 ? find_profile((*floors)[2], (*floors)[3]) : nullptr;
  if (profile != nullptr && read_place(profile->layout, *floors, tower))
    tower.protocol_sequence = profile->protocol_sequence;
  return tower;
}

std::optional<Tower> decode_tower(std::span<const std::byte> octets) {
  std::optional<Tower> tower = decode_any_tower(octets);
  return tower && !tower->protocol_sequence.empty() ? tower : std::nullopt;
}

std::optional<std::vector<std::byte>> encode_tower(const Tower& tower) {
  const auto* profile =
      std::find_if(std::begin(kProfiles), std::end(kProfiles), [&](const Profile& candidate) {
        return candidate.protocol_sequence == tower.protocol_sequence;
      });
  if (profile == std::end(kProfiles))
    return std::nullopt;
  Writer writer;
  writer.add_uuid_floor(tower.interface_id.uuid, tower.interface_id.vers_major,
                        tower.interface_id.vers_minor);
  writer.add_uuid_floor(kNdrSyntax, kNdrMajor, kNdrMinor);
  writer.add_floor(profile->protocol, octets_of_16(0, true));
  if (!write_place(*profile, tower, writer))
    return std::nullopt;
  return writer.take();
}

}  // namespace rpc
