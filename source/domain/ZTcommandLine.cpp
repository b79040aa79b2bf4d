// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTcommandLine.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

constexpr std::size_t kLongestSystem = 255;
constexpr std::size_t kLongestDataSource = 63;
constexpr std::size_t kLongestCatDir = 255;  // with its slash

struct Option {
  std::string_view word;
  bool takes_value;
  void (*apply)(CommandLine& line, const std::string& value);
};

void refuse(CommandLine& line, const char* what, std::size_t longest) {
  line.GoodCommand = false;
  line.Refusal =
      std::string("ztcomm: ") + what + " is longer than " + std::to_string(longest) + " characters";
}

void select(CommandLine& line, bool& check) {
  check = true;
  line.UseDefault = false;
}

// In the order in which they are tried.
constexpr Option kOptions[] = {
    {"-s", true,
     [](CommandLine& line, const std::string& value) {
       line.System = value;
       if (value.size() > kLongestSystem)
         refuse(line, "the system of -s", kLongestSystem);
     }},
    {"-b", false, [](CommandLine& line, const std::string&) { line.Breakout = true; }},
    {"-r", false,
     [](CommandLine& line, const std::string&) { select(line, line.ListAllRegistered); }},
    {"-c", false,
     [](CommandLine& line, const std::string&) { select(line, line.ShowConfiguration); }},
    {"-ds", true,
     [](CommandLine& line, const std::string& value) {
       select(line, line.QueryServer);
       line.DataSource = value;
       if (value.size() > kLongestDataSource)
         refuse(line, "the data source of -ds", kLongestDataSource);
     }},
    {"-zt", false,
     [](CommandLine& line, const std::string&) { select(line, line.CheckZTDBConnections); }},
    {"-dir", true,
     [](CommandLine& line, const std::string& value) {
       line.CatDir = value;
       if (!line.CatDir.ends_with('/'))
         line.CatDir += '/';
       if (line.CatDir.size() > kLongestCatDir)
         refuse(line, "the directory of -dir", kLongestCatDir);
     }},
    {"-trace", false, [](CommandLine& line, const std::string&) { line.Trace = true; }},
};

const Option* find_option(std::span<char* const> words) {
  for (const Option& option : kOptions) {
    if (option.word != words[0])
      continue;
    if (!option.takes_value || (words.size() > 1 && words[1][0] != '-'))
      return &option;
  }
  return nullptr;
}

constexpr int kUsageWidth = 73;
constexpr const char* kUsage[] = {
    "usage: ztcomm",
    "",
    "  -s  <system>",
    "      Specify the system to query.  If no system is specified, then the",
    "      local system will be used.",
    "",
    "  -b",
    "      List the registered Halvex rep_servers and almserver.  This",
    "      is the default option if no other options are specified.  This",
    "      option will verify that hublnkd, the rep_servers, and almserver",
    "      are running and can execute requests.",
    "",
    "  -r",
    "      List all the registered servers from the DCE endpoint map or the",
    "      NCS location broker.",
    "",
    "  -c",
    "      List the system configuration as defined by TAMBO.",
    "",
    "  -ds <data source>",
    "      Get data from the specified data source.",
    "",
    "  -zt",
    "      Check the connection to every system defined in the Zentrace system",
    "      database (ztdb).  A status is printed for each system.  The status",
    "      values are as follows:",
    "",
    "        Not Available  - System may be down, not reachable, or there is",
    "                         is no llbd/rpcd/dced running.",
    "        Not Supported  - On NT, you can not connect to an NCS based HXA.",
    "        No Halvex      - System may be down, not reachable, there is no",
    "                         llbd/rpcd/dced running or Halvex is not",
    "                         running.",
    "        Failed         - One of the HXA servers was not registered or",
    "                         one of the servers could not execute an RPC",
    "                         request.",
    "        Succeeded      - HXA rep_servers and almserver are registered",
    "                         and they can execute an RPC request.",
    "",
    "  -dir <directory path>",
    "      Directory path to the message catalog file (ztcomm_msgs).",
    "",
    "  -trace",
    "      Turns on tracing.  Debug message will be written to stderr.",
    "",
    "  Notes:",
    "    The options can be used individually or in combination and they can",
    "    be specified in any order.",
    "",
};
static_assert(std::size(kUsage) == 49);

}  // namespace

CommandLine read_command_line(std::span<char* const> words) {
  CommandLine line;
  line.CmdLine = "ztcomm";
  while (!words.empty()) {
    const Option* option = find_option(words);
    line.CmdLine += std::string(" ") + words[0];
    if (option == nullptr) {
      line.GoodCommand = false;
      words = words.subspan(1);
    } else if (option->takes_value) {
      line.CmdLine += std::string(" ") + words[1];
      option->apply(line, words[1]);
      words = words.subspan(2);
    } else {
      option->apply(line, {});
      words = words.subspan(1);
    }
  }
  return line;
}

void PrintUsage() {
  std::string usage;
  for (std::string_view text : kUsage) {
    usage += text;
    usage.append(static_cast<std::size_t>(kUsageWidth) - text.size(), ' ');
    usage += '\n';
  }
  std::fwrite(usage.data(), 1, usage.size(), stderr);
  std::fflush(stderr);
}
