// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/server/management_interface.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/numbers/status.h"
#include "platform/rpc/stub/ndr.h"
#include "platform/rpc/wire/wire_bytes.h"

namespace rpc::server {
namespace {

// [out] [ptr] to { u32 count; [size_is(count)] [ptr] interface id * }, then the status. zidl has no
// arrays of pointers.
std::vector<std::byte> interface_list(const std::vector<Interface*>& interfaces,
                                      bool little_endian) {
  const auto count = static_cast<std::uint32_t>(interfaces.size());
  ndr::Encoder out(little_endian);
  out.put(ndr::kReplyReferents.at(0));
  out.put(count);
  out.put(count);
  for (std::uint32_t i = 0; i < count; ++i)
    out.put(ndr::kReplyReferents.at(i + 1));
  for (const Interface* interface : interfaces) {
    out.put(interface->spec().id);
    out.put(interface->spec().major);
    out.put(interface->spec().minor);
  }
  out.put(error_status_t{0});
  return out.take();
}

constexpr std::uint16_t kInquireInterfaces = 0;
constexpr std::uint16_t kInquireStatistics = 1;
constexpr std::uint16_t kStopListening = 3;
constexpr std::uint16_t kInquirePrincipal = 4;

error_status_t refusal_status(std::uint16_t opnum) {
  return opnum == kStopListening ? RPC_S_ACCESS_DENIED : RPC_S_CANNOT_SUPPORT;
}

// No statistic of a conformant array, an empty name in the room that the client has for it (its
// second parameter), and the status.
std::vector<std::byte> refusal(std::uint16_t opnum, std::span<const std::byte> request,
                               bool request_little_endian, bool little_endian) {
  ndr::Encoder out(little_endian);
  if (opnum == kInquireStatistics) {
    out.put(std::uint32_t{0});
    out.put(std::uint32_t{0});
  } else if (opnum == kInquirePrincipal) {
    const std::uint32_t room =
        request.size() < 8 ? 1 : load32(request.data() + 4, request_little_endian);
    out.put_conformant_varying(std::max<std::uint32_t>(room, 1), 1);
    out.put(char{0});
  }
  out.put(refusal_status(opnum));
  return out.take();
}

}  // namespace

ManagementInterface::ManagementInterface(std::vector<Interface*> interfaces)
    : interfaces_(std::move(interfaces)) {}

boolean32 ManagementInterface::is_server_listening(const CallInfo&, error_status_t*) {
  return listening_ ? 1 : 0;
}

const OperationSpec* ManagementInterface::operation(std::uint16_t opnum) const {
  static const std::array kByHand = {
      OperationSpec{&spec(), kInquireInterfaces, true, "mgmt_inq_if_ids"},
      OperationSpec{&spec(), kInquireStatistics, true, "mgmt_inq_stats"},
      OperationSpec{&spec(), kStopListening, false, "mgmt_stop_server_listening"},
      OperationSpec{&spec(), kInquirePrincipal, true, "mgmt_inq_princ_name"},
  };
  const auto found = std::find_if(kByHand.begin(), kByHand.end(),
                                  [opnum](const auto& each) { return each.opnum == opnum; });
  return found != kByHand.end() ? &*found : mgmt_Server::operation(opnum);
}

Outcome ManagementInterface::dispatch(const CallInfo& call, std::uint16_t opnum,
                                      std::span<const std::byte> request,
                                      DataRepresentation representation, bool reply_little_endian) {
  const bool refused = opnum != kInquireInterfaces && mgmt_Server::operation(opnum) == nullptr &&
                       operation(opnum) != nullptr;
  if (call.record != nullptr)
    call.record->status = refused ? refusal_status(opnum) : 0;
  if (refused)
    return {Outcome::Kind::reply, 0,
            refusal(opnum, request, representation.little_endian, reply_little_endian)};
  if (opnum == kInquireInterfaces)
    return {Outcome::Kind::reply, 0, interface_list(interfaces_, reply_little_endian)};
  return mgmt_Server::dispatch(call, opnum, request, representation, reply_little_endian);
}

}  // namespace rpc::server
