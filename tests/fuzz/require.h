// SPDX-License-Identifier: Apache-2.0
// A promise of the code under a fuzz target.

#pragma once

#include <cstdlib>

namespace fuzz {

inline void require(bool holds) {
  if (!holds)
    std::abort();
}

}  // namespace fuzz
