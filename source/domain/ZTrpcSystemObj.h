// SPDX-License-Identifier: Apache-2.0
// The connection to a monitored system's repository servers: a probe of the agent's location
// broker, the version check, the listing of the servers, and the binding to one of them. Failures
// are recorded as messages and never printed here.

#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "source/domain/ZTagentRoad.h"
#include "source/domain/ZTbasicConnectedSystem.h"
#include "source/domain/ZTrpcInfo.h"

class RPC_MONITORED_SYSTEM_OBJ : public BASIC_CONNECTED_SYSTEM_OBJ {
 public:
  // Probes, checks the version and lists the servers; ValidObj tells the outcome. A key of 0 ends
  // the program through Fatal. All that is asked goes to the key's address; the name is for
  // display. `silence` is what the run knows to be silent; it may be null, and outlives the object.
  RPC_MONITORED_SYSTEM_OBJ(SystemKey system_key, const char* system_name,
                           KnownSilence* silence = nullptr);
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
  // The last failure of the road or of a call, while its messages are recorded.
  const std::optional<RoadFailure>& ReturnFailure() const { return fFailure; }
  // What the last search for servers lost; nothing to tell when every server that is registered
  // answered.
  std::optional<RoadFailure> ReturnMissing() const;
  // "127.0.1.1 port 4100", the bound server's.
  std::string ReturnServerPlace() const { return fServerAddress.text(); }
  // Whether the endpoint map was left before its end, and whether only as many servers were taken
  // as there is room for.
  bool ReturnSearchUnfinished() const { return fLosses.unfinished; }
  bool ReturnServersLeftOut() const { return fLosses.full; }
  int ReturnSocketFile() override;
  void CancelDuplicateConnection() { objSocketIndex = -1; }
  void ConnectionLost();

  void InitializeSockets();
  // The slot of a system's probe connection, opened when there is none; -1 the table is full, -2
  // the connection failed. Counted users keep the slot.
  int AllocateSocket(SystemKey system_key, unsigned char count);
  void DeallocateSocket(SystemKey system_key);

 protected:
  static constexpr LostCall kNotConnected{RPC_S_INVALID_ARG, {RpcCallOutcome::Kind::local}};

  void RecordMessage(MessageId message);
  void ForgetMessages();
  // Makes a remote call on the bound server, or takes what an earlier one that waited in vain got.
  template <typename Call>
  LostCall Ask(const char* operation, const Call& call) const {
    if (fRPCinfo.rpc_handle == nullptr)
      return kNotConnected;
    return fRoad.ask(fServerAddress, operation, call);
  }
  // Records a failed call on the bound server, or (Ask's result made here) a reply that is refused.
  // Where the server says that it found nothing, `sought` says what was asked for.
  void RecordFailedCall(const LostCall& call, const std::string& sought = {});

  std::string objErrorCause;
  int objErrorMessageSet = MessageId::kNoMessage;
  int objErrorMessageNum = MessageId::kNoMessage;
  int objRepErrorMessageNum = MessageId::kNoMessage;  // set 13
  zt_RPCinfo_t fRPCinfo;
  int objWaitMode = 0;
  error_status_t objStatus = 0;
  int objConnectError = 0;
  int objSocketIndex = -1;

 private:
  error_status_t RecordFailure(RoadFailure failure);
  error_status_t KeepBinding(const RoadRepository& server);
  void TakeServers(const char* system_id, const std::vector<RoadRepository>& repositories);

  const RoadSettings fSettings;
  const ZTagentRoad fRoad;
  RoadAddress fServerAddress;  // of the bound server
  ptc_LookupLosses fLosses;
  std::optional<RoadFailure> fFailure;

  // The table of probe connections, shared by all objects and kept for the whole run. A slot is
  // free while its node is 0.
  static int objSocketCount;
  static std::array<int, 50> objSocketNumber;
  static std::array<int, 50> objSocketUseCount;
  static std::array<SystemKey, 50> objSocketNode;
};
