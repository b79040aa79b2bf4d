// SPDX-License-Identifier: Apache-2.0
// The management interface that every server answers at each of its endpoints (C706 appendix Q).

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "mgmt_server.h"
#include "platform/rpc/server/exported_interface.h"

namespace rpc::server {

// Answers is_server_listening (2), which is generated, and inq_if_ids (0), whose list of pointers
// is written by hand. The other operations are refused by their status: this server keeps no
// statistics for strangers and has no principal name (1764), and is not stopped from afar (5).
class ManagementInterface : public mgmt_Server {
 public:
  // The interfaces are not owned; the list that inq_if_ids gives.
  explicit ManagementInterface(std::vector<Interface*> interfaces);

  // What is_server_listening says; true at first.
  void set_listening(bool listening) { listening_ = listening; }

  boolean32 is_server_listening(const CallInfo& call, error_status_t* status) override;
  const OperationSpec* operation(std::uint16_t opnum) const override;
  Outcome dispatch(const CallInfo& call, std::uint16_t opnum, std::span<const std::byte> request,
                   DataRepresentation representation, bool reply_little_endian) override;

 private:
  const std::vector<Interface*> interfaces_;
  bool listening_ = true;
};

}  // namespace rpc::server
