// SPDX-License-Identifier: Apache-2.0
// Walks one agent as the product's checks do: location broker, endpoint map, repository servers
// with what they serve, alarm server. It only reads; what it had the server make (views, the cursor
// of the map) it has destroyed when it returns.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/recorder/walk.h"
#include "agent/scenario.h"

namespace agent::recorder {

// The host's system, and behind it one for each other address that its endpoint map names and a
// server was found at. Addresses are the real ones; those of elements with internet addresses are
// never empty. Source keys are empty.
std::vector<System> record_agent(const std::string& name, std::uint32_t address, const Walk& walk);

}  // namespace agent::recorder
