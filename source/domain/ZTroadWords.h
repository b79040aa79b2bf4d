// SPDX-License-Identifier: Apache-2.0
// What a failure on the road to an agent is called: causes, what happened, what to try.

#pragma once

#include <chrono>
#include <string>

#include "source/domain/ZTagentRoad.h"

// What happened in a remote call, without its end: "no answer within 8 s (10060)".
struct CallWords {
  RoadCause cause;
  std::string text;
  const char* advice = nullptr;  // where the cause's does not fit
};
// `waited` is " within 8 s", or nothing when there was no limit.
CallWords words_of_call(const LostCall& call, const std::string& waited);

RoadCause cause_of_network(error_status_t error);
std::string words_of_network(error_status_t error, std::chrono::seconds limit);

std::string advice_for(RoadLink link, RoadCause cause);
