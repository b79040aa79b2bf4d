// SPDX-License-Identifier: Apache-2.0
// Command lines read by tables: what options are called, what they mean and where their values go.
// The usage is made from the same tables. What is understood:
//
//   --name VALUE  --name=VALUE  -n VALUE  -nVALUE  -nv (flags of one letter together)
//
// Options and operands may stand in any order; "--" ends the options; "-" is an operand.

#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace sys {

// A decimal number from `least` to `most`, both included.
struct Integer {
  int* value;
  int least;
  int most;
};

// One of the words that the option's value stands for in the usage: "on|off".
struct Choice {
  std::string* value;
};

// Where an option goes. An option with a value is given at most once, but for a list; no value is
// empty. Targets belong to the caller and keep what they hold when the option is not given.
using Target = std::variant<bool*, std::string*, std::optional<std::string>*,
                            std::vector<std::string>*, Integer, Choice>;

struct Option {
  std::string_view name;        // "--jobs"
  std::string_view short_name;  // "-j", or empty
  std::string_view value;       // what the usage calls the value, "N"; empty for a flag
  std::string_view help;
  Target target;
};

inline constexpr std::size_t kAnyNumber = std::numeric_limits<std::size_t>::max();

// A program or one of its sub-commands. Every one has --help beside its own options, the program
// --version too. Options of the program may stand before or behind the sub-command, and so may
// those of a sub-command; a name that several sub-commands have takes a value in all or in none of
// them.
struct Command {
  std::string_view name;
  std::string_view operands = {};  // as the usage shows them, "NAME|ADDRESS ..."; empty for none
  std::string_view summary;        // one line for lists of commands
  std::size_t least_operands = 0;
  std::size_t most_operands = 0;
  std::vector<Option> options = {};
  // A program with sub-commands takes operands of its own only if most_operands says so; a first
  // operand that is a sub-command's name selects that.
  std::vector<Command> commands = {};
  std::function<int()> run = {};  // for the caller; nothing here calls it
};

struct CommandLine {
  // The program or its sub-command, an element of the table that was read by.
  const Command* command = nullptr;
  std::vector<std::string> operands;
  bool help = false;  // with help or version, nothing else has been checked or stored
  bool version = false;
  std::string error;  // what is wrong, with the word that is, or empty
};

// Reads the words behind the program's name. With an error, the targets may hold part of them.
CommandLine read_command_line(const Command& program, std::span<const char* const> words);
// As main() gets them.
CommandLine read_command_line(const Command& program, int argc, const char* const* argv);

// What --help prints for the program or for one of its sub-commands, in lines of 79 columns.
std::string usage(const Command& program, const Command& command);

// Does what every program does with an error (one line on standard error), --help and --version
// (standard output). The exit status, or nothing when the command is to be run.
inline constexpr int kExitUsage = 2;
std::optional<int> answer_command_line(const Command& program, const CommandLine& line,
                                       const char* version);

}  // namespace sys
