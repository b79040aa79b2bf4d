// SPDX-License-Identifier: Apache-2.0
// An interface for tests of the server runtime: one operation that may run twice, one that may not.
// It answers with its own in-parameters, and counts what it runs.

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/rpc/server/exported_interface.h"

namespace rpc::server {

inline constexpr InterfaceSpec kEchoSpec{
    {0x6e1c0a52, 0x3d40, 0x4f7b, 0x9a, 0x11, {0x5c, 0x20, 0x8e, 0x77, 0x01, 0x02}}, 2, 1, "echo"};
inline constexpr OperationSpec kReadOperation{&kEchoSpec, 0, true, "read"};
inline constexpr OperationSpec kChangeOperation{&kEchoSpec, 1, false, "change"};

class EchoInterface : public Interface {
 public:
  const InterfaceSpec& spec() const override { return kEchoSpec; }
  const OperationSpec* operation(std::uint16_t opnum) const override {
    if (opnum == kReadOperation.opnum)
      return &kReadOperation;
    return opnum == kChangeOperation.opnum ? &kChangeOperation : nullptr;
  }
  Outcome dispatch(const CallInfo&, std::uint16_t, std::span<const std::byte> request,
                   DataRepresentation, bool) override {
    ++runs;
    return {Outcome::Kind::reply, 0, {request.begin(), request.end()}};
  }

  int runs = 0;
};

}  // namespace rpc::server
