// SPDX-License-Identifier: Apache-2.0
// Writes a scenario as a file that reads back as the same.

#pragma once

#include <span>
#include <string>
#include <vector>

#include "agent/scenario.h"

namespace agent::recorder {

// The file's name for each source: its label, with a number where another one has it already.
void give_source_keys(std::vector<System>& systems);

// Of what a recording holds: systems with a broker's mode, version and status; a mapper's states,
// failures and elements; servers with port, byte order, state, listening, object and behaviours
// that are a status, fault, reject, cut, silence, death or restart; sources with the rows of their
// classes written out. Everything else must have its default. Repository servers share a source by
// its key. Texts are UTF-8 (see make_utf8), but for the comments, which stand at the top, one a
// line.
std::string scenario_text(const std::vector<System>& systems,
                          std::span<const std::string> comments);

}  // namespace agent::recorder
