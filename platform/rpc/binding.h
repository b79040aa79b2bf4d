// SPDX-License-Identifier: Apache-2.0
// What stands behind a binding handle, and the protocol sequences that a binding may name.

#pragma once

#include <string>
#include <string_view>

#include "platform/rpc/client/invoke.h"
#include "platform/rpc/rpc.h"

namespace rpc {

inline constexpr unsigned kDefaultTimeoutLevel = 5;

struct Binding {
  CallTarget target;
  std::string options;
};

// What an endpoint of a protocol sequence looks like.
enum class EndpointForm {
  port,        // 1 to 65535, decimal
  named_pipe,  // \pipe\name
  name,        // any text
};

struct ProtocolSequence {
  std::string_view name;
  EndpointForm endpoint;
  bool internet_address;  // a dotted address or a host name
};

// Null for a name that is no protocol sequence.
const ProtocolSequence* find_protocol_sequence(std::string_view name);

// The binding of a string binding: 1700 and 1705 of parsing, 1704 for an unknown protocol
// sequence, 1706 and 1707 for an endpoint or address that it cannot have.
RPC_STATUS binding_from_text(std::string_view text, Binding* binding);

// A handle for a binding that was made elsewhere, as it is.
RPC_BINDING_HANDLE register_binding(Binding binding);
// Ends such a handle without a word to any server; false when it is not alive.
bool unregister_binding(RPC_BINDING_HANDLE binding);

}  // namespace rpc
