// SPDX-License-Identifier: Apache-2.0
// What command lines mean, which are refused, and the usage.

#include "platform/sys/options.h"

#include <gtest/gtest.h>

namespace {

// A program with an operand of its own and two sub-commands, and where its options go.
struct Program {
  bool verbose = false, dry = false, quick = false;
  int jobs = 0;
  std::string file;
  std::optional<std::string> name;
  std::string order;
  std::vector<std::string> groups;
  sys::Command table{
      .name = "tool",
      .operands = "FILE",
      .summary = "do things to a file",
      .least_operands = 1,
      .most_operands = 1,
      .options = {{"--verbose", "-v", "", "tell more", &verbose},
                  {"--out", "-o", "FILE", "where to write", &file}},
      .commands = {
          {.name = "list",
           .summary = "list what is there",
           .options = {{"--dry-run", "-n", "", "change nothing", &dry},
                       {"--jobs", "-j", "N", "at most N at once", sys::Integer{&jobs, -2, 1024}},
                       {"--sort", "", "name|age", "the order", sys::Choice{&order}},
                       {"--group", "-g", "G", "only this group; may be repeated", &groups}}},
          {.name = "set",
           .operands = "NAME ...",
           .summary = "change things",
           .least_operands = 1,
           .most_operands = sys::kAnyNumber,
           .options = {{"--quick", "", "", "at once", &quick},
                       {"--as", "", "NAME", "its name", &name}},
           .run = [] { return 7; }}}};

  // The error, or the command with everything that was stored.
  std::string read(const std::vector<const char*>& words) {
    const sys::CommandLine line = sys::read_command_line(table, words);
    if (!line.error.empty())
      return line.error;
    std::string text(line.command->name);
    for (const std::string& operand : line.operands)
      text += " " + operand;
    text += line.help ? " help" : line.version ? " version" : "";
    text += verbose ? " verbose" : "";
    text += dry ? " dry" : "";
    text += quick ? " quick" : "";
    text += file.empty() ? "" : " out:" + file;
    text += name ? " as:" + *name : "";
    text += order.empty() ? "" : " order:" + order;
    text += jobs == 0 ? "" : " jobs:" + std::to_string(jobs);
    for (const std::string& group : groups)
      text += " group:" + group;
    return text;
  }
};

TEST(CommandLine, IsReadByItsTable) {
  const struct {
    std::vector<const char*> words;
    const char* meaning;
  } cases[] = {
      // forms of options
      {{"f"}, "tool f"},
      {{"-v", "f", "--out", "x"}, "tool f verbose out:x"},
      {{"--out=x=y", "-"}, "tool - out:x=y"},
      {{"-vox", "f"}, "tool f verbose out:x"},
      {{"-o", "--", "f"}, "tool f out:--"},
      {{"--", "-v"}, "tool -v"},
      {{"f", "--verbose", "-v"}, "tool f verbose"},
      {{"list", "-nj-2"}, "list dry jobs:-2"},
      {{"list", "--group", "a", "-gb", "--group=a"}, "list group:a group:b group:a"},
      {{"list", "--sort", "age", "--jobs=1024"}, "list order:age jobs:1024"},
      // sub-commands
      {{"-n", "-j", "5", "list", "-v"}, "list verbose dry jobs:5"},
      {{"set", "list", "--as", "x", "set", "--quick"}, "set list set quick as:x"},
      {{"--", "set", "x"}, "set x"},
      {{"f", "set"}, "unexpected word 'set'"},
      {{"list", "--help", "x"}, "list x help"},
      {{"--help"}, "tool help"},
      {{"set", "--version"}, "set version"},
      // refused
      {{}, "'tool' needs more words: tool FILE"},
      {{"set"}, "'set' needs more words: set NAME ..."},
      {{"list", "f"}, "unexpected word 'f'"},
      {{"set", ""}, "a word is empty"},
      {{"--frob=\n1\xc2\x9b", "f"}, "unknown option '--frob=?1?'"},
      {{"-vx", "f"}, "unknown option '-vx'"},
      {{"list", "--quick"}, "option '--quick' does not go with 'list'"},
      {{"f", "-n"}, "option '--dry-run' does not go with 'tool'"},
      {{"--verbose=1"}, "option '--verbose' takes no value"},
      {{"--help=1"}, "option '--help' takes no value"},
      {{"f", "-o"}, "option '--out' needs a value"},
      {{"f", "--out="}, "the value of option '--out' is empty"},
      {{"f", "-oa", "--out", "b"}, "option '--out' is given twice"},
      {{"list", "-j", "1025"}, "option '--jobs' takes a number from -2 to 1024, not '1025'"},
      {{"list", "-j-3"}, "option '--jobs' takes a number from -2 to 1024, not '-3'"},
      {{"list", "-j5x"}, "option '--jobs' takes a number from -2 to 1024, not '5x'"},
      {{"list", "-j99999999999"},
       "option '--jobs' takes a number from -2 to 1024, not '99999999999'"},
      {{"list", "--sort", "nam"}, "option '--sort' takes name|age, not 'nam'"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Program().read(c.words), c.meaning);
  EXPECT_EQ(Program().table.commands[1].run(), 7);
}

TEST(CommandLine, HasItsUsageMadeFromTheTable) {
  Program program;
  program.table.options[1].help =
      "where to write, which may be a long story that does not end in the line it began in";
  EXPECT_EQ(sys::usage(program.table, program.table),
            "usage: tool [-v] [-o FILE] FILE\n"
            "       tool COMMAND ...\n"
            "Do things to a file.\n"
            "\n"
            "Commands:\n"
            "  list          list what is there\n"
            "  set NAME ...  change things\n"
            "\n"
            "Options:\n"
            "  -v, --verbose   tell more\n"
            "  -o, --out FILE  where to write, which may be a long story that does not end\n"
            "                  in the line it began in\n"
            "  --help          print this text and exit\n"
            "  --version       print the version and exit\n"
            "\n"
            "'tool COMMAND --help' tells the options of a command.\n");
  program.table.options.pop_back();
  program.table.options[0].name = "--verbose-beyond-the-widest-column";
  EXPECT_EQ(sys::usage(program.table, program.table.commands[0]),
            "usage: tool [-v] list [-n] [-j N] [--sort name|age] [-g G] ...\n"
            "List what is there.\n"
            "\n"
            "Options:\n"
            "  -n, --dry-run    change nothing\n"
            "  -j, --jobs N     at most N at once\n"
            "  --sort name|age  the order\n"
            "  -g, --group G    only this group; may be repeated\n"
            "  -v, --verbose-beyond-the-widest-column\n"
            "                   tell more\n"
            "  --help           print this text and exit\n");
}

}  // namespace
