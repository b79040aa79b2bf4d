// SPDX-License-Identifier: Apache-2.0
#include "agent/command_line.h"

#include <algorithm>
#include <charconv>

namespace agent {

namespace {

struct Option {
  const char* name;
  const char* value;  // what its value is called; null when it has none
  const char* description;
  // Stores the option; false for a value that it does not take.
  bool (*store)(CommandLine& command_line, const std::string& value);
};

bool store_descriptor(CommandLine& command_line, const std::string& value) {
  int number = -1;
  const char* const end = value.data() + value.size();
  const auto [last, error] = std::from_chars(value.data(), end, number);
  command_line.ready_descriptor = number;
  return error == std::errc{} && last == end && number >= 0;
}

constexpr Option kOptions[] = {
    {"-v", nullptr, "print a line for each packet, call and connection",
     [](CommandLine& line, const std::string&) { return line.verbose = true; }},
    {"--check", nullptr, "only read the scenario and report its errors",
     [](CommandLine& line, const std::string&) { return line.check = true; }},
    {"--ready-fd", "N", "write the ready line to this descriptor and close it", store_descriptor},
    {"--ready-file", "FILE", "write the ready line to this file",
     [](CommandLine& line, const std::string& value) {
       line.ready_file = value;
       return !value.empty();
     }},
    {"--help", nullptr, "print this text",
     [](CommandLine& line, const std::string&) { return line.help = true; }},
    {"--version", nullptr, "print the version",
     [](CommandLine& line, const std::string&) { return line.version = true; }},
};

}  // namespace

ParsedCommandLine parse_command_line(const std::vector<std::string>& arguments) {
  ParsedCommandLine result;
  CommandLine& line = result.command_line;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument.size() < 2 || argument[0] != '-') {
      if (!line.scenario.empty())
        return {line, "one scenario is enough, \"" + argument + "\" is another"};
      line.scenario = argument;
      continue;
    }
    const auto option = std::find_if(std::begin(kOptions), std::end(kOptions),
                                     [&](const Option& one) { return argument == one.name; });
    if (option == std::end(kOptions))
      return {line, "unknown option \"" + argument + "\""};
    if (option->value != nullptr && i + 1 == arguments.size())
      return {line, argument + " needs a value"};
    const std::string value = option->value != nullptr ? arguments[++i] : "";
    if (!option->store(line, value))
      return {line, argument + " does not take \"" + value + "\""};
  }
  if (line.scenario.empty() && !line.help && !line.version)
    result.error = "no scenario given";
  return result;
}

std::string usage() {
  std::string text =
      "usage: hxasim [options] SCENARIO\nSimulated agents on loopback addresses.\n\n";
  for (const Option& option : kOptions) {
    std::string left = std::string("  ") + option.name;
    if (option.value != nullptr)
      left += std::string(" ") + option.value;
    left.resize(std::max<std::size_t>(left.size() + 1, 22), ' ');
    text += left + option.description + "\n";
  }
  return text;
}

}  // namespace agent
