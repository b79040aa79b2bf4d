// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTrpcSystemObj.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "platform/sys/sockets.h"
#include "present/util/util.h"
#include "source/support/ZTglobal.h"

int RPC_MONITORED_SYSTEM_OBJ::objSocketCount = 0;
std::array<int, 50> RPC_MONITORED_SYSTEM_OBJ::objSocketNumber;
std::array<int, 50> RPC_MONITORED_SYSTEM_OBJ::objSocketUseCount;
std::array<SystemKey, 50> RPC_MONITORED_SYSTEM_OBJ::objSocketNode;

namespace {

constexpr std::size_t kMostServers = 128;
constexpr int kNoSlot = -1;
constexpr int kProbeRefused = -2;

// The repository message for a status; 0 when only the runtime's text tells what happened.
int repository_message(error_status_t status) {
  struct Row {
    error_status_t first, last;
    int message;  // of the first; the following ones count on
  };
  constexpr Row kRows[] = {
      {kCallRaised, kCallRaised, 101},   {120, 120, 120},
      {kAgentTooOld, kAgentTooOld, -1},  {kLocationBrokerFailed, kLocationBrokerFailed, 301},
      {kRepNothingFound, 0x4C010009, 2}, {0x4C01000A, 0x4C01000B, 17},
  };
  for (const Row& row : kRows) {
    if (status >= row.first && status <= row.last)
      return row.message + static_cast<int>(status - row.first);
  }
  return 0;
}

}  // namespace

RPC_MONITORED_SYSTEM_OBJ::RPC_MONITORED_SYSTEM_OBJ(SystemKey system_key, const char* system_name,
                                                   KnownSilence* silence)
    : BASIC_CONNECTED_SYSTEM_OBJ(system_key, system_name, 0),
      fSettings{.timeout_level = zt_com_timeout, .silence = silence},
      fRoad(system_key, fSettings) {
  if (system_key == 0)
    Fatal("source/domain/ZTrpcSystemObj", __LINE__,
          "Must have a valid system_key RPC_MONITORED_SYSTEM constructor");
  InitializeSockets();
  objSocketIndex = AllocateSocket(system_key, 0);
  if (objSocketIndex < 0) {
    RecordMessage(objSocketIndex == kNoSlot ? messages::kTooManySystems : messages::kProbeFailed);
    return;
  }
  objSystemName = system_name;
  const error_status_t status = BindToServer(system_name, nullptr, 0);
  if (status != RPC_S_OK)
    RMSOHandleError(status);
  else
    objValidObject = 1;
}

RPC_MONITORED_SYSTEM_OBJ::~RPC_MONITORED_SYSTEM_OBJ() {
  UnbindFromServer();
  if (objSystemKey != 0 && objSocketIndex >= 0)
    DeallocateSocket(objSystemKey);
}

error_status_t RPC_MONITORED_SYSTEM_OBJ::BindToServer(const char* system_id, const char* server_id,
                                                      SystemKey server_key) {
  using Goal = ZTagentRoad::Goal;
  if (auto failure = fRoad.negotiate(Goal::repository))
    return RecordFailure(std::move(*failure));
  fRPCinfo.version = ZT_RPC_V2;
  std::vector<RoadRecord> servers;
  if (auto failure = fRoad.find_servers(Goal::repository, kMostServers, &servers, &fLosses))
    return RecordFailure(std::move(*failure));
  std::vector<RoadRepository> found;
  auto failure = fRoad.ask_repositories(std::move(servers), &found);
  TakeServers(system_id, found);
  if (failure)
    return RecordFailure(std::move(*failure));

  const auto wanted = [&](const RoadRepository& server) {
    return server_id != nullptr
               ? server.name == server_id
               : server_key <= 0 || static_cast<SystemKey>(server.id) == server_key;
  };
  const auto selected = std::find_if(found.begin(), found.end(), wanted);
  if (selected == found.end()) {
    RecordMessage(messages::kNoSuchServer);
    return kRepNothingFound;
  }
  objServerKey = static_cast<SystemKey>(selected->id);
  objServerName = selected->name;
  objServerFullName = std::string(system_id) + ":" + selected->name;
  if (server_id != nullptr || server_key != 0 || found.size() == 1)
    return KeepBinding(*selected);
  return RPC_S_OK;
}

void RPC_MONITORED_SYSTEM_OBJ::TakeServers(const char* system_id,
                                           const std::vector<RoadRepository>& repositories) {
  objServerKeys.clear();
  objServerNames.clear();
  objServerFullNames.clear();
  objRepositoryPaths.clear();
  objRepositoryEndPoints.clear();
  for (const RoadRepository& server : repositories) {
    objServerKeys.push_back(static_cast<SystemKey>(server.id));
    objServerNames.push_back(server.name);
    objServerFullNames.push_back(std::string(system_id) + ":" + server.name);
    objRepositoryPaths.push_back(server.path);
    objRepositoryEndPoints.push_back(server.record.endpoint());
  }
  objServerCount = static_cast<int>(repositories.size());
}

error_status_t RPC_MONITORED_SYSTEM_OBJ::KeepBinding(const RoadRepository& server) {
  UnbindFromServer();
  const ptc_RpcClientContextStruct& record = server.record.get();
  error_status_t status = RpcBindingCopy(record.fBindingHandle, &fRPCinfo.rpc_handle);
  if (status != RPC_S_OK)
    return status;
  status = RpcBindingSetObject(fRPCinfo.rpc_handle, &record.fObjectUuid);
  if (status != RPC_S_OK) {
    UnbindFromServer();
    return status;
  }
  fServerAddress = server.at;
  RpcMgmtSetComTimeout(fRPCinfo.rpc_handle, fSettings.timeout_level);
  return RPC_S_OK;
}

error_status_t RPC_MONITORED_SYSTEM_OBJ::UnbindFromServer() {
  if (fRPCinfo.rpc_handle == nullptr)
    return RPC_S_OK;
  const error_status_t status = RpcBindingFree(&fRPCinfo.rpc_handle);
  fRPCinfo.rpc_handle = nullptr;
  return status;
}

std::optional<RoadFailure> RPC_MONITORED_SYSTEM_OBJ::ReturnMissing() const {
  return fRoad.missing(fLosses, objServerNames.size());
}

void RPC_MONITORED_SYSTEM_OBJ::RecordMessage(MessageId message) {
  objErrorMessageSet = message.set;
  objErrorMessageNum = message.number;
}

void RPC_MONITORED_SYSTEM_OBJ::ForgetMessages() {
  RecordMessage({});
  objRepErrorMessageNum = MessageId::kNoMessage;
  objErrorCause.clear();
  fFailure.reset();
}

// Fills the fields of old from the value.
error_status_t RPC_MONITORED_SYSTEM_OBJ::RecordFailure(RoadFailure failure) {
  RecordMessage(failure.message);
  objErrorCause = failure.parameter;
  fFailure = std::move(failure);
  return fFailure->result;
}

void RPC_MONITORED_SYSTEM_OBJ::RecordFailedCall(const LostCall& call, const std::string& sought) {
  RMSOHandleError(
      RecordFailure(fRoad.call_failure(RoadLink::repository, fServerAddress, call, sought)));
}

void RPC_MONITORED_SYSTEM_OBJ::RMSOHandleError(error_status_t status) {
  objStatus = status;
  if (objErrorMessageSet == MessageId::kNoMessage)
    RecordMessage(messages::kRequestFailed);
  const int message = repository_message(status);
  objRepErrorMessageNum = message != 0 ? message : messages::kRuntimeStatus.number;
  if (message == 0)
    objErrorCause = zt_status_text(status);
  else if (status == kRepNothingFound && objErrorCause.empty())
    objErrorCause = zt_status_text(RPC_X_NO_MORE_ENTRIES);
}

int RPC_MONITORED_SYSTEM_OBJ::ReturnSocketFile() {
  return objSocketIndex < 0 ? -1 : objSocketNumber[static_cast<std::size_t>(objSocketIndex)];
}

void RPC_MONITORED_SYSTEM_OBJ::InitializeSockets() {
  if (objSocketCount != 0)
    return;
  objSocketCount = static_cast<int>(objSocketNode.size());
  objSocketNumber.fill(0);
  objSocketUseCount.fill(0);
  objSocketNode.fill(0);
}

int RPC_MONITORED_SYSTEM_OBJ::AllocateSocket(SystemKey system_key, unsigned char count) {
  const auto slot_of = [](SystemKey key) {
    const auto at = std::find(objSocketNode.begin(), objSocketNode.end(), key);
    return static_cast<std::size_t>(at - objSocketNode.begin());
  };
  if (const std::size_t slot = slot_of(system_key); slot < objSocketNode.size()) {
    if (count)
      ++objSocketUseCount[slot];
    return static_cast<int>(slot);
  }
  const std::size_t slot = slot_of(0);
  if (slot == objSocketNode.size())
    return kNoSlot;

  sockets::Socket probe = sockets::kInvalidSocket;
  if (auto failure = fRoad.probe(&probe)) {
    objConnectError = static_cast<int>(failure->status);
    RecordFailure(std::move(*failure));
    return kProbeRefused;
  }
  objSocketNumber[slot] = probe;
  objSocketUseCount[slot] = count ? 1 : 0;
  objSocketNode[slot] = system_key;
  return static_cast<int>(slot);
}

void RPC_MONITORED_SYSTEM_OBJ::DeallocateSocket(SystemKey system_key) {
  const auto at = std::find(objSocketNode.begin(), objSocketNode.end(), system_key);
  if (at == objSocketNode.end())
    return;
  const auto slot = static_cast<std::size_t>(at - objSocketNode.begin());
  if (objSocketUseCount[slot] > 0)
    --objSocketUseCount[slot];
  if (objSocketUseCount[slot] != 0)
    return;
  if (objConnectionStatus != CONNECTION_BAD)
    sockets::closesocket(objSocketNumber[slot]);
  objSocketNumber[slot] = 0;
  objSocketNode[slot] = 0;
}
