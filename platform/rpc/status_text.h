// The sentence for each status number that the runtime, a server or a socket can report.

#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace rpc {

struct StatusText {
  std::uint32_t number;
  std::string_view text;
};

// All numbers that have a text, in rising order.
std::span<const StatusText> status_texts();

// Empty for a number without a text.
std::string_view status_text(std::uint32_t number);

}  // namespace rpc
