// SPDX-License-Identifier: Apache-2.0
// ztsys lists and changes the systems of the system database, on a machine with or without the
// console.

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/sys/sockets.h"
#include "platform/sys/standard_streams.h"
#include "shared/general/nt/SHderControlObj.h"
#include "source/support/ZTprintable.h"
#include "tools/ztsys/command_line.h"
#include "tools/ztsys/ztsys.h"

namespace ztsys {

namespace {

constexpr std::uint16_t kSocketLibraryVersion = 0x0101;

constexpr std::array kCommands = {
    Command{"list", "[--json]", "list all systems, with --json one object a line", 0, 0, RunList},
    Command{"show", "[--short] NAME|ADDRESS", "describe one system", 1, 1, RunShow},
    Command{"alarms", "[NAME|ADDRESS]", "show the alarm states of one system or of all", 0, 1,
            RunAlarms},
    Command{"info", "", "describe the database", 0, 0, RunInfo},
    Command{"add", "[--group G] [--type T] NAME|ADDRESS", "add a system", 1, 1, RunAdd},
    Command{"rename", "ADDRESS NAME", "give a system another name of its address", 2, 2, RunRename},
    Command{"delete", "[--yes] NAME|ADDRESS", "delete a system", 1, 1, RunDelete},
};

void PrintUsage() {
  std::printf("usage: ztsys [--db FILE] COMMAND ...\n\nCommands:\n");
  for (const Command& command : kCommands) {
    std::string words(command.name);
    if (!command.synopsis.empty())
      words.append(1, ' ').append(command.synopsis);
    std::printf("  %-46s%.*s\n", words.c_str(), static_cast<int>(command.summary.size()),
                command.summary.data());
  }
  std::printf(
      "\nOptions:\n"
      "  --db FILE   the database file; default: ztdb in the installation's database directory\n"
      "  --help      print this text and exit\n"
      "  --version   print the version and exit\n");
}

Status Run(std::span<const char* const> words) {
  const auto read = ReadCommandLine(kCommands, words);
  if (const auto* error = std::get_if<std::string>(&read))
    return FailUsage(*error);
  const Invocation& invocation = std::get<Invocation>(read);
  if (invocation.help)
    PrintUsage();
  else if (invocation.version)
    std::printf("ztsys %s\n", ZT_VERSION);
  else
    return invocation.command->run(invocation.arguments);
  return kDone;
}

}  // namespace

Status Fail(const std::string& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "ztsys: %s\n", printable(message).c_str());
  return kFailed;
}

Status FailUsage(const std::string& message) {
  Fail(message + "; see ztsys --help");
  return kUsage;
}

}  // namespace ztsys

int main(int argc, char** argv) {
  if (!sys::KeepStandardStreams())
    return ztsys::kFailed;
  // A file-size limit shall be an error of the write, not the end of the process.
  std::signal(SIGXFSZ, SIG_IGN);
  const CONTROL_OBJ control("zt/", "ztsys");
  sockets::WSAStartup(ztsys::kSocketLibraryVersion);

  int status = ztsys::Run({argv + 1, static_cast<std::size_t>(argc > 0 ? argc - 1 : 0)});
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
    status = ztsys::Fail(std::string("cannot write the output: ") + std::strerror(errno));
  return status;
}
