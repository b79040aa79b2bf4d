// SPDX-License-Identifier: Apache-2.0
// The connection check: one status line for every system of the system database.

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "source/domain/ZTalarmNotifyObj.h"
#include "source/domain/ZTdiagCommObj.h"
#include "source/domain/ZTdiagCommTrace.h"
#include "source/support/ZTglobal.h"
#include "source/support/ZTprintable.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

constexpr const char* kJobsVariable = "ZT_SWEEP_JOBS";
constexpr unsigned kDefaultJobs = 32;
constexpr unsigned kMostJobs = 1024;

struct FailureState {
  int message;  // of set 20, recorded by the attempt
  RoadState state;
};
constexpr FailureState kFailures[] = {
    {messages::kSystemTooOld, RoadState::not_supported},
    {messages::kSystemUnreachable, RoadState::not_available},
    {messages::kConnectionRefused, RoadState::no_halvex},
};

void print_status(RoadState state, const std::string& name) {
  std::printf("  %s %s\n", zt_SweepField(state).c_str(), printable(name).c_str());
  if (output_is_whole())
    return;
  // Nobody reads on, and the systems that are left may be thousands.
  show_message({messages::kCommandSet, messages::kOutputFailed});
  std::_Exit(EXIT_FAILURE);
}

// Systems at once. Trace lines and pauses are for one call at a time.
unsigned sweep_jobs() {
  if (gTraceObj.ReturnDebugOn() || zt_trace_level > 0 || slownet_wait_interval.seconds > 0)
    return 1;
  const char* text = std::getenv(kJobsVariable);
  if (text == nullptr)
    return zt_SweepJobs(kDefaultJobs);
  unsigned jobs = 0;
  const char* end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, jobs);
  if (error == std::errc() && stop == end && jobs >= 1 && jobs <= kMostJobs)
    return zt_SweepJobs(jobs);
  show_message({messages::kCommandSet, messages::kJobsRejected});
  return zt_SweepJobs(kDefaultJobs);
}

// Lines in the order of the list, each as soon as all before it are there.
void sweep_at_once(std::vector<SweepSystem>& systems, unsigned jobs, bool alarms_can_be_asked,
                   KnownSilence* silence) {
  const SweepSettings settings(zt_com_timeout, silence);
  std::map<std::size_t, RoadState> waiting;
  std::size_t next = 0;
  sys::FiberLoop loop(jobs);
  zt_Sweep(
      loop, systems, settings.road(), {.done = [&](std::size_t index, const SweepResult& result) {
        RoadState state = result.report.state();
        if (state == RoadState::succeeded && !alarms_can_be_asked)
          state = RoadState::failed;
        waiting.emplace(index, state);
        for (auto first = waiting.begin(); first != waiting.end() && first->first == next; ++next) {
          print_status(first->second, systems[next].name);
          first = waiting.erase(first);
        }
      }});
}

// For the lock under which a database in the older layout is converted.
constexpr std::chrono::seconds kDatabaseWait{5};

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
  zt_SystemDBAccess_class database(zt_SystemDBOptions{kDatabaseWait, {}});
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
    std::vector<SweepSystem> systems;
    do {
      systems.push_back(
          {.name = system.ReturnSystemName(), .look_up = SweepSystem::LookUp::address_and_name});
      status = database.GetNextSystemRec(system);
    } while (status == 0);
    if (const unsigned jobs = sweep_jobs(); jobs > 1)
      sweep_at_once(systems, jobs, console != kNoSystemKey, &fSilence);
    else
      SweepInTurn(systems, alarms);
  }
  // Which file and why: nothing was read, or the walk has come to a place that cannot be.
  if (fErrorNum == messages::kNoSystems || status != kSysDbNoMoreSystems ||
      database.ReturnTail() != 0) {
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

void zt_DiagComm_class::SweepInTurn(const std::vector<SweepSystem>& systems,
                                    zt_RPCAlarmNoticeLink_class& alarms) {
  for (const SweepSystem& each : systems) {
    const RoadState state = ConnectionState(each.name.c_str(), alarms);
    print_status(state, fSystemName);
    ForgetErrors();
    DisconnectFromSystem();
    fRepServerInfoObj.reset();
  }
}

RoadState zt_DiagComm_class::ConnectionState(const char* system_name,
                                             zt_RPCAlarmNoticeLink_class& alarms) {
  ForgetErrors();
  fTargetPinned = false;
  if (ConnectToSystem(system_name)) {
    unsigned char registered = 0;
    const int ping = alarms.PingAlmServer(fSystemKey, registered);
    return ping == 0 && registered == 1 ? RoadState::succeeded : RoadState::failed;
  }
  for (const FailureState& failure : kFailures) {
    if (fErrorNum == failure.message)
      return failure.state;
  }
  return RoadState::failed;
}

void zt_DiagComm_class::ForgetErrors() {
  fErrorNum = 0;
  fErrorNum2 = 0;
  fRPCErrorStatus = 0;
  fFailure.reset();
}
