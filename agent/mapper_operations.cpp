// SPDX-License-Identifier: Apache-2.0
// The mapper's operations that are written by hand (C706 appendix O).

#include <algorithm>
#include <array>
#include <memory>

#include "agent/mapper_interface.h"
#include "platform/numbers/status.h"
#include "platform/rpc/stub/ndr.h"
#include "platform/rpc/stub/skeleton.h"

namespace agent {

namespace {

using rpc::server::CallInfo;
using rpc::server::Outcome;

constexpr std::uint16_t kInsert = 0;
constexpr std::uint16_t kDelete = 1;
constexpr std::uint16_t kMap = 3;
constexpr std::uint16_t kInquireObject = 5;
constexpr std::uint16_t kManagementDelete = 6;
constexpr std::uint32_t kLongestTower = 2048;
constexpr std::uint32_t kMostTowers = 500;

using Octets = std::vector<std::uint8_t>;

struct MapRequest {
  std::shared_ptr<uuid_t> object;
  std::optional<rpc::Tower> tower;
  rpc::WireContext handle;
  std::uint32_t most = 0;
};

MapRequest decode(rpc::ndr::Decoder& in) {
  MapRequest request;
  request.object = in.get_pointer<uuid_t>([&](uuid_t& object) { object = in.get<uuid_t>(); });
  const auto tower = in.get_pointer<Octets>([&](Octets& octets) {
    const auto maximum = in.get<std::uint32_t>();
    const auto size = in.get<std::uint32_t>();
    if (size > kLongestTower)
      throw rpc::server::Fault(rpc::nca::kInvalidBound);
    in.get_octets(octets, maximum, size);
  });
  if (tower != nullptr)
    request.tower = rpc::decode_tower(std::as_bytes(std::span(*tower)));
  request.handle = in.get<rpc::WireContext>();
  request.most = in.get<std::uint32_t>();
  return request;
}

void put_towers(rpc::ndr::Encoder& out, const std::vector<const MapEntry*>& found,
                std::uint32_t room) {
  const auto count = static_cast<std::uint32_t>(found.size());
  out.put(count);
  out.put_conformant_varying(room, count);
  for (const MapEntry* entry : found)
    out.defer_referent(entry);
  for (const MapEntry* entry : found) {
    if (!out.next_deferred())
      continue;
    const auto size = static_cast<std::uint32_t>(entry->tower.size());
    out.put(size);
    out.put(size);
    out.put_array(reinterpret_cast<const std::uint8_t*>(entry->tower.data()), size);
  }
}

}  // namespace

const rpc::OperationSpec* MapperInterface::operation(std::uint16_t opnum) const {
  static const std::array kByHand = {
      rpc::OperationSpec{&spec(), kInsert, false, "ept_insert"},
      rpc::OperationSpec{&spec(), kDelete, false, "ept_delete"},
      rpc::OperationSpec{&spec(), kMap, true, "ept_map"},
      rpc::OperationSpec{&spec(), kInquireObject, true, "ept_inq_object"},
      rpc::OperationSpec{&spec(), kManagementDelete, false, "ept_mgmt_delete"},
  };
  const auto found = std::find_if(kByHand.begin(), kByHand.end(),
                                  [opnum](const auto& each) { return each.opnum == opnum; });
  return found != kByHand.end() ? &*found : epm_Server::operation(opnum);
}

Outcome MapperInterface::dispatch(const CallInfo& call, std::uint16_t opnum,
                                  std::span<const std::byte> request,
                                  rpc::DataRepresentation representation,
                                  bool reply_little_endian) {
  const auto reply = [&](std::uint32_t status, bool with_object) {
    rpc::ndr::Encoder out(reply_little_endian);
    if (with_object)
      out.put(uuid_t{});
    refuse(call, &status);
    out.put(status);
    if (call.record != nullptr)
      call.record->status = status;
    return Outcome{Outcome::Kind::reply, 0, out.take()};
  };
  switch (opnum) {
    case kMap:
      return map(call, request, representation, reply_little_endian);
    case kInquireObject:
      return reply(0, true);
    case kInsert:
    case kDelete:
    case kManagementDelete:
      return reply(rpc::ept::kCannotPerform, false);
    default:
      return epm_Server::dispatch(call, opnum, request, representation, reply_little_endian);
  }
}

// Towers of the interface in a version that serves the one asked for, over the same protocols; of
// an object only what was registered for it. All fit into one reply, so no handle stays open.
Outcome MapperInterface::map(const CallInfo& call, std::span<const std::byte> request,
                             rpc::DataRepresentation representation, bool reply_little_endian) {
  return rpc::server::answer(
      call, request, representation, reply_little_endian,
      [&](rpc::ndr::Decoder& in, rpc::ndr::Encoder& out, bool& entered) {
        const MapRequest asked = decode(in);
        entered = true;
        if (!asked.handle.null())
          find(call, asked.handle);
        std::uint32_t status = rpc::ept::kCannotPerform;
        std::vector<const MapEntry*> found;
        const std::uint32_t room = std::min(asked.most, kMostTowers);
        if (asked.tower && !refuse(call, &status)) {
          MapInquiry inquiry;
          inquiry.type = RPC_C_EP_MATCH_BY_BOTH;
          inquiry.object = asked.object != nullptr ? *asked.object : uuid_t{};
          inquiry.interface_id = asked.tower->interface_id;
          inquiry.version_option = RPC_C_VERS_COMPATIBLE;
          inquiry.protocol_sequence = asked.tower->protocol_sequence;
          for (std::size_t at = map_.find(inquiry, 0); at < map_.size() && found.size() < room;
               at = map_.find(inquiry, at + 1))
            found.push_back(&map_.entry(at));
          status = found.empty() ? rpc::ept::kNotRegistered : 0;
        }
        out.put(rpc::WireContext{});
        put_towers(out, found, room);
        out.put(status);
        if (call.record != nullptr) {
          call.record->argument("max_towers", asked.most);
          call.record->status = status;
        }
      });
}

}  // namespace agent
