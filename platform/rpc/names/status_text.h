// SPDX-License-Identifier: Apache-2.0
// The sentence for each status number that the runtime, a server or a socket can report.

#pragma once

#include <cstdint>
#include <string_view>

namespace rpc {

struct StatusText {
  std::uint32_t number;
  std::string_view text;
};

// Empty for a number without a text.
std::string_view status_text(std::uint32_t number);

}  // namespace rpc
