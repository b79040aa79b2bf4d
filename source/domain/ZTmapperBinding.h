// SPDX-License-Identifier: Apache-2.0
// A binding to a host's endpoint mapper, freed with its owner.

#pragma once

#include "platform/rpc/rpc.h"

class MapperBinding {
 public:
  MapperBinding() = default;
  ~MapperBinding() { RpcBindingFree(&binding_); }
  MapperBinding(const MapperBinding&) = delete;
  MapperBinding& operator=(const MapperBinding&) = delete;

  // Binds to the mapper of a host name or address over ncadg_ip_udp. The status of the first step
  // that failed; `released` gets the status of releasing the string binding.
  error_status_t bind(const char* host, error_status_t* released);
  RPC_BINDING_HANDLE get() const { return binding_; }

 private:
  RPC_BINDING_HANDLE binding_ = nullptr;
};
