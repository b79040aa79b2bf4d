// SPDX-License-Identifier: Apache-2.0
// Bodies of endpoint mapper replies, put together byte by byte in either byte order and without the
// code that reads them.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace endpoint_map {

using Octets = std::vector<std::byte>;

class Body {
 public:
  explicit Body(bool little_endian) : little_endian_(little_endian) {}

  Body& u8(unsigned value) {
    octets_.push_back(static_cast<std::byte>(value));
    return *this;
  }
  Body& u16(unsigned value) {
    return little_endian_ ? u8(value & 0xFF).u8(value >> 8) : u8(value >> 8).u8(value & 0xFF);
  }
  Body& u32(std::uint32_t value) {
    return little_endian_ ? u16(value & 0xFFFF).u16(value >> 16)
                          : u16(value >> 16).u16(value & 0xFFFF);
  }
  Body& align4() {
    while (octets_.size() % 4 != 0)
      u8(0xEE);  // gap bytes mean nothing
    return *this;
  }
  Body& octets(const Octets& octets) {
    octets_.insert(octets_.end(), octets.begin(), octets.end());
    return *this;
  }
  // A UUID whose first field is `first` and whose last octet is `last`.
  Body& uuid(std::uint32_t first, unsigned last) {
    u32(first).u16(0x17e4).u16(0);
    for (const unsigned octet : {0x02u, 0x0au, 0x14u, 0x1eu, 0x28u, 0u, 0u, last})
      u8(octet);
    return *this;
  }
  // A context handle; number 0 is the null one.
  Body& context(std::uint32_t number) {
    u32(0);
    if (number != 0)
      return uuid(number, 1);
    for (int i = 0; i < 4; ++i)
      u32(0);
    return *this;
  }
  const Octets& bytes() const { return octets_; }

 private:
  bool little_endian_;
  Octets octets_;
};

// A tower of `rep` 2.0 over UDP (docs/formats/tower.md).
inline Octets udp_tower(unsigned a, unsigned b, unsigned c, unsigned d, unsigned port) {
  Body tower(true);
  tower.u16(5);
  tower.u16(19).u8(0x0d).uuid(0x5b3c82a0, 0).u16(2).u16(2).u16(0);
  tower.u16(19).u8(0x0d).u32(0x8a885d04).u16(0x1ceb).u16(0x11c9);
  for (const unsigned octet : {0x9fu, 0xe8u, 0x08u, 0x00u, 0x2bu, 0x10u, 0x48u, 0x60u})
    tower.u8(octet);
  tower.u16(2).u16(2).u16(0);
  tower.u16(1).u8(0x0a).u16(2).u16(0);
  tower.u16(1).u8(0x08).u16(2).u8(port >> 8).u8(port & 0xFF);
  tower.u16(1).u8(0x09).u16(4).u8(a).u8(b).u8(c).u8(d);
  return tower.bytes();
}

struct Entry {
  unsigned object = 0;  // 0: nil
  Octets tower;         // empty: null pointer
  std::string annotation;
};

// The answer to ept_lookup (docs/formats/endpoint-map.md).
inline Octets lookup_reply(bool little_endian, std::uint32_t cursor,
                           const std::vector<Entry>& entries, std::uint32_t status) {
  const auto count = static_cast<std::uint32_t>(entries.size());
  Body body(little_endian);
  body.context(cursor).u32(count).u32(64).u32(0).u32(count);
  std::uint32_t referent = 0x20000;
  for (const Entry& entry : entries) {
    body.align4();
    if (entry.object == 0)
      body.u32(0).u32(0).u32(0).u32(0);
    else
      body.uuid(0x77, entry.object);
    body.u32(entry.tower.empty() ? 0 : referent += 4);
    body.u32(0).u32(static_cast<std::uint32_t>(entry.annotation.size() + 1));
    for (const char c : entry.annotation)
      body.u8(static_cast<unsigned char>(c));
    body.u8(0);
  }
  for (const Entry& entry : entries) {
    if (entry.tower.empty())
      continue;
    const auto length = static_cast<std::uint32_t>(entry.tower.size());
    body.align4().u32(length).u32(length).octets(entry.tower);
  }
  return body.align4().u32(status).bytes();
}

// The answer to ept_lookup_handle_free.
inline Octets free_reply(bool little_endian) {
  return Body(little_endian).context(0).u32(0).bytes();
}

}  // namespace endpoint_map
