// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/server/management_interface.h"

#include <utility>

#include "platform/rpc/stub/ndr.h"

namespace rpc::server {
namespace {

// [out] [ptr] to { u32 count; [size_is(count)] [ptr] interface id * }, then the status. zidl has no
// arrays of pointers.
std::vector<std::byte> interface_list(const std::vector<Interface*>& interfaces,
                                      bool little_endian) {
  constexpr std::uint32_t kFirstReferent = 0x20000;
  const auto count = static_cast<std::uint32_t>(interfaces.size());
  ndr::Encoder out(little_endian);
  out.put(kFirstReferent);
  out.put(count);
  out.put(count);
  for (std::uint32_t i = 0; i < count; ++i)
    out.put(kFirstReferent + 4 * (i + 1));
  for (const Interface* interface : interfaces) {
    out.put(interface->spec().id);
    out.put(interface->spec().major);
    out.put(interface->spec().minor);
  }
  out.put(error_status_t{0});
  return out.take();
}

}  // namespace

ManagementInterface::ManagementInterface(std::vector<Interface*> interfaces)
    : interfaces_(std::move(interfaces)),
      inquire_interfaces_{&spec(), 0, true, "mgmt_inq_if_ids"} {}

boolean32 ManagementInterface::is_server_listening(const CallInfo&, error_status_t*) {
  return listening_ ? 1 : 0;
}

const OperationSpec* ManagementInterface::operation(std::uint16_t opnum) const {
  return opnum == inquire_interfaces_.opnum ? &inquire_interfaces_ : mgmt_Server::operation(opnum);
}

Outcome ManagementInterface::dispatch(const CallInfo& call, std::uint16_t opnum,
                                      std::span<const std::byte> request,
                                      DataRepresentation representation, bool reply_little_endian) {
  if (opnum == inquire_interfaces_.opnum)
    return {Outcome::Kind::reply, 0, interface_list(interfaces_, reply_little_endian)};
  return mgmt_Server::dispatch(call, opnum, request, representation, reply_little_endian);
}

}  // namespace rpc::server
