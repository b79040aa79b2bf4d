// SPDX-License-Identifier: Apache-2.0
// The process-wide start-up, and the settings of remote calls that it gives their first values.

#pragma once

#include <cstdint>

#include "platform/numbers/timeout_level.h"
#include "platform/rpc/names/uuid.h"

inline constexpr std::uint32_t kDefaultComTimeout = 3;
// This level waits without limit.
inline constexpr std::uint32_t kNoComTimeout = rpc::kTimeoutLevels - 1;

extern uuid_t uuid_nil;
// The time-out level of every binding, 0 (the shortest wait) to 10 (none).
extern std::uint32_t zt_com_timeout;

// Starts the socket library, then DCEinit.
void zt_globalInit();
// Fills uuid_nil and gives the time-out level its default.
void DCEinit();
