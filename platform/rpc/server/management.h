// The management interface that every server answers at each of its endpoints (C706 appendix Q).

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/rpc/server/interface.h"

namespace rpc::server {

// Answers inq_if_ids (0) and is_server_listening (2). The other operations are rejected as out of
// range: this server keeps no statistics for strangers, has no principal name, and is not stopped
// from afar.
class ManagementInterface : public Interface {
 public:
  // The interfaces are not owned; the list that inq_if_ids gives.
  explicit ManagementInterface(std::vector<Interface*> interfaces);

  // What is_server_listening says; true at first.
  void set_listening(bool listening) { listening_ = listening; }

  const InterfaceSpec& spec() const override;
  const OperationSpec* operation(std::uint16_t opnum) const override;
  Outcome dispatch(const CallInfo& call, std::uint16_t opnum, std::span<const std::byte> request,
                   DataRepresentation representation, bool reply_little_endian) override;

 private:
  std::vector<Interface*> interfaces_;
  bool listening_ = true;
};

}  // namespace rpc::server
