// SPDX-License-Identifier: Apache-2.0
// From the texts of a binding to an address to send to.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/rpc/names/socket_address.h"

namespace rpc {

// A UDP port in decimal, 1 to 65535; nothing for any other text.
std::optional<std::uint16_t> parse_port(const std::string& text);

struct ResolvedHost {
  std::uint32_t status = 0;  // 0, 1707 for a text that is no address, 1722 for an unknown name
  std::uint32_t host = 0;    // IPv4, host order
};

// A dotted address, or a host name that the system's resolver turns into its first IPv4 address
// (may block as long as the resolver does). Empty: this host.
ResolvedHost resolve_host(const std::string& text);

}  // namespace rpc
