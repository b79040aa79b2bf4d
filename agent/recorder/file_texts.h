// SPDX-License-Identifier: Apache-2.0
// Texts of servers, made such as a scenario file holds: it is UTF-8 throughout.

#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "agent/scenario.h"

namespace agent::recorder {

// Puts '?' in place of each octet that belongs to no UTF-8 sequence; how many those were.
std::size_t make_utf8(std::string& text);

struct ReplacedOctets {
  std::string where;  // system, and endpoint map or data source and class, as they are now
  std::size_t count = 0;
};

// Does so in all texts of recorded systems, and tells each place where octets were lost.
std::vector<ReplacedOctets> make_utf8(std::vector<System>& systems);

}  // namespace agent::recorder
