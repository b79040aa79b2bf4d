// SPDX-License-Identifier: Apache-2.0
// Reading of the command line.

#pragma once

#include <span>
#include <string>
#include <variant>

#include "tools/ztsys/ztsys.h"

namespace ztsys {

struct Invocation {
  const Command* command = nullptr;  // null: only help or the version is asked for
  Arguments arguments;
  bool help = false;
  bool version = false;
};

// The words behind the program's name, or what is wrong with them.
std::variant<Invocation, std::string> ReadCommandLine(std::span<const Command> commands,
                                                      std::span<const char* const> words);

}  // namespace ztsys
