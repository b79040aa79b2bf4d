// SPDX-License-Identifier: Apache-2.0
// Replies of an endpoint mapper, through the stub, the tower reader and the inquiry. The first byte
// says the byte order, the rest is the body of the first reply; a second lookup finds the mapper
// silent. Stands in for the call machine.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>

#include "platform/rpc/stub/stub.h"

namespace {

rpc::Reply first_reply;
bool answered = false;

}  // namespace

rpc::Reply rpc::invoke(const CallTarget&, const OperationSpec&, std::span<const std::byte>,
                       std::size_t reply_limit) {
  if (answered || first_reply.body.size() > reply_limit)
    throw RpcException(RPC_S_SERVER_UNAVAILABLE, FailureKind::communication);
  answered = true;
  return first_reply;
}

void rpc::release_activities(bool) {}

std::optional<std::chrono::milliseconds> rpc::limit_waits(
    std::optional<std::chrono::milliseconds>) {
  return std::nullopt;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  const auto bytes = std::as_bytes(std::span(data + 1, size - 1));
  first_reply.body.assign(bytes.begin(), bytes.end());
  first_reply.representation = {(data[0] & 1) == 0, (data[0] & 2) != 0, 0};

  answered = false;
  RPC_EP_INQ_HANDLE inquiry = nullptr;
  if (RpcMgmtEpEltInqBegin(nullptr, RPC_C_EP_ALL_ELTS, nullptr, 0, nullptr, &inquiry) != RPC_S_OK)
    std::abort();
  std::size_t count = 0;
  for (;;) {
    rpc_if_id_t interface_id{};
    uuid_t object{};
    RPC_BINDING_HANDLE binding = nullptr;
    char* annotation = nullptr;
    if (RpcMgmtEpEltInqNextA(inquiry, &interface_id, &binding, &object, &annotation) != RPC_S_OK)
      break;
    char* text = nullptr;
    if (++count > 64 || std::strlen(annotation) > 63)
      std::abort();
    // Every binding has a text, but for names of pipes that are longer than a text may be.
    if (RpcBindingToStringBindingA(binding, &text) != RPC_S_OK &&
        rpc::target_of(binding).endpoint.size() + rpc::target_of(binding).network_address.size() <
            2000)
      std::abort();
    RpcStringFreeA(&text);
    RpcStringFreeA(&annotation);
    RpcBindingFree(&binding);
  }
  RpcMgmtEpEltInqDone(&inquiry);

  answered = false;
  RPC_BINDING_HANDLE server = nullptr;
  RpcBindingFromStringBindingA("ncadg_ip_udp:alpha[1045]", &server);
  RpcMgmtIsServerListening(server);
  RpcBindingFree(&server);
  return 0;
}
