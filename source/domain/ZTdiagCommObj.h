// SPDX-License-Identifier: Apache-2.0
// The diagnostic object: the target, the connection to its repository servers, the pending error
// messages, and the five checks, which write their reports to standard output.
//
// Results are 1 for success and 0 for failure. A failing operation prints nothing: it leaves up to
// two messages and a status, or the repository client its own, for DisplayErrors. Each check stands
// in a file of its own (ZTdiagCommObj_*.cpp).

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/rpc/rpc.h"
#include "shared/general/SHsysNameConv.h"
#include "source/domain/ZTrepServerInfoObj.h"
#include "source/domain/ZTsweep.h"

// The runtime's text for a status, in a buffer that the next call overwrites.
const char* error_text(unsigned int status);

// "the classes A, B and 249 more"; a single one's noun for one name, "no class" for none.
std::string list_of(const char* singular, const char* plural,
                    const std::vector<std::string>& names);

class zt_RPCAlarmNoticeLink_class;

class zt_DiagComm_class {
 public:
  zt_DiagComm_class();  // reads the environment settings and shows what became of them
  ~zt_DiagComm_class();
  zt_DiagComm_class(const zt_DiagComm_class&) = delete;
  zt_DiagComm_class& operator=(const zt_DiagComm_class&) = delete;

  const char* ReturnSystemName() const { return fSystemName.c_str(); }
  SystemKey ReturnSystemKey() const { return fSystemKey; }
  void DisconnectFromSystem();

  int PrintConfigInfo();
  int Breakout();
  int ListAllRegistered();
  int QueryServer(const char* data_source_name);
  void CheckZTDBConnections();

  // Shows and forgets the pending messages; without a first one, those of the repository client.
  void DisplayErrors();

  // Shows what was found out about names: further addresses of the target, a name server that does
  // not answer. Each once.
  void DisplayNameNotes();

  // The local host's name (kHostNameSize characters) and key; also makes the key the target's.
  int GetLocalSystem(char* name, SystemKey& key);
  // Makes a name or dotted address the target, an empty one the local system.
  int ValidSystemName(const char* name);
  int ConnectToSystem(const char* system_name);
  int ConnectToServer(const char* data_source_name);
  void DisconnectFromServer();
  int QueryClass(const char* class_name, const char* const* metric_names, int num_names);
  int PrintEndPointMap(std::uint32_t& element_count);

 private:
  int ReportAlarmServer();
  int PrintElements(RPC_EP_INQ_HANDLE inquiry, std::uint32_t& element_count);
  int EndOfElements(RPC_STATUS status);
  int InquiryFailed(int message, RPC_STATUS status, bool with_status = true);
  int PrintConfiguration();
  int QueryDataSource();
  void SweepInTurn(const std::vector<SweepSystem>& systems, zt_RPCAlarmNoticeLink_class& alarms);
  RoadState ConnectionState(const char* system_name, zt_RPCAlarmNoticeLink_class& alarms);
  void ForgetErrors();
  void DisplayLeftOut();
  // The index of a class of the data source; -1: there is none, with messages.
  int FindClass(const char* class_name);
  // What a failure in the data ends with: which server was asked, and what it has; what there is in
  // place of a data source, and which servers do not answer.
  void ExplainData(const std::string& text);
  void ExplainSources();

  std::unique_ptr<zt_RepServerInfo_class> fRepServerInfoObj;
  std::string fErrorParm;
  std::string fErrorParm2;
  std::string fSystemName;
  std::optional<std::string> fDataSourceName;
  SystemKey fSystemKey = kNoSystemKey;
  std::vector<SystemKey> fTargetKeys;  // all addresses of the target's name
  bool fNameServerReported = false;
  bool fTargetPinned = false;  // fSystemName stands for fSystemKey, whatever a name service says
  int fErrorNum = 0;           // message numbers of set 20, 0 for none
  int fErrorNum2 = 0;
  int fConnectedToSystem = 0;
  int fConnectedToServer = 0;
  RPC_STATUS fRPCErrorStatus = 0;
  std::optional<RoadFailure> fFailure;  // its sentence follows the pending messages
  KnownSilence fSilence;
};
