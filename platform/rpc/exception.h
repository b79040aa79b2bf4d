// SPDX-License-Identifier: Apache-2.0
// The one exception type of the runtime: a remote call that did not end with a reply.

#pragma once

#include <cstdint>
#include <exception>

namespace rpc {

enum class FailureKind {
  // The call did not get through or was not entered: silence, an unreachable host, a reject, a
  // foreign data representation, a bad binding. Stubs with comm_status store it in the status.
  communication,
  // The server entered the operation and reported a fault. Always raised.
  fault,
  // Found by the stub itself: a reply that cannot be decoded, a null reference pointer or context.
  local,
};

class RpcException : public std::exception {
 public:
  RpcException(std::uint32_t status, FailureKind kind) : status_(status), kind_(kind) {}

  // The workstation's number of the failure.
  std::uint32_t status() const { return status_; }
  FailureKind kind() const { return kind_; }
  const char* what() const noexcept override { return "remote call failed"; }

 private:
  std::uint32_t status_;
  FailureKind kind_;
};

}  // namespace rpc
