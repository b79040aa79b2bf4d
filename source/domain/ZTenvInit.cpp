// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTenvInit.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "source/domain/ZTmessages.h"
#include "source/support/ZTglobal.h"

std::int32_t zt_trace_level = 0;
zt_TimeValue slownet_wait_interval;
zt_TimeValue ncs_wait_interval;

namespace {

// As atol reads it; a number beyond 32 bits counts as the nearest one within.
std::int32_t number_of(const char* text) {
  const long long number = std::strtoll(text, nullptr, 10);
  return static_cast<std::int32_t>(std::clamp<long long>(
      number, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

const char* begin_reading(const char* variable, std::string& parameter, int& error_number) {
  error_number = 0;
  parameter.clear();
  return std::getenv(variable);
}

}  // namespace

void zt_set_slownet_wait_interval(std::int32_t seconds, std::int32_t microseconds) {
  slownet_wait_interval = {seconds, microseconds};
}

void zt_set_ncs_wait_interval(std::int32_t seconds, std::int32_t microseconds) {
  ncs_wait_interval = {seconds, microseconds};
}

int Init_ZT_RPC_NOISE(std::string& parameter, int& error_number) {
  const char* value = begin_reading("ZT_RPC_NOISE", parameter, error_number);
  zt_set_ncs_wait_interval(0, 0);
  zt_set_slownet_wait_interval(0, 0);
  if (value == nullptr)
    return 1;
  const std::int32_t seconds = number_of(value);
  if (seconds == 0) {
    error_number = messages::kNoiseRejected;
  } else {
    error_number = messages::kNoiseAccepted;
    parameter = std::to_string(seconds);
    zt_set_slownet_wait_interval(seconds, 0);
  }
  return 0;
}

int Init_ZT_RPC_TIMEOUT(std::string& parameter, int& error_number) {
  const char* value = begin_reading("ZT_RPC_TIMEOUT", parameter, error_number);
  if (value == nullptr)
    return 1;
  const std::int32_t level = number_of(value);
  if (level < 0 || level > static_cast<std::int32_t>(kNoComTimeout)) {
    error_number = messages::kTimeoutRejected;
  } else {
    error_number = messages::kTimeoutAccepted;
    parameter = std::to_string(level);
    zt_com_timeout = static_cast<std::uint32_t>(level);
  }
  return 0;
}

int Init_ZT_TRACE_INTERNAL(std::string& parameter, int& error_number) {
  const char* value = begin_reading("ZT_TRACE_INTERNAL", parameter, error_number);
  zt_trace_level = 0;
  if (value == nullptr)
    return 1;
  zt_trace_level = number_of(value);
  if (zt_trace_level == 0) {
    error_number = messages::kTraceRejected;
  } else {
    error_number = messages::kTraceAccepted;
    parameter = std::to_string(zt_trace_level);
  }
  return 0;
}
