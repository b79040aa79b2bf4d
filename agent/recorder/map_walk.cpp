// SPDX-License-Identifier: Apache-2.0
#include "agent/recorder/map_walk.h"

#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "agent/recorder/remote_call.h"
#include "epm.h"
#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/names/tower.h"

namespace agent::recorder {

namespace {

constexpr std::uint32_t kBatch = 64;
constexpr std::size_t kMostElements = 16'384;
constexpr unsigned kMostEmptyBatches = 16;
constexpr char kAnyAddress[] = "0.0.0.0";

class MapWalk {
 public:
  MapWalk(std::uint32_t address, const Walk& walk)
      : address_(rpc::dotted(address)),
        mapper_(address, kEndpointMapperPort, walk.level),
        walk_(walk) {}

  // The cursor is given back on every way out.
  ~MapWalk() {
    if (cursor_ != nullptr)
      call([&](error_status_t* status) {
        ept_lookup_handle_free(mapper_.handle(), &cursor_, status);
      });
  }
  MapWalk(const MapWalk&) = delete;
  MapWalk& operator=(const MapWalk&) = delete;

  EndpointMapper run() {
    map_.server.port = kEndpointMapperPort;
    while (read_batch()) {
    }
    if (unreadable_ != 0)
      walk_.missing("endpoint map: " + std::to_string(unreadable_) + " elements without a tower");
    return std::move(map_);
  }

 private:
  // Whether the map goes on.
  bool read_batch() {
    std::vector<ept_entry_t> entries(kBatch);
    std::uint32_t count = 0;
    const CallEnd end = call([&](error_status_t* status) {
      ept_lookup(mapper_.handle(), RPC_C_EP_ALL_ELTS, nullptr, nullptr, RPC_C_VERS_ALL, &cursor_,
                 kBatch, &count, entries.data(), status);
    });
    map_.server.little_endian = !end.outcome.big_endian;
    const bool empty = end.answered() && end.status == rpc::ept::kNotRegistered;
    if (!end.ok() && !empty) {
      take_failure(end);
      return false;
    }
    entries.resize(std::min<std::size_t>(count, entries.size()));
    for (const ept_entry_t& entry : entries)
      take(entry);
    if (empty || cursor_ == nullptr)
      return false;
    empty_batches_ = entries.empty() ? empty_batches_ + 1 : 0;
    std::string why = walk_.ended();
    if (map_.elements.size() >= kMostElements || empty_batches_ >= kMostEmptyBatches)
      why = "it does not end";
    if (!why.empty())
      walk_.missing("endpoint map: what is behind its first " +
                    std::to_string(map_.elements.size()) + " elements: " + why);
    return why.empty();
  }

  void take_failure(const CallEnd& end) {
    walk_.missing("endpoint mapper: " + end.words());
    if (!map_.elements.empty()) {
      map_.fail_after = static_cast<std::uint32_t>(map_.elements.size());
      map_.failure = end.unanswered() ? MapperFailure::silent : MapperFailure::status;
    } else if (end.refused()) {
      map_.server.state = ServerState::dead;
    } else if (end.outcome.kind == RpcCallOutcome::Kind::undelivered) {
      map_.server.state = ServerState::mute;
    } else if (end.status == RPC_S_UNKNOWN_IF) {
      map_.rejecting = true;
    } else {
      map_.server.behaviours.push_back(end.behaviour("ept_lookup"));
    }
  }

  void take(const ept_entry_t& entry) {
    if (entry.tower == nullptr || entry.tower->tower_octet_string.empty()) {
      ++unreadable_;
      return;
    }
    const auto octets = std::as_bytes(std::span(entry.tower->tower_octet_string));
    MapElement element;
    element.object = entry.object;
    element.annotation = field_text(entry.annotation);
    const auto tower = rpc::decode_tower(octets);
    if (tower && !tower->endpoint.empty() && rpc::encode_tower(*tower)) {
      element.interface_id = tower->interface_id.uuid;
      element.major = tower->interface_id.vers_major;
      element.minor = tower->interface_id.vers_minor;
      element.protocol = tower->protocol_sequence;
      element.address = tower->network_address == kAnyAddress ? address_ : tower->network_address;
      element.endpoint = tower->endpoint;
    } else {
      element.tower.emplace(octets.begin(), octets.end());
    }
    map_.elements.push_back(std::move(element));
  }

  const std::string address_;
  const Server mapper_;
  const Walk& walk_;
  EndpointMapper map_;
  RPC_CONTEXT_HANDLE cursor_ = nullptr;
  unsigned empty_batches_ = 0;
  std::size_t unreadable_ = 0;
};

}  // namespace

EndpointMapper read_map(std::uint32_t address, const Walk& walk) {
  return MapWalk(address, walk).run();
}

}  // namespace agent::recorder
