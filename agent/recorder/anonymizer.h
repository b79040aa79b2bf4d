// SPDX-License-Identifier: Apache-2.0
// Puts made-up words in place of those that tell whose systems were recorded, the same for the same
// in all systems.
//
// Replaced are: names of systems and of their data sources but the collector's, paths, labels,
// annotations, instances, objects, system identifiers, and of sources other than the collector's
// also the names of classes and metrics and the headings. Inside the texts of rows: all of these,
// names of recorded hosts with whatever domain follows them, and whatever looks like an address or
// a path. Numbers, and other words of rows, stay.

#pragma once

#include <cstddef>
#include <vector>

#include "agent/recorder/loopback.h"
#include "agent/scenario.h"

namespace agent::recorder {

// Addresses in texts become what `addresses` has for them; those of systems and of elements with
// internet addresses are left to move_to_loopback. Elements whose towers cannot be read are taken
// out, since nobody knows what they tell. How many those were.
std::size_t anonymize(std::vector<System>& systems, LoopbackAddresses& addresses);

}  // namespace agent::recorder
