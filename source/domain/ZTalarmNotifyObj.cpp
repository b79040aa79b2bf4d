// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTalarmNotifyObj.h"

#include <utility>
#include <vector>

#include "source/support/ZTglobal.h"

zt_RPCAlarmNoticeLink_class::zt_RPCAlarmNoticeLink_class(KnownSilence* silence)
    : fSettings{.timeout_level = zt_com_timeout, .silence = silence} {
  fIsValid = GetLocalSystemKey(fMgrNodeSystemKey) == 0;
}

zt_RPCAlarmNoticeLink_class::~zt_RPCAlarmNoticeLink_class() {
  if (fRemoveClientContext)
    RemoveClientContext();
}

int zt_RPCAlarmNoticeLink_class::Failed(MessageId message, int result, std::string parameter) {
  fErrorSet = message.set;
  fErrorNum = message.number;
  fErrorMsgParm = std::move(parameter);
  return result;
}

// Fills the fields of old from the value.
int zt_RPCAlarmNoticeLink_class::Failed(RoadFailure failure, int result) {
  Failed(failure.message, result, failure.parameter);
  fFailure = std::move(failure);
  return result;
}

int zt_RPCAlarmNoticeLink_class::ConnectToAlmServer(SystemKey system_key) {
  using Goal = ZTagentRoad::Goal;
  fFailure.reset();
  if (!fIsValid)
    return Failed(messages::kConsoleUnknown, -1);
  if (fRemoveClientContext)
    RemoveClientContext();
  fNumAlmServers = 0;

  const ZTagentRoad road(system_key, fSettings);
  if (auto failure = road.negotiate(Goal::alarm)) {
    // What the daemon or the network said is the result; a version has a status of its own.
    const error_status_t status = failure->status != 0 ? failure->status : failure->result;
    return Failed(std::move(*failure), static_cast<int>(status));
  }
  fRPCinfo.version = ZT_RPC_V2;
  std::vector<RoadRecord> servers;
  ptc_LookupLosses losses;
  if (auto failure = road.find_servers(Goal::alarm, 1, &servers, &losses)) {
    const bool query = failure->message == messages::kAlarmQueryFailed;
    return Failed(std::move(*failure), query ? -1 : static_cast<int>(failure->result));
  }
  if (servers.empty()) {
    // Nothing found is a success, but what stood in the way is worth a message.
    if (losses.server.status != RPC_S_OK || losses.mapper.status != RPC_S_OK)
      Failed(road.absence(Goal::alarm, losses), 0);
    return 0;
  }
  fNumAlmServers = 1;
  fRemoveClientContext = 1;
  fEndPointString = servers.front().endpoint();
  fServerAddress = servers.front().address();
  fAlmclientContext = servers.front().release();
  fRPCinfo.rpc_handle = fAlmclientContext.fBindingHandle;
  return 0;
}

void zt_RPCAlarmNoticeLink_class::RemoveClientContext() {
  error_status_t status = RPC_S_OK;
  ptc_rpc_clnt_ctx_free(&fAlmclientContext, fNumAlmServers, &status);
  fRPCinfo.rpc_handle = nullptr;
  fRemoveClientContext = 0;
}

int zt_RPCAlarmNoticeLink_class::PingAlmServer(SystemKey system_key, unsigned char& registered) {
  registered = 0;
  int result = ConnectToAlmServer(system_key);
  if (result == 0 && fNumAlmServers > 0) {
    registered = 1;
    RpcMgmtSetComTimeout(fRPCinfo.rpc_handle, fSettings.timeout_level);
    const ZTagentRoad road(system_key, fSettings);
    if (auto failure = road.ping(fRPCinfo, fServerAddress))
      result = Failed(std::move(*failure), -1);
  }
  if (fRemoveClientContext)
    RemoveClientContext();
  return result;
}

void zt_RPCAlarmNoticeLink_class::DisplayErrors() const {
  show_message({fErrorSet, fErrorNum}, fErrorMsgParm);
  if (fFailure)
    show_message({messages::kCommandSet, messages::kDetails}, fFailure->sentence());
}
