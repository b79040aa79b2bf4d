// SPDX-License-Identifier: Apache-2.0
// The link to a system's alarm server (almserver): finds it anew for each operation, makes at most
// one remote call and releases what it found. Failures are recorded and shown or logged on request.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "shared/dce/ncs2dce.h"
#include "shared/general/SHsysNameConv.h"
#include "source/domain/ZTagentRoad.h"
#include "source/domain/ZTrepInterface.h"

class zt_SystemInfo_class;

class zt_RPCAlarmNoticeLink_class {
 public:
  // `silence` is what the run knows to be silent; it may be null, and outlives the link.
  explicit zt_RPCAlarmNoticeLink_class(KnownSilence* silence = nullptr);
  ~zt_RPCAlarmNoticeLink_class();
  zt_RPCAlarmNoticeLink_class(const zt_RPCAlarmNoticeLink_class&) = delete;
  zt_RPCAlarmNoticeLink_class& operator=(const zt_RPCAlarmNoticeLink_class&) = delete;

  // Looks the alarm server up. 0 also when there is none; else -1, 300, or a status of the runtime
  // or the location broker. A server found is released by RemoveClientContext.
  int ConnectToAlmServer(SystemKey system_key);
  void RemoveClientContext();

  // Registers the console for the system's alarms (alarms 1) or removes it, and records the outcome
  // in the system's record. 0 for success; a failure is logged.
  int ContactNode(zt_SystemInfo_class& system_info, unsigned char alarms);
  // Whether the endpoint map leads to an alarm server. The result of ConnectToAlmServer.
  int IsRegistered(SystemKey system_key, unsigned char& registered);
  // The same, and pings it: 0; -1 or a status on failure. A server that is registered and was
  // dropped by the listening probe counts as not registered; ReturnFailure tells it apart.
  int PingAlmServer(SystemKey system_key, unsigned char& registered);

  void LogStatus() const;
  void DisplayErrors() const;
  // The endpoint of the last server found, null for none yet.
  const char* ReturnEndPoint() const {
    return fEndPointString.empty() ? nullptr : fEndPointString.c_str();
  }
  // What stood in the way of the last operation, also when it succeeded all the same: a server that
  // is registered and not listening, or a map that was not read. Nothing: see the message.
  const std::optional<RoadFailure>& ReturnFailure() const { return fFailure; }

 private:
  int Failed(MessageId message, int result, std::string parameter = {});
  int Failed(RoadFailure failure, int result);

  unsigned char fIsValid = 0;
  unsigned char fRemoveClientContext = 0;
  SystemKey fMgrNodeSystemKey = kNoSystemKey;
  std::string fEndPointString;
  int fErrorSet = 0;
  int fErrorNum = 0;
  std::uint32_t fNumAlmServers = 1;  // capacity before a query, then the servers found
  std::string fErrorMsgParm;
  zt_RPCinfo_t fRPCinfo;
  ptc_RpcClientContextStruct fAlmclientContext{};
  RoadAddress fServerAddress;
  const RoadSettings fSettings;
  std::optional<RoadFailure> fFailure;
};
