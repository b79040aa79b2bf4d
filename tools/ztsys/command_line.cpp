// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/command_line.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

namespace ztsys {

namespace {

// Exactly one of the members is given, or none for an option that ends the run.
struct Option {
  std::string_view name;
  std::string_view command;  // the one sub-command that takes it; empty: all
  std::optional<std::string> Arguments::*value = nullptr;
  bool Arguments::*flag = nullptr;
  bool Invocation::*stop = nullptr;
};

constexpr std::array kOptions = {
    Option{.name = "--db", .command = "", .value = &Arguments::db},
    Option{.name = "--group", .command = "add", .value = &Arguments::group},
    Option{.name = "--type", .command = "add", .value = &Arguments::type},
    Option{.name = "--json", .command = "list", .flag = &Arguments::json},
    Option{.name = "--short", .command = "show", .flag = &Arguments::brief},
    Option{.name = "--yes", .command = "delete", .flag = &Arguments::yes},
    Option{.name = "--help", .command = "", .stop = &Invocation::help},
    Option{.name = "--version", .command = "", .stop = &Invocation::version},
};

std::string Quoted(std::string_view text) {
  return '\'' + std::string(text) + '\'';
}

template <typename Table>
auto Find(const Table& table, std::string_view name) {
  const auto at =
      std::find_if(table.begin(), table.end(), [&](const auto& row) { return row.name == name; });
  return at == table.end() ? nullptr : &*at;
}

class Reader {
 public:
  Reader(std::span<const Command> commands, std::span<const char* const> words)
      : commands_(commands), words_(words) {}

  std::variant<Invocation, std::string> Read() {
    bool options_end = false;
    while (next_ < words_.size() && error_.empty()) {
      const std::string_view word = words_[next_++];
      if (!options_end && word == "--")
        options_end = true;
      else if (!options_end && word.starts_with("-") && word.size() > 1)
        TakeOption(word);
      else
        TakeWord(word);
    }
    if (error_.empty() && !result_.help && !result_.version)
      Check();
    if (!error_.empty())
      return error_;
    return std::move(result_);
  }

 private:
  void TakeOption(std::string_view word) {
    const std::size_t equals = word.find('=');
    const std::string_view name = word.substr(0, equals);
    const Option* option = Find(kOptions, name);
    if (option == nullptr) {
      error_ = "unknown option " + Quoted(word);
      return;
    }
    used_.push_back(option);
    if (option->value != nullptr) {
      TakeValue(*option, word, equals);
      return;
    }
    if (equals != std::string_view::npos)
      error_ = "option " + Quoted(name) + " takes no value";
    else if (option->flag != nullptr)
      result_.arguments.*option->flag = true;
    else
      result_.*option->stop = true;
  }

  void TakeValue(const Option& option, std::string_view word, std::size_t equals) {
    auto& value = result_.arguments.*option.value;
    if (value)
      error_ = "option " + Quoted(option.name) + " is given twice";
    else if (equals != std::string_view::npos)
      value = word.substr(equals + 1);
    else if (next_ < words_.size())
      value = words_[next_++];
    else
      error_ = "option " + Quoted(option.name) + " needs a value";
    if (error_.empty() && value->empty())
      error_ = "the value of option " + Quoted(option.name) + " is empty";
  }

  void TakeWord(std::string_view word) {
    if (result_.command != nullptr) {
      result_.arguments.operands.emplace_back(word);
      return;
    }
    result_.command = Find(commands_, word);
    if (result_.command == nullptr)
      error_ = "unknown command " + Quoted(word);
  }

  void Check() {
    const Command* command = result_.command;
    if (command == nullptr) {
      error_ = "no command is given";
      return;
    }
    for (const Option* option : used_) {
      if (!option->command.empty() && option->command != command->name) {
        error_ = "option " + Quoted(option->name) + " does not go with " + Quoted(command->name);
        return;
      }
    }
    const auto& operands = result_.arguments.operands;
    if (operands.size() < command->min_operands)
      error_ = Quoted(command->name) + " needs more words: " + std::string(command->name) + ' ' +
               std::string(command->synopsis);
    else if (operands.size() > command->max_operands)
      error_ = "unexpected word " + Quoted(operands[command->max_operands]);
    for (const std::string& operand : operands)
      if (operand.empty() && error_.empty())
        error_ = "a name or address is empty";
  }

  std::span<const Command> commands_;
  std::span<const char* const> words_;
  std::size_t next_ = 0;
  std::vector<const Option*> used_;
  Invocation result_;
  std::string error_;
};

}  // namespace

std::variant<Invocation, std::string> ReadCommandLine(std::span<const Command> commands,
                                                      std::span<const char* const> words) {
  return Reader(commands, words).Read();
}

}  // namespace ztsys
