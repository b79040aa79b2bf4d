// SPDX-License-Identifier: Apache-2.0
#include "agent/recorder/map_walk.h"

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ag.h"
#include "agent/recorder/remote_call.h"
#include "epm.h"
#include "platform/numbers/status.h"
#include "platform/rpc/names/protocol_sequence.h"
#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/names/tower.h"
#include "rep.h"

namespace agent::recorder {

namespace {

constexpr std::uint32_t kBatch = 64;
constexpr std::size_t kMostElements = 16'384;
constexpr unsigned kMostEmptyBatches = 16;
constexpr char kAnyAddress[] = "0.0.0.0";
// For the answer of a mapper that did not answer the call before.
constexpr std::chrono::milliseconds kMoment{20};

// What one inquiry gave.
struct Listing {
  std::optional<ept_if_id_t> wanted;  // nothing: the whole map
  std::vector<MapElement> elements;
  std::size_t unreadable = 0;
  bool big_endian = false;
  CallEnd failed;   // the call that ended it, if one did
  std::string why;  // it is not whole; empty for one that is
};

MapElement element_of(const ept_entry_t& entry, const std::string& mapper) {
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
    element.address = tower->network_address == kAnyAddress ? mapper : tower->network_address;
    element.endpoint = tower->endpoint;
  } else {
    element.tower.emplace(octets.begin(), octets.end());
  }
  return element;
}

class Inquiry {
 public:
  // Of the whole map, or of the elements of one interface in just this version.
  Inquiry(const Server& mapper, const std::string& address, const rpc_if_id_t* interface,
          const Walk& walk)
      : mapper_(mapper), address_(address), walk_(walk) {
    if (interface != nullptr)
      had_.wanted = {interface->uuid, interface->vers_major, interface->vers_minor};
  }

  // The cursor is given back on every way out.
  ~Inquiry() {
    if (cursor_ == nullptr)
      return;
    const bool lost = had_.failed.unanswered();
    const auto before = lost ? RpcMgmtLimitWaits(kMoment) : std::nullopt;
    call([&](error_status_t* status) {
      ept_lookup_handle_free(mapper_.handle(), &cursor_, status);
    });
    if (lost)
      RpcMgmtLimitWaits(before);
  }
  Inquiry(const Inquiry&) = delete;
  Inquiry& operator=(const Inquiry&) = delete;

  Listing run() {
    while (read_batch()) {
    }
    return had_;
  }

 private:
  // Whether the map goes on.
  bool read_batch() {
    std::vector<ept_entry_t> entries(kBatch);
    std::uint32_t count = 0;
    const std::optional<ept_if_id_t>& wanted = had_.wanted;
    const CallEnd end = call([&](error_status_t* status) {
      ept_lookup(mapper_.handle(), wanted ? RPC_C_EP_MATCH_BY_IF : RPC_C_EP_ALL_ELTS, nullptr,
                 wanted ? &*wanted : nullptr, wanted ? RPC_C_VERS_EXACT : RPC_C_VERS_ALL, &cursor_,
                 kBatch, &count, entries.data(), status);
    });
    had_.big_endian = had_.big_endian || end.outcome.big_endian;
    const bool empty = end.answered() && end.status == rpc::ept::kNotRegistered;
    if (!end.ok() && !empty) {
      had_.failed = end;
      had_.why = end.words();
      return false;
    }
    entries.resize(std::min<std::size_t>(count, entries.size()));
    for (const ept_entry_t& entry : entries) {
      if (entry.tower == nullptr || entry.tower->tower_octet_string.empty())
        ++had_.unreadable;
      else
        had_.elements.push_back(element_of(entry, address_));
    }
    if (empty || cursor_ == nullptr)
      return false;
    empty_batches_ = entries.empty() ? empty_batches_ + 1 : 0;
    had_.why = walk_.ended();
    if (had_.elements.size() >= kMostElements || empty_batches_ >= kMostEmptyBatches)
      had_.why = "it does not end";
    return had_.why.empty();
  }

  const Server& mapper_;
  const std::string& address_;
  const Walk& walk_;
  RPC_CONTEXT_HANDLE cursor_ = nullptr;
  Listing had_;
  unsigned empty_batches_ = 0;
};

class MapWalk {
 public:
  MapWalk(std::uint32_t address, const Walk& walk)
      : address_(rpc::dotted(address)),
        mapper_(address, kEndpointMapperPort, walk.level),
        walk_(walk) {}

  EndpointMapper run() {
    map_.server.port = kEndpointMapperPort;
    const Listing all = list("endpoint map", nullptr);
    map_.elements = all.elements;
    if (all.unreadable != 0)
      walk_.missing("endpoint map: " + std::to_string(all.unreadable) +
                    " elements without a tower");
    if (all.why.empty() || !is_there(all) || !walk_.ended().empty())
      return std::move(map_);
    // The checks ask for single interfaces, and may be told what the listing does not reach.
    const Listing repositories = list("endpoint map, interface rep", zt_v2_rep_v2_0_c_ifspec);
    add(repositories.elements, all.elements);
    if (!is_there(repositories))
      return std::move(map_);
    const Listing alarms = list("endpoint map, interface ag", zt_v2_ag_v2_0_c_ifspec);
    add(alarms.elements, all.elements);
    take_failure({&repositories, &alarms, &all});
    return std::move(map_);
  }

 private:
  Listing list(const std::string& what, RPC_IF_HANDLE interface) {
    rpc_if_id_t wanted{};
    if (interface != nullptr)
      RpcIfInqId(interface, &wanted);
    Listing had = Inquiry(mapper_, address_, interface != nullptr ? &wanted : nullptr, walk_).run();
    map_.server.little_endian = map_.server.little_endian && !had.big_endian;
    if (!had.why.empty())
      walk_.missing(what + behind(had.elements.size()) + ": " + had.why);
    return had;
  }

  static std::string behind(std::size_t elements) {
    if (elements < 2)
      return elements == 0 ? "" : ", behind its first element";
    return ", behind its first " + std::to_string(elements) + " elements";
  }

  // Whether there is a mapper that can be asked more; notes what there is instead.
  bool is_there(const Listing& inquiry) {
    const CallEnd& end = inquiry.failed;
    if (!inquiry.elements.empty() || end.ok())
      return true;
    if (end.refused())
      map_.server.state = ServerState::dead;
    else if (end.outcome.kind == RpcCallOutcome::Kind::undelivered)
      map_.server.state = ServerState::mute;
    else if (end.status == RPC_S_UNKNOWN_IF)
      map_.rejecting = true;
    else if (end.unanswered())
      map_.server.behaviours.push_back(end.behaviour("ept_lookup"));
    else
      return true;
    return false;
  }

  // Puts elements behind the map, but for those that the listing had, in the same order.
  void add(const std::vector<MapElement>& elements, const std::vector<MapElement>& listed) {
    auto from = listed.begin();
    for (const MapElement& element : elements) {
      const auto same = std::find(from, listed.end(), element);
      if (same == listed.end())
        map_.elements.push_back(element);
      else
        from = std::next(same);
    }
  }

  // A simulated mapper fails every inquiry after as many elements: here as the first one of these
  // fails, unless those before it, which were whole, would be cut by that.
  void take_failure(std::initializer_list<const Listing*> inquiries) {
    const auto failed = [](const Listing* one) { return !one->failed.ok(); };
    const auto first = std::find_if(inquiries.begin(), inquiries.end(), failed);
    if (first == inquiries.end())
      return;
    const CallEnd& end = (*first)->failed;
    const std::size_t after = (*first)->elements.size();
    const auto within = [after](const Listing* one) { return one->elements.size() <= after; };
    if (after == 0 && std::all_of(inquiries.begin(), inquiries.end(), failed) &&
        std::all_of(inquiries.begin(), inquiries.end(), within)) {
      map_.server.behaviours.push_back(end.behaviour("ept_lookup"));
      return;
    }
    if (!std::all_of(inquiries.begin(), first, within))
      return walk_.missing("endpoint mapper: how it fails; in the recording it does not");
    map_.fail_after = static_cast<std::uint32_t>(after);
    map_.failure = failure_of(end).value_or(MapperFailure::status);
    bool all_alike = true;
    for (const Listing* one : inquiries) {
      const bool likewise = failed(one) && one->elements.size() == after;
      if (likewise)
        let_go_on(*one);
      all_alike = all_alike &&
                  (failed(one) ? likewise && failure_of(one->failed) == map_.failure : within(one));
    }
    if (!all_alike)
      walk_.missing(
          "endpoint mapper: how it fails; in the recording every inquiry ends after " +
          std::to_string(after) + " elements, " +
          (map_.failure == MapperFailure::silent ? "without an answer" : "with status 0x16C9A0CD"));
  }

  // An inquiry fails only where more would follow: one element stands for those that nobody knows.
  void let_go_on(const Listing& inquiry) {
    MapElement more;
    more.protocol = rpc::protseq::kLocal;
    more.endpoint = "unknown";
    more.annotation = "what could not be had";
    if (inquiry.wanted)
      more.interface_id = inquiry.wanted->uuid;
    const auto matches = [&](const MapElement& one) {
      return !inquiry.wanted || (one.interface_id == more.interface_id && one.major == more.major &&
                                 one.minor == more.minor);
    };
    const auto known = std::count_if(map_.elements.begin(), map_.elements.end(), matches);
    if (static_cast<std::size_t>(known) == inquiry.elements.size())
      map_.elements.push_back(std::move(more));
  }

  // Nothing for a failure that a scenario cannot say.
  static std::optional<MapperFailure> failure_of(const CallEnd& end) {
    if (end.unanswered())
      return MapperFailure::silent;
    if (end.answered() && end.status == rpc::ept::kCannotPerform)
      return MapperFailure::status;
    return std::nullopt;
  }

  const std::string address_;
  const Server mapper_;
  const Walk& walk_;
  EndpointMapper map_;
};

}  // namespace

EndpointMapper read_map(std::uint32_t address, const Walk& walk) {
  return MapWalk(address, walk).run();
}

}  // namespace agent::recorder
