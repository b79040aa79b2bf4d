// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTmapperBinding.h"

namespace {

constexpr const char* kProtocolSequence = "ncadg_ip_udp";
constexpr const char* kMapperEndpoint = "135";

}  // namespace

error_status_t MapperBinding::bind(const char* host, error_status_t* released) {
  char* text = nullptr;
  error_status_t status =
      RpcStringBindingComposeA(nullptr, kProtocolSequence, host, kMapperEndpoint, nullptr, &text);
  if (status == RPC_S_OK)
    status = RpcBindingFromStringBindingA(text, &binding_);
  *released = RpcStringFreeA(&text);
  return status;
}
