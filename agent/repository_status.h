// SPDX-License-Identifier: Apache-2.0
// The statuses of our repository servers. Only the first has a meaning that clients know; what the
// others say is our own choice within the servers' range.

#pragma once

#include <cstdint>

namespace agent {

enum class RepositoryStatus : std::uint32_t {
  ok = 0,
  nothing_found = 0x4C010001,  // no table, instance or metric matches
  unknown_metric = 0x4C010002,
  unknown_instance = 0x4C010003,
  bad_shift = 0x4C010004,         // no shift, an unknown kind, or one that ends before it starts
  no_metrics = 0x4C010005,        // a view of nothing
  no_room = 0x4C010006,           // not even one row fits the client's arrays
  too_many_objects = 0x4C010007,  // views and filters of this server
  not_summarizable = 0x4C010008,  // an interval on a class that cannot be summarised
};

}  // namespace agent
