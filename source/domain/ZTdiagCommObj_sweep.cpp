// SPDX-License-Identifier: Apache-2.0
// The connection check: one status line for every system of the system database.

#include <cstdio>

#include "source/domain/ZTalarmNotifyObj.h"
#include "source/domain/ZTdiagCommObj.h"
#include "source/domain/ZTdiagCommTrace.h"
#include "source/support/ZTprintable.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

// The status fields, 17 characters wide.
constexpr const char* kNotSupported = "Not Supported ---";
constexpr const char* kNotAvailable = "Not Available ---";
constexpr const char* kNoAgent = "No Halvex -------";
constexpr const char* kFailed = "Failed ----------";
constexpr const char* kSucceeded = "Succeeded -------";

struct FailureStatus {
  int message;  // of set 20, recorded by the attempt
  const char* field;
};
constexpr FailureStatus kFailures[] = {
    {messages::kSystemTooOld, kNotSupported},
    {messages::kSystemUnreachable, kNotAvailable},
    {messages::kConnectionRefused, kNoAgent},
};

constexpr const char* kHeader =
    "Checking connection to all systems in Zentrace system database:\n"
    "\n"
    "  Status            System\n"
    "  ----------------- ------------------------------------------\n";

}  // namespace

void zt_DiagComm_class::CheckZTDBConnections() {
  const TracedOperation traced("zt_DiagComm_class::CheckZTDBConnections");
  // What runs after the check concerns the target that was named, not the last system tried.
  const std::string target_name = fSystemName;
  const SystemKey target_key = fSystemKey;
  zt_SystemInfo_class system;
  zt_SystemDBAccess_class database;
  zt_RPCAlarmNoticeLink_class alarms(&fSilence);
  int status = database.GetFirstSystemRec(system);
  if (status != 0) {
    fErrorNum = messages::kNoSystems;
  } else {
    SystemKey console = kNoSystemKey;
    if (GetLocalSystemKey(console) != 0)
      show_message({messages::kCommandSet, messages::kConsoleNameless});
    std::fputs(kHeader, stdout);
    std::fflush(stdout);
    do {
      const std::string name = system.ReturnSystemName();
      const char* field = ConnectionStatus(name.c_str(), alarms);
      std::printf("  %s %s\n", field, printable(fSystemName).c_str());
      std::fflush(stdout);
      ForgetErrors();
      DisconnectFromSystem();
      fRepServerInfoObj.reset();
      status = database.GetNextSystemRec(system);
    } while (status == 0);
  }
  // Which file and why: nothing was read, or the walk has come to a place that cannot be.
  if (fErrorNum == messages::kNoSystems || status != kSysDbNoMoreSystems) {
    fErrorNum2 = messages::kDetails;
    fErrorParm2 = database.ReturnTrouble(status);
    DisplayErrors();
  }
  DisconnectFromSystem();
  fSystemName = target_name;
  fSystemKey = target_key;
  fTargetPinned = true;
  std::printf("\n");
  std::fflush(stdout);
  std::fflush(stderr);
}

const char* zt_DiagComm_class::ConnectionStatus(const char* system_name,
                                                zt_RPCAlarmNoticeLink_class& alarms) {
  ForgetErrors();
  fTargetPinned = false;
  if (ConnectToSystem(system_name)) {
    unsigned char registered = 0;
    const int ping = alarms.PingAlmServer(fSystemKey, registered);
    return ping == 0 && registered == 1 ? kSucceeded : kFailed;
  }
  for (const FailureStatus& failure : kFailures) {
    if (fErrorNum == failure.message)
      return failure.field;
  }
  return kFailed;
}

void zt_DiagComm_class::ForgetErrors() {
  fErrorNum = 0;
  fErrorNum2 = 0;
  fRPCErrorStatus = 0;
  fFailure.reset();
}
