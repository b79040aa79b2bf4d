// SPDX-License-Identifier: Apache-2.0
// hxasim's command line.

#pragma once

#include <string>

#include "agent/recorder/record_command.h"
#include "platform/sys/options.h"

namespace agent {

struct Arguments {
  bool verbose = false;
  bool check = false;
  bool watch = false;
  bool anywhere = false;
  std::string log_file;       // empty: none
  int ready_descriptor = -1;  // none
  std::string ready_file;     // empty: none
  recorder::RecordArguments record;
};

// The table of hxasim's options, which go to the arguments.
sys::Command command_line(Arguments& arguments);

}  // namespace agent
