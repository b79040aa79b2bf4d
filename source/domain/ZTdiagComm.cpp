// SPDX-License-Identifier: Apache-2.0
// ztcomm: the entry. Reads the command line and runs the selected checks in their fixed order.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>

#include "platform/rpc/rpc.h"
#include "platform/sys/standard_streams.h"
#include "shared/general/SHNLSmsg.h"
#include "shared/general/nt/SHderControlObj.h"
#include "source/domain/ZTcommandLine.h"
#include "source/domain/ZTdiagCommObj.h"
#include "source/domain/ZTdiagCommTrace.h"
#include "source/domain/ZTmessages.h"
#include "source/support/ZTglobal.h"
#include "source/support/ZTprintable.h"

namespace {

constexpr const char* kProduct = "zt/";
constexpr const char* kCatalog = "ztcomm_msgs";

void print_system(const char* heading, const char* name, SystemKey key) {
  char address[kKeyTextSize];
  SystemKeyToIPAddr(key, address);
  std::printf("%s%s (%s)\n", heading, printable(name).c_str(), address);
}

void run_checks(zt_DiagComm_class& diagnostic, const CommandLine& line) {
  if (line.Breakout && !diagnostic.Breakout())
    diagnostic.DisplayErrors();
  if (line.ShowConfiguration && !diagnostic.PrintConfigInfo())
    diagnostic.DisplayErrors();
  if (line.QueryServer && !diagnostic.QueryServer(line.DataSource.c_str()))
    diagnostic.DisplayErrors();
  if (line.CheckZTDBConnections)
    diagnostic.CheckZTDBConnections();
  if (line.ListAllRegistered && !diagnostic.ListAllRegistered())
    diagnostic.DisplayErrors();
}

// Names the local and the target system and runs the checks. The exit status.
int diagnose(const CommandLine& line) {
  zt_DiagComm_class diagnostic;
  char local_name[kHostNameSize] = "";
  SystemKey local_key = 0;
  if (!diagnostic.GetLocalSystem(local_name, local_key))
    diagnostic.DisplayErrors();
  print_system("Local System : ", local_name, local_key);
  std::fflush(stdout);

  if (!diagnostic.ValidSystemName(line.System.c_str())) {
    diagnostic.DisplayErrors();
    diagnostic.DisplayNameNotes();
    return EXIT_FAILURE;
  }
  print_system("Target System: ", diagnostic.ReturnSystemName(), diagnostic.ReturnSystemKey());
  std::printf("\n");
  std::fflush(stdout);
  diagnostic.DisplayNameNotes();
  run_checks(diagnostic, line);
  diagnostic.DisplayNameNotes();
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  if (!sys::KeepStandardStreams())
    return EXIT_FAILURE;
  // A reader that is gone is a failed write: a check that holds something on the agent lets go of
  // it.
  std::signal(SIGPIPE, SIG_IGN);
  sys::BeforeSlowOutput(RpcMgmtAcknowledge);
  const CONTROL_OBJ control(kProduct);
  zt_globalInit();

  const std::span<char* const> words(argv, static_cast<std::size_t>(argc));
  CommandLine line = read_command_line(words.empty() ? words : words.subspan(1));
  std::printf("%s\n\n", line.CmdLine.c_str());
  std::fflush(stdout);
  if (!line.Refusal.empty())
    std::fprintf(stderr, "%s\n", line.Refusal.c_str());
  if (!line.GoodCommand)
    PrintUsage();
  if (line.UseDefault)
    line.Breakout = true;
  if (line.Trace)
    gTraceObj.SetDebugOn();

  const char* directory = CONTROL_OBJ::GetCatalogDirectory();
  const std::string path =
      (line.CatDir.empty() ? std::string(directory != nullptr ? directory : "") : line.CatDir) +
      kCatalog;
  const NLS_MESSAGE_OBJ catalog(path.c_str());
  const int status = line.GoodCommand ? diagnose(line) : EXIT_FAILURE;
  if (output_is_whole())
    return status;
  show_message({messages::kCommandSet, messages::kOutputFailed});
  return EXIT_FAILURE;
}
