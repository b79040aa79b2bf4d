// SPDX-License-Identifier: Apache-2.0
// The steps that every wrapper of ZTrepInterface has in common.

#pragma once

#include <cstdio>
#include <cstdlib>

#include "source/domain/ZTrepInterface.h"

// A record that no bind or create made is the caller's fault, never the server's.
[[noreturn]] inline void broken_precondition(const char* expression, int line) {
  std::fflush(stdout);
  std::fprintf(stderr, "Assertion failed: %s, file source/domain/ZTrepInterface, line %d\n",
               expression, line);
  std::fflush(stderr);
  std::abort();
}

#define ZT_PRECONDITION(expression) \
  ((expression) ? static_cast<void>(0) : broken_precondition(#expression, __LINE__))

#define ZT_CHECK_RECORD()                                                                          \
  do {                                                                                             \
    ZT_PRECONDITION(RPCinfo.version >= zt_RPCversion_min && RPCinfo.version <= zt_RPCversion_max); \
    ZT_PRECONDITION(RPCinfo.rpc_handle != 0);                                                      \
  } while (false)

#define ZT_CHECK_RECORD_POINTER()                            \
  do {                                                       \
    ZT_PRECONDITION(RPCinfo->version >= zt_RPCversion_min && \
                    RPCinfo->version <= zt_RPCversion_max);  \
    ZT_PRECONDITION(RPCinfo->rpc_handle != 0);               \
  } while (false)

// The steps that every wrapper has in common around its stub.
template <typename Stub>
void guarded_call(const char* operation, const zt_RPCinfo_t& info, error_status_t* status,
                  const Stub& stub) {
  if (!rpc_prologue(operation, info, status))
    return;
  try {
    stub();
  } catch (...) {
    if (*status == 0)
      *status = kCallRaised;
  }
  rpc_epilogue(operation, info, *status);
}

// A server that reports success and hands out no object has not created anything.
inline void require_object(RPC_CONTEXT_HANDLE context, error_status_t* status) {
  if (*status == 0 && context == nullptr)
    *status = kCallRaised;
}
