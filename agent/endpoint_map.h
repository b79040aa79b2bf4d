// SPDX-License-Identifier: Apache-2.0
// The elements of one endpoint map and the inquiries over them (C706 appendix O). No wire.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/scenario.h"
#include "platform/rpc/names/tower.h"
#include "platform/rpc/rpc.h"

namespace agent {

struct MapEntry {
  uuid_t object{};
  // Nothing for a tower that cannot be read; such an entry is found only by object, or by all.
  std::optional<rpc_if_id_t> interface_id;
  std::vector<std::byte> tower;
  std::string annotation;  // at most 63 bytes
};

struct MapInquiry {
  std::uint32_t type = RPC_C_EP_ALL_ELTS;
  std::optional<uuid_t> object;
  std::optional<rpc_if_id_t> interface_id;
  std::uint32_t version_option = RPC_C_VERS_ALL;
  std::string protocol_sequence = {};  // empty: any

  // Whether the type and version option are known and what they need is there.
  bool sound() const;
  bool matches(const MapEntry& entry) const;
};

class EndpointMap {
 public:
  void add(MapEntry entry) { entries_.push_back(std::move(entry)); }
  // False when the tower cannot be written: an unknown protocol, an address or endpoint that it
  // cannot carry.
  bool add(const rpc::Tower& tower, const uuid_t& object, const std::string& annotation);

  void clear() { entries_.clear(); }
  std::size_t size() const { return entries_.size(); }
  const MapEntry& entry(std::size_t index) const { return entries_[index]; }
  // The index of the first match from `from` on; size() when there is none.
  std::size_t find(const MapInquiry& inquiry, std::size_t from) const;

 private:
  std::vector<MapEntry> entries_;
};

// What an element of the scenario says, with the system's own address where it names none and its
// protocol has internet addresses.
rpc::Tower element_tower(const MapElement& element, std::uint32_t system_address);

// An element whose tower the scenario gives as bytes.
MapEntry raw_entry(const MapElement& element);

}  // namespace agent
