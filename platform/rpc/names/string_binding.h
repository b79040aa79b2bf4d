// SPDX-License-Identifier: Apache-2.0
// The text form of a binding (C706 3.1): [object@]protseq:[address]['['endpoint[,option=value]']'].
// A backslash takes the next character as it is; the endpoint may also be an option "endpoint=".
// Text only: whether a protocol sequence is known is the business of the binding.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/rpc/rpc.h"

namespace rpc {

// No legal binding comes near this length; a longer text is refused with 1700.
inline constexpr std::size_t kMaxStringBinding = 4096;

// The parts without their quoting; a part that is not there is empty.
struct StringBinding {
  std::string object;
  std::string protocol_sequence;
  std::string network_address;
  std::string endpoint;
  std::string options;  // name=value, separated by commas

  friend bool operator==(const StringBinding&, const StringBinding&) = default;
};

// Stores the parts only on success. 1700 for a text of another form, 1705 when the object is no
// UUID. Linear in the length of the text.
RPC_STATUS parse_string_binding(std::string_view text, StringBinding* parts);

// The text of the parts, quoted where needed, so that parsing it gives the same parts back. The
// statuses are those of parsing, for parts that no text can stand for.
RPC_STATUS compose_string_binding(const StringBinding& parts, std::string* text);

}  // namespace rpc
