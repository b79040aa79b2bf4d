// The management interface that every server answers at each of its endpoints (C706 appendix Q).

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/rpc/server/interface.h"

namespace rpc::server {

// Answers inq_if_ids (0), inq_stats (1), is_server_listening (2), stop_server_listening (3, always
// refused: nobody stops this server from afar) and inq_princ_name (4, refused: there is none).
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
