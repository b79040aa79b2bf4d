// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/command_line.h"

namespace ztsys {

sys::Command Program(Arguments& arguments) {
  const auto run = [&arguments](Status (*command)(const Arguments&)) {
    return [&arguments, command]() -> int { return command(arguments); };
  };
  const sys::Command list{
      .name = "list",
      .summary = "list all systems",
      .options = {{"--json", "", "", "print one JSON object a line", &arguments.json}},
      .run = run(RunList)};
  const sys::Command show{.name = "show",
                          .operands = "NAME|ADDRESS",
                          .summary = "describe one system",
                          .least_operands = 1,
                          .most_operands = 1,
                          .options = {{"--short", "", "", "in few lines", &arguments.brief}},
                          .run = run(RunShow)};
  const sys::Command alarms{.name = "alarms",
                            .operands = "[NAME|ADDRESS]",
                            .summary = "show the alarm states of one system or of all",
                            .most_operands = 1,
                            .run = run(RunAlarms)};
  const sys::Command info{.name = "info", .summary = "describe the database", .run = run(RunInfo)};
  const sys::Command add{
      .name = "add",
      .operands = "NAME|ADDRESS",
      .summary = "add a system",
      .least_operands = 1,
      .most_operands = 1,
      .options = {{"--group", "", "G", "the name of its group", &arguments.group},
                  {"--type", "", "T", "its type: a number from 1 to 7 or a code", &arguments.type}},
      .run = run(RunAdd)};
  const sys::Command rename{.name = "rename",
                            .operands = "ADDRESS NAME",
                            .summary = "give a system another name of its address",
                            .least_operands = 2,
                            .most_operands = 2,
                            .run = run(RunRename)};
  const sys::Command remove{
      .name = "delete",
      .operands = "NAME|ADDRESS",
      .summary = "delete a system",
      .least_operands = 1,
      .most_operands = 1,
      .options = {{"--yes", "", "", "do not ask on a terminal", &arguments.yes}},
      .run = run(RunDelete)};
  return {.name = "ztsys",
          .summary = "list and change the systems of the system database",
          .options = {{"--db", "", "FILE",
                       "the database file; default: ztdb in the installation's database directory",
                       &arguments.db}},
          .commands = {list, show, alarms, info, add, rename, remove}};
}

}  // namespace ztsys
