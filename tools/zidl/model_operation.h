// SPDX-License-Identifier: Apache-2.0
// Checks the parameters of an operation.

#pragma once

#include "tools/zidl/model_scope.h"

namespace zidl {

Operation check_operation(const syntax::Operation& tree, std::uint16_t opnum, Scope& scope);

}  // namespace zidl
