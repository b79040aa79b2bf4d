// SPDX-License-Identifier: Apache-2.0
// hxasim's command line: one table of options that is read and printed.

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace agent {

struct CommandLine {
  std::string scenario;
  bool verbose = false;
  bool check = false;
  bool help = false;
  bool version = false;
  std::optional<int> ready_descriptor;
  std::string ready_file;
};

struct ParsedCommandLine {
  CommandLine command_line;
  std::string error;  // empty when all is well
};

// The arguments behind the program's name.
ParsedCommandLine parse_command_line(const std::vector<std::string>& arguments);
// What --help prints.
std::string usage();

}  // namespace agent
