// SPDX-License-Identifier: Apache-2.0
#include "agent/command_line.h"

#include <limits>

namespace agent {

sys::Command command_line(Arguments& arguments) {
  return {.name = "hxasim",
          .operands = "SCENARIO",
          .summary = "simulate performance agents on loopback addresses",
          .least_operands = 1,
          .most_operands = 1,
          .options = {
              {"--verbose", "-v", "", "print a line for each packet, call and connection",
               &arguments.verbose},
              {"--check", "", "", "only read the scenario and report its errors", &arguments.check},
              {"--ready-fd", "", "N", "write the ready line to this descriptor too, and close it",
               sys::Integer{&arguments.ready_descriptor, 0, std::numeric_limits<int>::max()}},
              {"--ready-file", "", "FILE", "write the ready line to this file too",
               &arguments.ready_file},
          }};
}

}  // namespace agent
