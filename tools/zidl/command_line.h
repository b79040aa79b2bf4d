// SPDX-License-Identifier: Apache-2.0
// zidl's command line.

#pragma once

#include <string>

#include "platform/sys/options.h"
#include "tools/zidl/generator.h"

namespace zidl {

struct Arguments {
  Options options;
  std::string directory = ".";
};

// The table of zidl's options, which go to the arguments.
sys::Command command_line(Arguments& arguments);

// Makes a prefix that cannot begin a name the error of a line that had none.
void check_prefix(const Arguments& arguments, sys::CommandLine& line);

}  // namespace zidl
