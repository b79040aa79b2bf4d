// SPDX-License-Identifier: Apache-2.0
// Stands in for the transport below the generated client stubs: a call is answered by a function
// of the test. Binding and context handles are the real ones.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/rpc/client/invoke.h"
#include "platform/rpc/rpc.h"
#include "platform/rpc/server/exported_interface.h"
#include "platform/rpc/stub/wire_context.h"

namespace stub_test {

// What a stub handed to the runtime.
struct Call {
  rpc::CallTarget target;
  const rpc::OperationSpec* operation = nullptr;
  std::vector<std::byte> request;
  std::size_t reply_limit = 0;
};

using Answer = std::function<rpc::Reply(const Call&)>;

// Installs an answer for the life of the object and counts the calls.
class Runtime {
 public:
  explicit Runtime(Answer answer);
  ~Runtime();
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;

  rpc::Reply run(const Call& call);
  unsigned calls() const { return calls_; }
  const Call& last() const { return last_; }

 private:
  Answer answer_;
  unsigned calls_ = 0;
  Call last_;
};

// Answers by a skeleton, in the byte order asked for. A fault or reject becomes the exception of
// its kind with the number that the packet carried. A reply that is longer than the stub allows is
// an error of the test's subject and throws std::logic_error.
Answer served_by(rpc::server::Interface& server, bool little_endian);

// Fails every call so.
Answer failing(std::uint32_t status, rpc::FailureKind kind = rpc::FailureKind::communication);

// A binding to a server that nobody calls.
class Binding {
 public:
  Binding();
  ~Binding() { RpcBindingFree(&handle_); }
  Binding(const Binding&) = delete;
  Binding& operator=(const Binding&) = delete;
  operator RPC_BINDING_HANDLE() const { return handle_; }

 private:
  RPC_BINDING_HANDLE handle_ = nullptr;
};

// A context that a server has issued.
RPC_CONTEXT_HANDLE issued_context(const rpc::WireContext& wire);

// The status and kind of the RpcException that `action` throws; 0 and communication for none.
struct Raised {
  std::uint32_t status = 0;
  rpc::FailureKind kind = rpc::FailureKind::communication;
  friend bool operator==(const Raised&, const Raised&) = default;
};
Raised raised_by(const std::function<void()>& action);

}  // namespace stub_test
