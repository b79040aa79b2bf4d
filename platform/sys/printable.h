// SPDX-License-Identifier: Apache-2.0
// Texts that came from the network or a file, made safe for a terminal.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace sys {

// The text with '?' for every control character: bytes below 0x20, 0x7f, and the second set of
// controls (0x80 to 0x9f) whether it stands as UTF-8 or as single bytes. Everything else, UTF-8 and
// bytes of other character sets alike, is kept.
std::string printable(std::string_view text);

// The length of the UTF-8 sequence that a text begins with (RFC 3629, section 4), 0 when it begins
// with none.
std::size_t utf8_length(std::string_view text);

// The text as a JSON string with its quotes (RFC 8259, section 7), of characters that printable()
// leaves alone. A byte that begins no UTF-8 sequence becomes U+FFFD.
std::string json_quoted(std::string_view text);

}  // namespace sys
