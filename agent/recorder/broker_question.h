// SPDX-License-Identifier: Apache-2.0
// Asks a location broker for its version, as the product's first step does.

#pragma once

#include <cstdint>

#include "agent/recorder/walk.h"
#include "agent/scenario.h"

namespace agent::recorder {

// A broker with the version and status that it answered, or with the manners that it showed.
// `address` in host order.
LocationBroker ask_broker(std::uint32_t address, const Walk& walk);

}  // namespace agent::recorder
