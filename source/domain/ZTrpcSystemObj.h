// SPDX-License-Identifier: Apache-2.0
// The connection to a monitored system's repository servers: a probe of the agent's location
// broker, the version check, the listing of the servers, and the binding to one of them. Failures
// are recorded as messages and never printed here.

#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "source/domain/ZTbasicConnectedSystem.h"
#include "source/domain/ZTrepInterface.h"

// The runtime's text for a status, or a sentence that names the status when there is none.
std::string zt_status_text(error_status_t status);

// Writes one trace line of a remote call: its entry (enter not 0) or its exit with the status.
void zt_rpc_log(int enter, const char* operation, const zt_RPCinfo_t& RPCinfo,
                error_status_t status);

// Hands the time-out level down to the location broker client.
void zt_apply_broker_limits();

// Statuses of this layer, besides those of the call layer.
inline constexpr error_status_t kAgentTooOld = 300;
inline constexpr error_status_t kLocationBrokerFailed = 301;
inline constexpr std::uint16_t kLeastAgentVersion = 2;

class RPC_MONITORED_SYSTEM_OBJ : public BASIC_CONNECTED_SYSTEM_OBJ {
 public:
  // Probes, checks the version and lists the servers; ValidObj tells the outcome. A key of 0 ends
  // the program through Fatal.
  RPC_MONITORED_SYSTEM_OBJ(SystemKey system_key, const char* system_name);
  ~RPC_MONITORED_SYSTEM_OBJ() override;

  // Lists the servers anew and makes one current: the one of that name, else (no name) the one of
  // that key when it is above 0, else the first. A binding is kept when a server was asked for or
  // there is only one. The status, 0 for success; the failure goes to RMSOHandleError.
  error_status_t BindToServer(const char* system_id, const char* server_id, SystemKey server_key);
  error_status_t UnbindFromServer();
  // Records the messages for a failing status.
  void RMSOHandleError(error_status_t status);

  int ReturnConnectError() const { return objConnectError; }  // of the probe, 0 for none
  int ReturnLastError() const { return objErrorMessageNum; }
  // Whether the endpoint map was left before its end (ptc_LookupLosses).
  bool ReturnSearchUnfinished() const { return fSearchUnfinished; }
  int ReturnSocketFile() override;
  void CancelDuplicateConnection() { objSocketIndex = -1; }
  void ConnectionLost();

  void InitializeSockets();
  // The slot of a system's probe connection, opened when there is none; -1 the table is full, -2
  // the connection failed. Counted users keep the slot.
  int AllocateSocket(SystemKey system_key, unsigned char count);
  void DeallocateSocket(SystemKey system_key);

 protected:
  static constexpr int kNoMessage = -1;

  void RecordMessage(int set, int number);

  std::string objErrorCause;
  int objErrorMessageSet = kNoMessage;
  int objErrorMessageNum = kNoMessage;
  int objRepErrorMessageNum = kNoMessage;  // set 13
  zt_RPCinfo_t fRPCinfo;
  int objWaitMode = 0;
  error_status_t objStatus = 0;
  int objConnectError = 0;
  int objSocketIndex = -1;

 private:
  class ServerList;

  error_status_t NegotiateVersion(const char* system_id, std::uint16_t* major);
  error_status_t FindServers(const char* system_id, ServerList& servers);
  error_status_t AppendServer(const char* system_id, ptc_RpcClientContextStruct& server);
  error_status_t KeepBinding(const ptc_RpcClientContextStruct& server);
  void ForgetServers();

  bool fSearchUnfinished = false;

  // The table of probe connections, shared by all objects and kept for the whole run. A slot is
  // free while its node is 0.
  static int objSocketCount;
  static std::array<int, 50> objSocketNumber;
  static std::array<int, 50> objSocketUseCount;
  static std::array<SystemKey, 50> objSocketNode;
};
