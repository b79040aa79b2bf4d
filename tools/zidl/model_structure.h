// SPDX-License-Identifier: Apache-2.0
// Checks the fields of a structure and lays it out on the wire.

#pragma once

#include "tools/zidl/model_scope.h"

namespace zidl {

// Pointers inside are full pointers with the attribute ptr, or if the interface's default says so.
Structure check_structure(const syntax::Structure& tree, bool full_pointers, Scope& scope);

}  // namespace zidl
