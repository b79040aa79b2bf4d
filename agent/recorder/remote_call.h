// SPDX-License-Identifier: Apache-2.0
// Calls of the generated stubs as values: how each one ended, in words and as what a scenario says
// of an operation that ends so.

#pragma once

#include <cstdint>
#include <string>

#include "agent/scenario.h"
#include "platform/rpc/rpc.h"

namespace agent::recorder {

struct CallEnd {
  RPC_STATUS status = RPC_S_OK;  // the operation's own, or the runtime's
  RpcCallOutcome outcome;
  bool undecodable = false;  // a reply came, and is none

  bool ok() const { return status == RPC_S_OK && !undecodable; }
  // The server answered the call, well or not.
  bool answered() const { return outcome.kind == RpcCallOutcome::Kind::answered; }
  bool refused() const;
  // Nothing came in time; to ask again would be to wait again.
  bool unanswered() const;
  // "the port is refused", "fault 0x1C000012 (...)"; of a call that failed.
  std::string words() const;
  // What makes a simulated server end the operation likewise.
  OperationBehaviour behaviour(std::string operation) const;
};

// Of the call that this job made last, whose stub reported `status` or raised.
CallEnd end_of_call(RPC_STATUS status, bool undecodable);

// `stub` is called with the address of its status.
template <typename Stub>
CallEnd call(const Stub& stub) {
  error_status_t status = RPC_S_OK;
  try {
    stub(&status);
  } catch (const rpc::RpcException& failure) {
    return end_of_call(failure.status(), failure.kind() == rpc::FailureKind::local);
  }
  return end_of_call(status, false);
}

// A binding of its own to a UDP port. A call on it is given up after the silence of the level, and
// after eight times that whatever the server says.
class Server {
 public:
  Server(std::uint32_t address, std::uint16_t port, unsigned level);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  RPC_BINDING_HANDLE handle() const { return handle_; }
  void set_object(const uuid_t& object) { RpcBindingSetObject(handle_, &object); }

 private:
  RPC_BINDING_HANDLE handle_ = nullptr;
};

// The text of a field that a server filled.
template <std::size_t Size>
std::string field_text(const char (&field)[Size]) {
  const std::string_view whole(field, Size);
  return std::string(whole.substr(0, whole.find('\0')));
}

}  // namespace agent::recorder
