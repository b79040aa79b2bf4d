// SPDX-License-Identifier: Apache-2.0
#include "agent/command_line.h"

#include <limits>

namespace agent {

sys::Command command_line(Arguments& arguments) {
  return {
      .name = "hxasim",
      .operands = "SCENARIO",
      .summary = "simulate performance agents on loopback addresses",
      .least_operands = 1,
      .most_operands = 1,
      .options =
          {
              {"--verbose", "-v", "", "print a line for each packet, call, connection and change",
               &arguments.verbose},
              {"--check", "", "", "only read the scenario and report its errors", &arguments.check},
              {"--log", "", "FILE", "write the same as JSON lines to this file",
               &arguments.log_file},
              {"--watch", "", "", "read the scenario anew whenever it changes, as on SIGHUP",
               &arguments.watch},
              {"--anywhere", "", "", "allow addresses of this machine beyond 127.0.0.0/8",
               &arguments.anywhere},
              {"--ready-fd", "", "N", "write the ready line to this descriptor too, and close it",
               sys::Integer{&arguments.ready_descriptor, 0, std::numeric_limits<int>::max()}},
              {"--ready-file", "", "FILE", "write the ready line to this file too",
               &arguments.ready_file},
          },
      .commands = {recorder::record_command(arguments.record)}};
}

}  // namespace agent
