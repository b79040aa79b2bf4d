// SPDX-License-Identifier: Apache-2.0
// Reads an endpoint map, element by element.

#pragma once

#include <cstdint>

#include "agent/recorder/walk.h"
#include "agent/scenario.h"

namespace agent::recorder {

// A mapper with the elements of the map, or with the manners that it showed. Elements with internet
// addresses name the real one; "0.0.0.0" in them is the mapper's own. `address` in host order.
EndpointMapper read_map(std::uint32_t address, const Walk& walk);

}  // namespace agent::recorder
