// SPDX-License-Identifier: Apache-2.0
#include "tools/zidl/command_line.h"

#include <algorithm>
#include <cctype>

#include "platform/sys/printable.h"

namespace zidl {

namespace {

bool is_name_character(unsigned char character) {
  return std::isalnum(character) != 0 || character == '_';
}

}  // namespace

sys::Command command_line(Arguments& arguments) {
  return {.name = "zidl",
          .operands = "FILE.idl",
          .summary =
              "write NAME.h, NAME_client.cpp, NAME_server.h and NAME_server.cpp for the "
              "interface NAME that NAME.idl defines",
          .least_operands = 1,
          .most_operands = 1,
          .options = {{"--prefix", "-p", "PREFIX",
                       "begins the names of client entries and of the interface handle",
                       &arguments.options.prefix},
                      {"--out", "-o", "DIRECTORY", "where to write; default: the current directory",
                       &arguments.directory}}};
}

void check_prefix(const Arguments& arguments, sys::CommandLine& line) {
  const std::string& prefix = arguments.options.prefix;
  if (line.error.empty() &&
      (!std::all_of(prefix.begin(), prefix.end(), is_name_character) ||
       (!prefix.empty() && std::isdigit(static_cast<unsigned char>(prefix[0])) != 0)))
    line.error = "the prefix '" + sys::printable(prefix) + "' cannot begin a name";
}

}  // namespace zidl
