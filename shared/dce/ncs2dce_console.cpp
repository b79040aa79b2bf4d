// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): a binding without
// an endpoint.

#include "shared/dce/ncs2dce.h"

void ptc_binding_from_hostname(const char* host, const char* protseq, RPC_BINDING_HANDLE* handle,
                               error_status_t* opStatus) {
  char* binding = nullptr;
  *opStatus = RpcStringBindingComposeA(nullptr, protseq, host, nullptr, nullptr, &binding);
  if (*opStatus == RPC_S_OK)
    *opStatus = RpcBindingFromStringBindingA(binding, handle);
  RpcStringFreeA(&binding);
}
