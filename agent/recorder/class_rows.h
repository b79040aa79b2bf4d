// SPDX-License-Identifier: Apache-2.0
// Reads the rows of one class through base views, as many metrics at a time as one reply carries.

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "agent/recorder/remote_call.h"
#include "agent/recorder/walk.h"
#include "agent/scenario.h"

namespace agent::recorder {

struct RowsWanted {
  std::uint32_t from = 0;  // seconds since 1970
  std::uint32_t to = 0;    // the last second that counts
  std::size_t most = 4'000;
};

struct RowsHad {
  std::vector<ExplicitRow> rows;  // in rising order of time, one cell for each metric
  CallEnd failed;                 // the first call that failed, if one did
  const char* operation = "";     // which one that was
};

// What is left out for another reason than a failed call is told to the walk. Every view that the
// server handed out is destroyed before this returns.
RowsHad read_rows(const Server& server, const ClassData& data, const RowsWanted& wanted,
                  const Walk& walk);

}  // namespace agent::recorder
