// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/options.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <utility>

#include "platform/sys/printable.h"

namespace sys {

namespace {

constexpr std::size_t kColumns = 79;
constexpr std::size_t kWidestName = 30;  // a longer one has its help in the next line

// As typed, but without what would move the cursor.
std::string quoted(std::string_view text) {
  return '\'' + printable(text) + '\'';
}

template <typename Table>
auto find(const Table& table, std::string_view name) {
  const auto at =
      std::find_if(table.begin(), table.end(), [&](const auto& row) { return row.name == name; });
  return at == table.end() ? nullptr : &*at;
}

const Option* find_option(const Command& command, std::string_view name) {
  const auto at =
      std::find_if(command.options.begin(), command.options.end(),
                   [&](const Option& row) { return row.name == name || row.short_name == name; });
  return at == command.options.end() ? nullptr : &*at;
}

bool is_one_of(std::string_view words, std::string_view word) {
  for (std::size_t begin = 0; begin <= words.size();) {
    const std::size_t end = std::min(words.find('|', begin), words.size());
    if (words.substr(begin, end - begin) == word)
      return true;
    begin = end + 1;
  }
  return false;
}

// Puts a value where its option sends it, or says what the option takes.
struct Store {
  const Option& option;
  const std::string& value;

  std::string operator()(bool* target) const {
    *target = true;
    return "";
  }
  std::string operator()(std::string* target) const {
    *target = value;
    return "";
  }
  std::string operator()(std::optional<std::string>* target) const {
    *target = value;
    return "";
  }
  std::string operator()(std::vector<std::string>* target) const {
    target->push_back(value);
    return "";
  }
  std::string operator()(const Integer& target) const {
    int number = 0;
    const char* const end = value.data() + value.size();
    const auto [last, error] = std::from_chars(value.data(), end, number);
    if (error != std::errc{} || last != end || number < target.least || number > target.most)
      return "a number from " + std::to_string(target.least) + " to " + std::to_string(target.most);
    *target.value = number;
    return "";
  }
  std::string operator()(const Choice& target) const {
    if (!is_one_of(option.value, value))
      return std::string(option.value);
    *target.value = value;
    return "";
  }
};

class Reader {
 public:
  Reader(const Command& program, std::span<const char* const> words)
      : program_(program), words_(words) {}

  CommandLine read() {
    bool options_end = false;
    while (next_ < words_.size() && result_.error.empty()) {
      const std::string_view word = words_[next_++];
      if (options_end || word.size() < 2 || word[0] != '-')
        take_word(word);
      else if (word == "--")
        options_end = true;
      else if (word[1] == '-')
        take_name(word);
      else
        take_letters(word);
    }
    if (result_.error.empty() && !result_.help && !result_.version) {
      store_options();
      if (result_.error.empty())
        check_operands();
    }
    if (result_.command == nullptr)
      result_.command = &program_;
    return std::move(result_);
  }

 private:
  struct Given {
    const Option* option;
    std::string_view value;
  };

  // Before the command is known, the option of any command tells whether a value follows.
  const Option* known_option(std::string_view name) const {
    const Option* option =
        result_.command != nullptr ? find_option(*result_.command, name) : nullptr;
    if (option == nullptr)
      option = find_option(program_, name);
    for (const Command& command : program_.commands)
      if (option == nullptr)
        option = find_option(command, name);
    return option;
  }

  void take_name(std::string_view word) {
    const std::size_t equals = word.find('=');
    const std::string_view name = word.substr(0, equals);
    bool* const built_in = name == "--help"      ? &result_.help
                           : name == "--version" ? &result_.version
                                                 : nullptr;
    const Option* const option = known_option(name);
    if (option == nullptr && built_in == nullptr)
      fail("unknown option " + quoted(word));
    else if (option != nullptr && !option->value.empty())
      take_value(*option, equals == std::string_view::npos ? equals : equals + 1, word);
    else if (equals != std::string_view::npos)
      fail("option " + quoted(name) + " takes no value");
    else if (option != nullptr)
      given_.push_back({option, {}});
    else
      *built_in = true;
  }

  void take_letters(std::string_view word) {
    for (std::size_t i = 1; i < word.size(); ++i) {
      const Option* const option = known_option(std::string("-") + word[i]);
      if (option == nullptr)
        return fail("unknown option " + quoted(word));
      if (!option->value.empty())
        return take_value(*option, i + 1 < word.size() ? i + 1 : std::string_view::npos, word);
      given_.push_back({option, {}});
    }
  }

  // The value is the rest of the word from `at`, or the next word.
  void take_value(const Option& option, std::size_t at, std::string_view word) {
    if (at != std::string_view::npos)
      given_.push_back({&option, word.substr(at)});
    else if (next_ < words_.size())
      given_.push_back({&option, words_[next_++]});
    else
      fail("option " + quoted(option.name) + " needs a value");
  }

  void take_word(std::string_view word) {
    if (result_.command == nullptr && result_.operands.empty() && !program_.commands.empty()) {
      result_.command = find(program_.commands, word);
      if (result_.command != nullptr)
        return;
      if (program_.most_operands == 0)
        return fail("unknown command " + quoted(word));
    }
    result_.operands.emplace_back(word);
  }

  void store_options() {
    if (result_.command == nullptr) {
      if (program_.most_operands == 0 && !program_.commands.empty())
        return fail("no command is given");
      result_.command = &program_;
    }
    std::vector<const Option*> seen;
    for (const auto& [known, value] : given_) {
      const Option* option = find_option(*result_.command, known->name);
      if (option == nullptr)
        option = find_option(program_, known->name);
      const std::string name = "option " + quoted(known->name);
      if (option == nullptr)
        return fail(name + " does not go with " + quoted(result_.command->name));
      if (!option->value.empty()) {
        if (!std::holds_alternative<std::vector<std::string>*>(option->target) &&
            std::find(seen.begin(), seen.end(), option) != seen.end())
          return fail(name + " is given twice");
        if (value.empty())
          return fail("the value of " + name + " is empty");
      }
      seen.push_back(option);
      const std::string taken = std::visit(Store{*option, std::string(value)}, option->target);
      if (!taken.empty())
        return fail(name + " takes " + taken + ", not " + quoted(value));
    }
  }

  void check_operands() {
    const Command& command = *result_.command;
    const auto& operands = result_.operands;
    if (operands.size() < command.least_operands)
      return fail(quoted(command.name) + " needs more words: " + std::string(command.name) + ' ' +
                  std::string(command.operands));
    if (operands.size() > command.most_operands)
      return fail("unexpected word " + quoted(operands[command.most_operands]));
    if (std::find(operands.begin(), operands.end(), "") != operands.end())
      fail("a word is empty");
  }

  void fail(std::string message) { result_.error = std::move(message); }

  const Command& program_;
  std::span<const char* const> words_;
  std::size_t next_ = 0;
  std::vector<Given> given_;
  CommandLine result_;
};

// Appends words, and breaks lines between those of them that are divided by blanks outside
// brackets.
void append_wrapped(std::string& text, std::string_view words, std::size_t column,
                    std::size_t indent) {
  int depth = 0;
  for (std::size_t begin = 0, i = 0; i <= words.size(); ++i) {
    if (i < words.size() && words[i] == '[')
      ++depth;
    else if (i < words.size() && words[i] == ']')
      --depth;
    if (i < words.size() && (words[i] != ' ' || depth > 0))
      continue;
    const std::string_view word = words.substr(begin, i - begin);
    if (begin > 0 && column + 1 + word.size() > kColumns) {
      text.append(1, '\n').append(indent, ' ');
      column = indent;
    } else if (begin > 0) {
      text += ' ';
      ++column;
    }
    text += word;
    column += word.size();
    begin = i + 1;
  }
  text += '\n';
}

using Rows = std::vector<std::pair<std::string, std::string_view>>;

void append_rows(std::string& text, const char* heading, const Rows& rows) {
  std::size_t width = 0;
  for (const auto& [left, right] : rows)
    if (left.size() <= kWidestName)
      width = std::max(width, left.size());
  const std::size_t indent = 2 + width + 2;
  text.append(1, '\n').append(heading).append(":\n");
  for (const auto& [left, right] : rows) {
    text.append(2, ' ').append(left);
    if (left.size() > width)
      text.append(1, '\n').append(indent, ' ');
    else
      text.append(indent - 2 - left.size(), ' ');
    append_wrapped(text, right, indent, indent);
  }
}

std::string with_value(std::string_view name, const Option& option) {
  std::string text(name);
  if (!option.value.empty())
    text.append(1, ' ').append(option.value);
  return text;
}

void append_options(Rows& rows, const Command& command) {
  for (const Option& option : command.options) {
    std::string left(option.short_name);
    if (!left.empty())
      left += ", ";
    rows.emplace_back(left + with_value(option.name, option), option.help);
  }
}

std::string brackets(const Command& command) {
  std::string text;
  for (const Option& option : command.options) {
    text += " [" + with_value(option.short_name.empty() ? option.name : option.short_name, option);
    text += std::holds_alternative<std::vector<std::string>*>(option.target) ? "] ..." : "]";
  }
  return text;
}

void append_synopsis(std::string& text, const char* before, const std::string& words) {
  const std::size_t at = std::char_traits<char>::length(before);
  text += before;
  append_wrapped(text, words, at, at + words.find(' ') + 1);
}

}  // namespace

CommandLine read_command_line(const Command& program, std::span<const char* const> words) {
  return Reader(program, words).read();
}

CommandLine read_command_line(const Command& program, int argc, const char* const* argv) {
  if (argc < 1)
    return read_command_line(program, {});
  return read_command_line(program, {argv + 1, static_cast<std::size_t>(argc - 1)});
}

std::string usage(const Command& program, const Command& command) {
  const bool whole = &program == &command;
  const bool runs = !whole || program.commands.empty() || program.most_operands > 0;
  std::string words = std::string(program.name) + brackets(program);
  if (!whole)
    words.append(1, ' ').append(command.name).append(brackets(command));
  if (!command.operands.empty())
    words.append(1, ' ').append(command.operands);
  std::string text;
  if (runs)
    append_synopsis(text, "usage: ", words);
  if (whole && !program.commands.empty())
    append_synopsis(text, runs ? "       " : "usage: ",
                    std::string(program.name) + (runs ? "" : brackets(program)) + " COMMAND ...");

  std::string sentence(command.summary);
  sentence[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(sentence[0])));
  append_wrapped(text, sentence + '.', 0, 0);

  if (whole && !program.commands.empty()) {
    Rows rows;
    for (const Command& one : program.commands)
      rows.emplace_back(
          std::string(one.name) + (one.operands.empty() ? "" : " ") + std::string(one.operands),
          one.summary);
    append_rows(text, "Commands", rows);
  }
  Rows rows;
  append_options(rows, command);
  if (!whole)
    append_options(rows, program);
  rows.emplace_back("--help", "print this text and exit");
  if (whole)
    rows.emplace_back("--version", "print the version and exit");
  append_rows(text, "Options", rows);
  if (whole && !program.commands.empty())
    text +=
        "\n'" + std::string(program.name) + " COMMAND --help' tells the options of a command.\n";
  return text;
}

std::optional<int> answer_command_line(const Command& program, const CommandLine& line,
                                       const char* version) {
  const std::string name(program.name);
  if (!line.error.empty()) {
    std::fprintf(stderr, "%s: %s; see %s --help\n", name.c_str(), line.error.c_str(), name.c_str());
    return kExitUsage;
  }
  if (line.help)
    std::fputs(usage(program, *line.command).c_str(), stdout);
  else if (line.version)
    std::printf("%s %s\n", name.c_str(), version);
  else
    return std::nullopt;
  return 0;
}

}  // namespace sys
