// SPDX-License-Identifier: Apache-2.0
#include "agent/endpoint_map.h"

#include <utility>

#include "platform/rpc/names/protocol_sequence.h"
#include "platform/rpc/names/socket_address.h"

namespace agent {

namespace {

bool by_interface(std::uint32_t type) {
  return type == RPC_C_EP_MATCH_BY_IF || type == RPC_C_EP_MATCH_BY_BOTH;
}

bool by_object(std::uint32_t type) {
  return type == RPC_C_EP_MATCH_BY_OBJ || type == RPC_C_EP_MATCH_BY_BOTH;
}

bool version_matches(const rpc_if_id_t& entry, const rpc_if_id_t& wanted, std::uint32_t option) {
  const auto version = [](const rpc_if_id_t& id) {
    return std::pair(id.vers_major, id.vers_minor);
  };
  switch (option) {
    case RPC_C_VERS_ALL:
      return true;
    case RPC_C_VERS_COMPATIBLE:
      return entry.vers_major == wanted.vers_major && entry.vers_minor >= wanted.vers_minor;
    case RPC_C_VERS_EXACT:
      return version(entry) == version(wanted);
    case RPC_C_VERS_MAJOR_ONLY:
      return entry.vers_major == wanted.vers_major;
    case RPC_C_VERS_UPTO:
      return version(entry) <= version(wanted);
    default:
      return false;
  }
}

}  // namespace

bool MapInquiry::sound() const {
  if (type > RPC_C_EP_MATCH_BY_BOTH || (by_object(type) && !object))
    return false;
  return !by_interface(type) ||
         (interface_id && version_option >= RPC_C_VERS_ALL && version_option <= RPC_C_VERS_UPTO);
}

bool MapInquiry::matches(const MapEntry& entry) const {
  if (by_object(type) && entry.object != *object)
    return false;
  if (!protocol_sequence.empty()) {
    const auto tower = rpc::decode_tower(entry.tower);
    if (!tower || tower->protocol_sequence != protocol_sequence)
      return false;
  }
  if (!by_interface(type))
    return true;
  return entry.interface_id && entry.interface_id->uuid == interface_id->uuid &&
         version_matches(*entry.interface_id, *interface_id, version_option);
}

bool EndpointMap::add(const rpc::Tower& tower, const uuid_t& object,
                      const std::string& annotation) {
  auto octets = rpc::encode_tower(tower);
  if (!octets)
    return false;
  add(MapEntry{object, tower.interface_id, std::move(*octets), annotation});
  return true;
}

std::size_t EndpointMap::find(const MapInquiry& inquiry, std::size_t from) const {
  while (from < entries_.size() && !inquiry.matches(entries_[from]))
    ++from;
  return from;
}

rpc::Tower element_tower(const MapElement& element, std::uint32_t system_address) {
  rpc::Tower tower;
  tower.interface_id = {element.interface_id, element.major, element.minor};
  tower.protocol_sequence = element.protocol;
  tower.network_address = element.address;
  tower.endpoint = element.endpoint;
  const bool internet = element.protocol == rpc::protseq::kUdp ||
                        element.protocol == rpc::protseq::kTcp ||
                        element.protocol == rpc::protseq::kHttp;
  if (internet && element.address.empty())
    tower.network_address = rpc::dotted(system_address);
  return tower;
}

MapEntry raw_entry(const MapElement& element) {
  MapEntry entry{element.object, {}, *element.tower, element.annotation};
  if (const auto tower = rpc::decode_tower(entry.tower))
    entry.interface_id = tower->interface_id;
  return entry;
}

}  // namespace agent
