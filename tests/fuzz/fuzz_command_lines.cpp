// SPDX-License-Identifier: Apache-2.0
// The command lines of all programs through their own tables. The first octet chooses the program,
// the rest is its words, each ended by a zero.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "agent/command_line.h"
#include "source/domain/ZTcommandLine.h"
#include "tests/fuzz/require.h"
#include "tools/zidl/command_line.h"
#include "tools/ztsys/command_line.h"

namespace {

// What an option's table promises of the value that it stored.
struct Stored {
  const sys::Option& option;
  template <typename Other>
  void operator()(const Other&) const {}
  void operator()(const sys::Integer& number) const {
    // The numbers that stand for "not given" are beyond the range.
    fuzz::require(*number.value >= number.least - 1 && *number.value <= number.most);
  }
  void operator()(const sys::Choice& choice) const {
    fuzz::require(choice.value->empty() ||
                  option.value.find(*choice.value) != std::string_view::npos);
  }
};

void check(const sys::Command& program, const sys::CommandLine& line) {
  fuzz::require(line.command != nullptr && fuzz::is_printable(line.error));
  if (!line.error.empty())
    return;
  if (line.help || line.version) {
    fuzz::require(sys::usage(program, *line.command).ends_with('\n'));
    return;
  }
  fuzz::require(line.operands.size() >= line.command->least_operands &&
                line.operands.size() <= line.command->most_operands);
  for (const std::string& operand : line.operands)
    fuzz::require(!operand.empty());
  for (const sys::Option& option : line.command->options)
    std::visit(Stored{option}, option.target);
}

template <typename Arguments>
void read(sys::Command (*table)(Arguments&), std::span<const char* const> words) {
  Arguments arguments;
  const sys::Command program = table(arguments);
  sys::CommandLine line = sys::read_command_line(program, words);
  if constexpr (std::is_same_v<Arguments, zidl::Arguments>)
    zidl::check_prefix(arguments, line);
  check(program, line);
}

void read_ztcomm(std::span<char* const> words) {
  const CommandLine line = read_command_line(words);
  std::string expected = "ztcomm";
  for (const char* word : words)
    expected.append(" ").append(word);
  fuzz::require(line.CmdLine == expected);
  fuzz::require(line.Refusal.empty() || !line.GoodCommand);
  const bool fits = line.System.size() <= 255 && line.DataSource.size() <= 63 &&
                    line.CatDir.size() <= 255 && (line.CatDir.empty() || line.CatDir.back() == '/');
  fuzz::require(fits || !line.GoodCommand);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::vector<char*> words;
  for (std::size_t at = 0; at < text.size(); at = text.find('\0', at) + 1) {
    words.push_back(text.data() + at);
    if (text.find('\0', at) == std::string::npos)
      break;
  }
  switch (data[0] % 4) {
    case 0:
      read_ztcomm(words);
      break;
    case 1:
      read(ztsys::Program, words);
      break;
    case 2:
      read(agent::command_line, words);
      break;
    default:
      read(zidl::command_line, words);
      break;
  }
  return 0;
}
