// SPDX-License-Identifier: Apache-2.0
// hxasim record: walks agents beside one another and writes what they are as one scenario.

#pragma once

#include <string>
#include <vector>

#include "platform/sys/options.h"

namespace agent::recorder {

struct RecordArguments {
  int hours = 1;
  int jobs = 8;
  int level = 3;
  int minutes = 10;
  bool anonymous = false;
  std::string output;
};

// The table of the sub-command, whose options go to the arguments.
sys::Command record_command(RecordArguments& arguments);

// Tells on standard error how it goes and what could not be had. The exit status: 0 when the file
// has been written and every host stands in it, else 1.
int record(const RecordArguments& arguments, const std::vector<std::string>& hosts);

}  // namespace agent::recorder
