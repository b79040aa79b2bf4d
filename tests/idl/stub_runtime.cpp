// SPDX-License-Identifier: Apache-2.0
#include "tests/idl/stub_runtime.h"

#include <stdexcept>

#include "platform/rpc/exception.h"
#include "platform/rpc/stub/stub.h"

namespace stub_test {

namespace {

Runtime* current = nullptr;

}  // namespace

Runtime::Runtime(Answer answer) : answer_(std::move(answer)) {
  current = this;
}

Runtime::~Runtime() {
  current = nullptr;
}

rpc::Reply Runtime::run(const Call& call) {
  ++calls_;
  last_ = call;
  return answer_(call);
}

Answer served_by(rpc::server::Interface& server, bool little_endian) {
  return [&server, little_endian](const Call& call) -> rpc::Reply {
    if (call.operation->interface->id != server.spec().id)
      throw std::logic_error("a call for another interface");
    const rpc::server::Outcome outcome = server.dispatch({}, call.operation->opnum, call.request,
                                                         {.little_endian = true}, little_endian);
    if (outcome.kind == rpc::server::Outcome::Kind::fault)
      throw rpc::RpcException(outcome.status, rpc::FailureKind::fault);
    if (outcome.kind == rpc::server::Outcome::Kind::reject)
      throw rpc::RpcException(outcome.status, rpc::FailureKind::communication);
    if (outcome.reply.size() > call.reply_limit)
      throw std::logic_error("a reply beyond the limit that the stub gave");
    return {outcome.reply, {.little_endian = little_endian}};
  };
}

Answer failing(std::uint32_t status, rpc::FailureKind kind) {
  return [status, kind](const Call&) -> rpc::Reply { throw rpc::RpcException(status, kind); };
}

Binding::Binding() {
  RpcBindingFromStringBindingA("ncadg_ip_udp:127.0.0.1[1045]", &handle_);
}

RPC_CONTEXT_HANDLE issued_context(const rpc::WireContext& wire) {
  RPC_CONTEXT_HANDLE context = nullptr;
  rpc::CallTarget issuer;
  issuer.protocol_sequence = "ncadg_ip_udp";
  issuer.network_address = "127.0.0.2";
  issuer.endpoint = "1046";
  rpc::store_context(&context, wire, issuer);
  return context;
}

Raised raised_by(const std::function<void()>& action) {
  try {
    action();
    return {};
  } catch (const rpc::RpcException& failure) {
    return {failure.status(), failure.kind()};
  }
}

}  // namespace stub_test

namespace rpc {

Reply invoke(const CallTarget& target, const OperationSpec& operation,
             std::span<const std::byte> request, std::size_t reply_limit) {
  if (stub_test::current == nullptr)
    throw RpcException(1722, FailureKind::communication);
  return stub_test::current->run(
      {target, &operation, {request.begin(), request.end()}, reply_limit});
}

void release_activities(bool) {}

}  // namespace rpc
