// SPDX-License-Identifier: Apache-2.0
// Second step: tokens to a syntax tree.

#pragma once

#include <optional>
#include <vector>

#include "tools/zidl/lexer.h"
#include "tools/zidl/syntax.h"

namespace zidl {

// `tokens` end with one of kind `end`. Every syntax error is reported; reading goes on behind the
// next semicolon, so that one run finds several. Nothing when there is no interface to return.
std::optional<syntax::Interface> parse(const std::vector<Token>& tokens, Reporter& reporter);

}  // namespace zidl
