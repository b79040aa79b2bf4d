// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTalarmNotifyObj.h"

#include <cstdio>

#include "shared/dce/hublnk_client.h"
#include "shared/general/SHNLSmsg.h"
#include "shared/general/SHstatusMsg.h"
#include "source/domain/ZTmapperBinding.h"
#include "source/domain/ZTrpcSystemObj.h"
#include "source/support/ZTglobal.h"
#include "source/support/ZTprintable.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

constexpr int kRpcSet = 13;
constexpr int kTooOld = 300;
constexpr int kBrokerFailed = 301;
constexpr int kNoMapperBinding = 303;
constexpr int kTextNotFreed = 304;
constexpr int kNoInterfaceId = 305;
constexpr int kQueryFailed = 306;
constexpr int kPingFailed = 307;
constexpr int kRegisterFailed = 308;
constexpr int kUnregisterFailed = 309;
constexpr int kAlarmSet = 17;
constexpr int kNoAlarmServer = 6;
constexpr int kConsoleSet = 100;
constexpr int kNoLocalKey = 4;

constexpr SystemKey kAnySystem = 0;
// States of a system's record.
constexpr int kNotMonitoring = 0;
constexpr int kAlarmsRequested = 2;

}  // namespace

zt_RPCAlarmNoticeLink_class::zt_RPCAlarmNoticeLink_class() {
  fIsValid = GetLocalSystemKey(fMgrNodeSystemKey) == 0;
}

zt_RPCAlarmNoticeLink_class::~zt_RPCAlarmNoticeLink_class() {
  if (fRemoveClientContext)
    RemoveClientContext();
}

int zt_RPCAlarmNoticeLink_class::Failed(int set, int number, int result) {
  fErrorSet = set;
  fErrorNum = number;
  fErrorMsgParm.clear();
  return result;
}

int zt_RPCAlarmNoticeLink_class::Failed(int set, int number, error_status_t status, int result) {
  Failed(set, number, result);
  fErrorMsgParm = std::to_string(static_cast<std::int32_t>(status));
  return result;
}

int zt_RPCAlarmNoticeLink_class::ConnectToAlmServer(SystemKey system_key) {
  if (!fIsValid)
    return Failed(kConsoleSet, kNoLocalKey, -1);
  if (fRemoveClientContext)
    RemoveClientContext();
  fNumAlmServers = 1;
  fUnreachable = 0;

  char address[kKeyTextSize];
  SystemKeyToIPAddr(system_key, address);
  std::uint16_t major = 0;
  if (const int status = CheckLocationBroker(address, &major); status != 0)
    return status;

  MapperBinding mapper;
  error_status_t released = RPC_S_OK;
  const error_status_t status = mapper.bind(address, &released);
  if (status != RPC_S_OK)
    return Failed(kRpcSet, kNoMapperBinding, status, static_cast<int>(status));
  if (released != RPC_S_OK)
    return Failed(kRpcSet, kTextNotFreed, released, static_cast<int>(released));
  if (major < kLeastAgentVersion)
    return Failed(kRpcSet, kTooOld, static_cast<int>(kAgentTooOld));
  return FindServer(mapper.get());
}

int zt_RPCAlarmNoticeLink_class::CheckLocationBroker(const char* address, std::uint16_t* major) {
  zt_apply_broker_limits();
  sockets::Socket broker = sockets::kInvalidSocket;
  std::uint16_t minor = 0;
  std::uint32_t status = 0;
  hublnk_Open(address, &broker, &status);
  if (status == 0) {
    std::uint32_t closed = 0;
    hublnk_Negotiate(broker, major, &minor, &status);
    hublnk_Close(broker, &closed);
    status = status != 0 ? status : closed;
  }
  if (status != 0)
    return Failed(kRpcSet, kBrokerFailed, status, static_cast<int>(status));
  return 0;
}

int zt_RPCAlarmNoticeLink_class::FindServer(RPC_BINDING_HANDLE mapper) {
  rpc_if_id_t interface_id{};
  error_status_t status = RpcIfInqId(zt_v2_ag_v2_0_c_ifspec, &interface_id);
  if (status != RPC_S_OK)
    return Failed(kRpcSet, kNoInterfaceId, status, static_cast<int>(status));
  fRPCinfo.version = ZT_RPC_V2;
  RpcMgmtSetComTimeout(mapper, zt_com_timeout);
  ptc_LookupLosses losses;
  ptc_rpc_ep_lookup(mapper, &interface_id, nullptr, &fAlmclientContext, &fNumAlmServers, &status,
                    &losses);
  if (status != RPC_S_OK) {
    fNumAlmServers = 0;
    return Failed(kRpcSet, kQueryFailed, status, -1);
  }
  if (fNumAlmServers > 0)
    return TakeServer();
  // Nothing found is a success, but what stood in the way is worth a message.
  if (losses.server != RPC_S_OK)
    Failed(kRpcSet, kPingFailed, losses.server, 0);
  else if (losses.mapper != RPC_S_OK)
    Failed(kRpcSet, kQueryFailed, losses.mapper, 0);
  fUnreachable = losses.server != RPC_S_OK || losses.mapper != RPC_S_OK;
  return 0;
}

int zt_RPCAlarmNoticeLink_class::TakeServer() {
  fRemoveClientContext = 1;
  char* endpoint = nullptr;
  error_status_t status = RpcStringBindingParseA(fAlmclientContext.fStringBinding, nullptr, nullptr,
                                                 nullptr, &endpoint, nullptr);
  if (status != RPC_S_OK)
    return Failed(kRpcSet, kQueryFailed, status, static_cast<int>(status));
  fEndPointString = endpoint;
  status = RpcStringFreeA(&endpoint);
  if (status != RPC_S_OK)
    return Failed(kRpcSet, kTextNotFreed, status, static_cast<int>(status));
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
    RpcMgmtSetComTimeout(fRPCinfo.rpc_handle, zt_com_timeout);
    error_status_t status = RPC_S_OK;
    zt_ag_Ping(fRPCinfo, &status);
    if (status != RPC_S_OK)
      result = Failed(kRpcSet, kPingFailed, status, -1);
  }
  if (fRemoveClientContext)
    RemoveClientContext();
  return result;
}

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
    result = Failed(kAlarmSet, kNoAlarmServer, -1);
  } else if (result == 0) {
    RpcMgmtSetComTimeout(fRPCinfo.rpc_handle, zt_com_timeout);
    error_status_t status = RPC_S_OK;
    if (registering)
      zt_ag_RegisterZT(fRPCinfo, kAnySystem, &status);
    else
      zt_ag_UnregisterZT(fRPCinfo, kAnySystem, &status);
    if (status != RPC_S_OK) {
      result = Failed(kRpcSet, registering ? kRegisterFailed : kUnregisterFailed, status, -1);
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

void zt_RPCAlarmNoticeLink_class::DisplayErrors() const {
  std::fflush(stdout);
  std::fflush(stderr);
  const std::string text =
      NLS_MESSAGE_OBJ::FormatNLSmessage(fErrorSet, fErrorNum, printable(fErrorMsgParm).c_str());
  std::fprintf(stderr, "%s\n", text.c_str());
  std::fflush(stderr);
}
