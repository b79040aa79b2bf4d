// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/command_line.h"

#include <utility>

namespace ztsys {

namespace {

constexpr int kLongestWait = 86'400;
constexpr char kSystems[] = "NAME|ADDRESS ...";

std::function<int()> Run(Arguments& arguments, Status (*command)(const Arguments&)) {
  return [&arguments, command]() -> int { return command(arguments); };
}

std::vector<sys::Command> ReadingCommands(Arguments& a) {
  const sys::Option json{"--json", "", "", "print one JSON object a line", &a.json};
  const sys::Option numeric{"--numeric", "-n", "", "look up no names", &a.numeric};
  return {
      {.name = "list",
       .summary = "list systems",
       .options = {json,
                   {"--csv", "", "", "print what import reads", &a.csv},
                   {"--group", "", "G", "only systems of this group; -: of none", &a.group},
                   {"--type", "", "T", "only systems of this type; -: of none", &a.type},
                   {"--match", "", "PATTERN", "only names that match this shell pattern", &a.match},
                   {"--sort", "", "name|address|group|updated",
                    "the order; default: that of the file", sys::Choice{&a.sort}}},
       .run = Run(a, RunList)},
      {.name = "show",
       .operands = kSystems,
       .summary = "describe systems",
       .least_operands = 1,
       .most_operands = sys::kAnyNumber,
       .options = {{"--short", "", "", "in few lines", &a.brief}, json, numeric},
       .run = Run(a, RunShow)},
      {.name = "alarms",
       .operands = "[NAME|ADDRESS ...]",
       .summary = "show the alarm states of systems, or of all",
       .most_operands = sys::kAnyNumber,
       .options = {numeric},
       .run = Run(a, RunAlarms)},
      {.name = "info", .summary = "describe the database", .run = Run(a, RunInfo)},
  };
}

sys::Command CheckCommand(Arguments& a) {
  constexpr int kMostSystems = 1'000'000;
  return {
      .name = "check",
      .operands = "[NAME|ADDRESS ...]",
      .summary = "ask systems at once and say why one cannot be reached",
      .most_operands = sys::kAnyNumber,
      .options = {{"--group", "", "G", "the systems of group G; may be repeated", &a.groups},
                  {"--from", "", "FILE", "read operands, one a line; -: standard input", &a.from},
                  {"--jobs", "", "N", "at most N systems at once, 1 to 1024; default: 128",
                   sys::Integer{&a.jobs, 1, 1024}},
                  {"--timeout", "", "LEVEL", "time-out level 0 to 10; default: ZT_RPC_TIMEOUT or 3",
                   sys::Integer{&a.timeout, 0, 10}},
                  {"--json", "", "", "print one JSON object a line", &a.json},
                  {"--html", "", "", "write a page for a browser to --output", &a.html},
                  {"--prometheus", "", "", "print metrics for a textfile collector", &a.prometheus},
                  {"--plugin", "", "", "print one status line for a monitoring system", &a.plugin},
                  {"--critical", "", "N", "CRITICAL from N that did not succeed; default: 1",
                   sys::Integer{&a.critical, 1, kMostSystems}},
                  {"--warning", "", "N", "WARNING from N that did not succeed",
                   sys::Integer{&a.warning, 1, kMostSystems}},
                  {"--output", "", "FILE", "write FILE, renamed when it is whole", &a.output},
                  {"--failed", "", "", "print only systems that did not succeed", &a.failed}},
      .run = Run(a, RunCheck)};
}

std::vector<sys::Command> ChangingCommands(Arguments& a) {
  const sys::Option wait{"--wait", "", "SECONDS", "wait so long for the lock; default: 60",
                         sys::Integer{&a.wait, 0, kLongestWait}};
  const sys::Option group{"--group", "", "G", "the name of its group; -: none", &a.group};
  const sys::Option type{"--type", "", "T", "its type: 1 to 7 or a code; -: none", &a.type};
  return {
      {.name = "add",
       .operands = kSystems,
       .summary = "add systems",
       .least_operands = 1,
       .most_operands = sys::kAnyNumber,
       .options = {group,
                   type,
                   {"--address", "", "A", "the address of the one name; no look-up", &a.address},
                   wait},
       .run = Run(a, RunAdd)},
      {.name = "set",
       .operands = kSystems,
       .summary = "change group, type or alarms of systems",
       .least_operands = 1,
       .most_operands = sys::kAnyNumber,
       .options = {group,
                   type,
                   {"--alarms", "", "on|off", "monitor its alarms", sys::Choice{&a.alarms}},
                   {"--clear-alarms", "", "", "set all alarm states to unused", &a.clear_alarms},
                   wait},
       .run = Run(a, RunSet)},
      {.name = "move",
       .operands = "NAME|ADDRESS NEW-ADDRESS",
       .summary = "give a system another address",
       .least_operands = 2,
       .most_operands = 2,
       .options = {wait},
       .run = Run(a, RunMove)},
      {.name = "rename",
       .operands = "NAME|ADDRESS NEW-NAME",
       .summary = "give a system another name",
       .least_operands = 2,
       .most_operands = 2,
       .options = {wait},
       .run = Run(a, RunRename)},
      {.name = "delete",
       .operands = kSystems,
       .summary = "delete systems",
       .least_operands = 1,
       .most_operands = sys::kAnyNumber,
       .options = {{"--yes", "", "", "do not ask", &a.yes}, wait},
       .run = Run(a, RunDelete)},
      {.name = "import",
       .operands = "FILE",
       .summary = "add the systems of a CSV file or a list",
       .least_operands = 1,
       .most_operands = 1,
       .options = {{"--dry-run", "", "", "only say what would be done", &a.dry_run},
                   {"--update", "", "", "change systems that are there already", &a.update},
                   wait},
       .run = Run(a, RunImport)},
      {.name = "verify",
       .summary = "look for damage",
       .options = {{"--repair", "", "", "take out what is certain, after a backup", &a.repair},
                   wait},
       .run = Run(a, RunVerify)},
      {.name = "backup",
       .operands = "FILE",
       .summary = "copy the database as of one instant",
       .least_operands = 1,
       .most_operands = 1,
       .options = {wait},
       .run = Run(a, RunBackup)},
  };
}

}  // namespace

sys::Command Program(Arguments& arguments) {
  std::vector<sys::Command> commands = ReadingCommands(arguments);
  commands.push_back(CheckCommand(arguments));
  for (sys::Command& command : ChangingCommands(arguments))
    commands.push_back(std::move(command));
  return {.name = "ztsys",
          .summary = "list and change the systems of the system database",
          .options = {{"--db", "", "FILE",
                       "the database file; default: ztdb in the installation's database directory",
                       &arguments.db}},
          .commands = std::move(commands)};
}

}  // namespace ztsys
