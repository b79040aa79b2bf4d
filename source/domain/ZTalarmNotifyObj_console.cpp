// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): registration for
// alarms.

#include "shared/general/SHstatusMsg.h"
#include "source/domain/ZTalarmNotifyObj.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

constexpr SystemKey kAnySystem = 0;
// States of a system's record.
constexpr int kNotMonitoring = 0;
constexpr int kAlarmsRequested = 2;

}  // namespace

int zt_RPCAlarmNoticeLink_class::IsRegistered(SystemKey system_key, unsigned char& registered) {
  registered = 0;
  const int result = ConnectToAlmServer(system_key);
  if (result == 0 && fNumAlmServers > 0)
    registered = 1;
  if (fRemoveClientContext)
    RemoveClientContext();
  return result;
}

int zt_RPCAlarmNoticeLink_class::ContactNode(zt_SystemInfo_class& system_info,
                                             unsigned char alarms) {
  const bool registering = alarms == 1;
  int result = ConnectToAlmServer(system_info.ReturnSystemKey());
  if (result == 0 && fNumAlmServers == 0) {
    result = Failed(messages::kNoAlarmServer, -1);
  } else if (result == 0) {
    RpcMgmtSetComTimeout(fRPCinfo.rpc_handle, fSettings.timeout_level);
    error_status_t status = RPC_S_OK;
    if (registering)
      zt_ag_RegisterZT(fRPCinfo, kAnySystem, &status);
    else
      zt_ag_UnregisterZT(fRPCinfo, kAnySystem, &status);
    if (status != RPC_S_OK) {
      result = Failed(registering ? messages::kRegisterFailed : messages::kUnregisterFailed, -1,
                      std::to_string(static_cast<std::int32_t>(status)));
    } else {
      system_info.SetMonitorAlarms(registering ? 1 : 0);
      system_info.SetAlarmMonitorStatus(registering ? kAlarmsRequested : kNotMonitoring);
    }
  }
  if (result != 0)
    LogStatus();
  if (fRemoveClientContext)
    RemoveClientContext();
  return result;
}

void zt_RPCAlarmNoticeLink_class::LogStatus() const {
  const char* parameter = fErrorMsgParm.c_str();
  STATUS_MESSAGE_OBJECT::LogStatus(&fErrorSet, &fErrorNum, &parameter, 1, 0);
}
