// SPDX-License-Identifier: Apache-2.0
// ztsys lists and changes the systems of the system database, on a machine with or without the
// console.

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <utility>

#include "platform/sys/sockets.h"
#include "platform/sys/standard_streams.h"
#include "shared/general/nt/SHderControlObj.h"
#include "tools/ztsys/command_line.h"
#include "tools/ztsys/ztsys.h"

namespace ztsys {

namespace {

constexpr std::uint16_t kSocketLibraryVersion = 0x0101;

// Also where the rest of the command line cannot be read.
bool AsksForPlugin(std::span<char* const> words) {
  return std::any_of(words.begin(), words.end(),
                     [](const char* word) { return std::strcmp(word, "--plugin") == 0; });
}

int Run(int argc, char** argv) {
  Arguments arguments;
  const sys::Command program = Program(arguments);
  sys::CommandLine line = sys::read_command_line(program, argc, argv);
  if (!line.error.empty() && AsksForPlugin({argv, static_cast<std::size_t>(argc)}))
    FailAsPlugin();
  if (!line.error.empty())
    return FailUsage(line.error);
  if (const auto status = sys::answer_command_line(program, line, ZT_VERSION))
    return *status;
  arguments.operands = std::move(line.operands);
  return line.command->run();
}

}  // namespace

}  // namespace ztsys

int main(int argc, char** argv) {
  if (!sys::KeepStandardStreams())
    return ztsys::kFailed;
  // A file-size limit shall be an error of the write, not the end of the process.
  std::signal(SIGXFSZ, SIG_IGN);
  const CONTROL_OBJ control("zt/", "ztsys");
  sockets::WSAStartup(ztsys::kSocketLibraryVersion);

  int status = ztsys::Run(argc, argv);
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
    status = ztsys::Fail(std::string("cannot write the output: ") + std::strerror(errno));
  return status;
}
