// SPDX-License-Identifier: Apache-2.0
// First step: the characters of a definition to tokens.

#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "tools/zidl/reporter.h"

namespace zidl {

enum class TokenKind { identifier, number, uuid, punctuation, end };

struct Token {
  TokenKind kind = TokenKind::end;
  std::string_view text;    // points into the source
  std::uint64_t value = 0;  // of a number
  Location at;
};

// All tokens, the last of kind `end`. Characters that begin no token are reported and skipped.
std::vector<Token> tokenize(std::string_view source, Reporter& reporter);

}  // namespace zidl
