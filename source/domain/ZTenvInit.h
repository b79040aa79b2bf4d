// SPDX-License-Identifier: Apache-2.0
// Settings of remote calls taken from the environment when the diagnostic object is built.

#pragma once

#include <cstdint>
#include <string>

// Seconds and microseconds, both may be negative.
struct zt_TimeValue {
  std::int32_t seconds = 0;
  std::int32_t microseconds = 0;
};

// Remote calls are traced when this is above 0.
extern std::int32_t zt_trace_level;
// The pause after every remote call; only its seconds count.
extern zt_TimeValue slownet_wait_interval;
extern zt_TimeValue ncs_wait_interval;

void zt_set_slownet_wait_interval(std::int32_t seconds, std::int32_t microseconds);
void zt_set_ncs_wait_interval(std::int32_t seconds, std::int32_t microseconds);

// Each reads its variable and applies it. 1 when the variable is not set; 0 when error_number (set
// 20) with its parameter text tells what became of it. Both are cleared first.
int Init_ZT_RPC_NOISE(std::string& parameter, int& error_number);
int Init_ZT_RPC_TIMEOUT(std::string& parameter, int& error_number);
int Init_ZT_TRACE_INTERNAL(std::string& parameter, int& error_number);
