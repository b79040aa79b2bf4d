// SPDX-License-Identifier: Apache-2.0
// Reads what one repository server serves: its descriptors, and the newest rows of each class.

#pragma once

#include <vector>

#include "agent/recorder/remote_call.h"
#include "agent/recorder/walk.h"
#include "agent/scenario.h"

namespace agent::recorder {

struct SourceRecord {
  DataSource source;
  // The operations that failed, as rules that fail likewise. The walk ends with the first one that
  // was not answered.
  std::vector<OperationBehaviour> behaviours;
  bool big_endian = false;  // the server's byte order
};

// Bounds: 4,000 classes, metrics of a class, and rows of a class; 20,000 instances of a class; and
// the walk's room. What a server sends is checked before it is used.
SourceRecord record_source(const Server& server, const Walk& walk);

}  // namespace agent::recorder
