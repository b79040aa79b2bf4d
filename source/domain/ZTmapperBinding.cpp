// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTmapperBinding.h"

#include "platform/rpc/names/protocol_sequence.h"

namespace {

constexpr const char* kMapperEndpoint = "135";

}  // namespace

error_status_t MapperBinding::bind(const char* host, error_status_t* released) {
  char* text = nullptr;
  error_status_t status =
      RpcStringBindingComposeA(nullptr, rpc::protseq::kUdp, host, kMapperEndpoint, nullptr, &text);
  if (status == RPC_S_OK)
    status = RpcBindingFromStringBindingA(text, &binding_);
  *released = RpcStringFreeA(&text);
  return status;
}
