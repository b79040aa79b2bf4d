// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTrpcSystemObj.h"

#include <algorithm>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <span>

#include "platform/sys/sockets.h"
#include "present/util/util.h"
#include "shared/dce/hublnk_client.h"
#include "source/domain/ZTmapperBinding.h"
#include "source/support/ZTformat.h"
#include "source/support/ZTglobal.h"

int RPC_MONITORED_SYSTEM_OBJ::objSocketCount = 0;
std::array<int, 50> RPC_MONITORED_SYSTEM_OBJ::objSocketNumber;
std::array<int, 50> RPC_MONITORED_SYSTEM_OBJ::objSocketUseCount;
std::array<SystemKey, 50> RPC_MONITORED_SYSTEM_OBJ::objSocketNode;

namespace {

constexpr int kConnectionSet = 11;
constexpr int kTableFull = 4;
constexpr int kProbeFailed = 31;
constexpr int kLookupFailed = 32;
constexpr int kNoServer = 33;
constexpr int kQueryFailed = 34;
constexpr int kNoSuchServer = 43;
constexpr int kRepositorySet = 13;
constexpr int kTooOldMessage = 300;

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

// The text of a field that a server filled.
template <std::size_t kSize>
std::string text_of(const char (&field)[kSize]) {
  return std::string(field, strnlen(field, kSize));
}

// Why a map lists no live server, for the message that says so.
std::string cause_of_absence(const ptc_LookupLosses& losses) {
  if (losses.server != RPC_S_OK)
    return "a registered server does not answer. " + zt_status_text(losses.server);
  if (losses.mapper != RPC_S_OK)
    return "the endpoint mapper cannot be asked. " + zt_status_text(losses.mapper);
  return "no server is registered.";
}

}  // namespace

std::string zt_status_text(error_status_t status) {
  char text[DCE_C_ERROR_STRING_LEN] = {};
  if (DceErrorInqTextA(status, text) != RPC_S_OK)
    return format_text("Couldn't get DCE message text for status %d.",
                       static_cast<std::int32_t>(status));
  return text;
}

void zt_rpc_log(int enter, const char* operation, const zt_RPCinfo_t& RPCinfo,
                error_status_t status) {
  DateTime now;
  now.SetTimeNow();
  const std::string text = zt_status_text(status);
  const char* time = now.FmtTime();
  const char* date = now.FmtMdy();
  const auto number = [](const void* handle) { return reinterpret_cast<std::uintptr_t>(handle); };
  const std::string line =
      format_text("%s %s %s %-25s status:0x%x text:%s v.%d --hd:0x%08" PRIxPTR " vc:0x%08" PRIxPTR
                  " fc:0x%08" PRIxPTR "--",
                  date, time, enter ? "enter" : "exit ", operation, status, text.c_str(),
                  static_cast<int>(RPCinfo.version), number(RPCinfo.rpc_handle),
                  number(RPCinfo.view_context), number(RPCinfo.filter_context));
  std::fprintf(stderr, "RPC_TRACE: %s\n", line.c_str());
  std::fflush(stderr);
}

void zt_apply_broker_limits() {
  hublnk_Limits limits;
  if (const auto level = rpc::silence_of_level(zt_com_timeout)) {
    limits.connect = std::min(*level, sockets::kLongestConnect);
    limits.reply = *level;
  }
  hublnk_SetLimits(limits);
}

// The records of an endpoint query, released when the list goes.
class RPC_MONITORED_SYSTEM_OBJ::ServerList {
 public:
  ServerList() : records_(kMostServers) {}
  ~ServerList() { release(); }
  ServerList(const ServerList&) = delete;
  ServerList& operator=(const ServerList&) = delete;

  error_status_t release() {
    error_status_t status = RPC_S_OK;
    ptc_rpc_clnt_ctx_free(records_.data(), count_, &status);
    count_ = 0;
    return status;
  }

  // Queries the map behind the binding; `losses` as ptc_rpc_ep_lookup has them.
  error_status_t query(RPC_BINDING_HANDLE mapper, const rpc_if_id_t& interface_id,
                       ptc_LookupLosses* losses) {
    std::uint32_t count = static_cast<std::uint32_t>(records_.size());
    error_status_t status = RPC_S_OK;
    ptc_rpc_ep_lookup(mapper, &interface_id, nullptr, records_.data(), &count, &status, losses);
    if (status == RPC_S_OK)
      count_ = count;
    return status;
  }

  std::span<ptc_RpcClientContextStruct> found() { return std::span(records_).first(count_); }

 private:
  std::vector<ptc_RpcClientContextStruct> records_;
  std::uint32_t count_ = 0;
};

RPC_MONITORED_SYSTEM_OBJ::RPC_MONITORED_SYSTEM_OBJ(SystemKey system_key, const char* system_name)
    : BASIC_CONNECTED_SYSTEM_OBJ(system_key, system_name, 0) {
  if (system_key == 0)
    Fatal("source/domain/ZTrpcSystemObj", __LINE__,
          "Must have a valid system_key RPC_MONITORED_SYSTEM constructor");
  InitializeSockets();
  objSocketIndex = AllocateSocket(system_key, 0);
  if (objSocketIndex < 0) {
    RecordMessage(kConnectionSet, objSocketIndex == kNoSlot ? kTableFull : kProbeFailed);
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
  ServerList servers;
  if (const error_status_t status = FindServers(system_id, servers); status != RPC_S_OK)
    return status;
  ForgetServers();

  const auto found = servers.found();
  std::size_t selected = found.size();
  for (std::size_t i = 0; i < found.size(); ++i) {
    if (const error_status_t status = AppendServer(system_id, found[i]); status != RPC_S_OK)
      return status;
    if (selected != found.size())
      continue;
    if (server_id != nullptr ? objServerNames[i] == server_id
                             : server_key >= 0 && objServerKeys[i] == server_key)
      selected = i;
  }
  if (server_id == nullptr && server_key <= 0)
    selected = 0;
  if (selected == found.size()) {
    RecordMessage(kConnectionSet, kNoSuchServer);
    return kRepNothingFound;
  }

  objServerKey = objServerKeys[selected];
  objServerName = objServerNames[selected];
  objServerFullName = objServerFullNames[selected];
  if (server_id != nullptr || server_key != 0 || found.size() == 1) {
    if (const error_status_t status = KeepBinding(found[selected]); status != RPC_S_OK)
      return status;
  }
  return servers.release();
}

// The version that the agent's location broker speaks.
error_status_t RPC_MONITORED_SYSTEM_OBJ::NegotiateVersion(const char* system_id,
                                                          std::uint16_t* major) {
  zt_apply_broker_limits();
  sockets::Socket broker = sockets::kInvalidSocket;
  std::uint16_t minor = 0;
  std::uint32_t status = 0;
  hublnk_Open(system_id, &broker, &status);
  if (status == 0) {
    hublnk_Negotiate(broker, major, &minor, &status);
    std::uint32_t closed = 0;
    hublnk_Close(broker, &closed);
    status = status != 0 ? status : closed;
  }
  if (status == 0)
    return RPC_S_OK;
  objErrorCause = std::to_string(static_cast<std::int32_t>(status));
  return kLocationBrokerFailed;
}

// The live repository servers, at least one, when the agent is new enough.
error_status_t RPC_MONITORED_SYSTEM_OBJ::FindServers(const char* system_id, ServerList& servers) {
  std::uint16_t major = 0;
  error_status_t status = NegotiateVersion(system_id, &major);
  if (status != RPC_S_OK)
    return status;

  MapperBinding mapper;
  error_status_t released = RPC_S_OK;
  status = mapper.bind(system_id, &released);
  if (status != RPC_S_OK || released != RPC_S_OK)
    return status != RPC_S_OK ? status : released;
  if (major < kLeastAgentVersion) {
    RecordMessage(kRepositorySet, kTooOldMessage);
    return kAgentTooOld;
  }
  rpc_if_id_t interface_id{};
  status = RpcIfInqId(zt_v2_rep_v2_0_c_ifspec, &interface_id);
  if (status != RPC_S_OK)
    return status;
  fRPCinfo.version = ZT_RPC_V2;

  RpcMgmtSetComTimeout(mapper.get(), zt_com_timeout);
  ptc_LookupLosses losses;
  status = servers.query(mapper.get(), interface_id, &losses);
  if (status != RPC_S_OK) {
    RecordMessage(kConnectionSet, kQueryFailed);
    return status;
  }
  fSearchUnfinished = losses.unfinished;
  if (servers.found().empty()) {
    RecordMessage(kConnectionSet, kNoServer);
    objErrorCause = cause_of_absence(losses);
    return kRepNothingFound;
  }
  return RPC_S_OK;
}

// Asks a server who it is and appends it to the lists.
error_status_t RPC_MONITORED_SYSTEM_OBJ::AppendServer(const char* system_id,
                                                      ptc_RpcClientContextStruct& server) {
  zt_RPCinfo_t record;
  record.rpc_handle = server.fBindingHandle;
  record.version = fRPCinfo.version;
  RpcMgmtSetComTimeout(record.rpc_handle, zt_com_timeout);
  rep_sRepositoryDescriptor repository{};
  error_status_t status = RPC_S_OK;
  zt_rep_LookupRepository(record, &repository, &status);
  if (status != RPC_S_OK) {
    RecordMessage(kConnectionSet, kLookupFailed);
    return status;
  }
  const rep_sDescriptor& descriptor = repository.Descriptor;
  const std::string name =
      descriptor.LabelLength != 0 ? text_of(descriptor.Label) : text_of(descriptor.fName);
  char* endpoint = nullptr;
  RpcStringBindingParseA(server.fStringBinding, nullptr, nullptr, nullptr, &endpoint, nullptr);
  objServerKeys.push_back(static_cast<SystemKey>(descriptor.fId));
  objServerNames.push_back(name);
  objServerFullNames.push_back(std::string(system_id) + ":" + name);
  objRepositoryPaths.push_back(text_of(repository.PathName));
  objRepositoryEndPoints.push_back(endpoint != nullptr ? endpoint : "");
  RpcStringFreeA(&endpoint);
  ++objServerCount;
  return RPC_S_OK;
}

error_status_t RPC_MONITORED_SYSTEM_OBJ::KeepBinding(const ptc_RpcClientContextStruct& server) {
  UnbindFromServer();
  error_status_t status = RpcBindingCopy(server.fBindingHandle, &fRPCinfo.rpc_handle);
  if (status != RPC_S_OK)
    return status;
  status = RpcBindingSetObject(fRPCinfo.rpc_handle, &server.fObjectUuid);
  if (status != RPC_S_OK) {
    UnbindFromServer();
    return status;
  }
  RpcMgmtSetComTimeout(fRPCinfo.rpc_handle, zt_com_timeout);
  return RPC_S_OK;
}

void RPC_MONITORED_SYSTEM_OBJ::ForgetServers() {
  objServerKeys.clear();
  objServerNames.clear();
  objServerFullNames.clear();
  objRepositoryPaths.clear();
  objRepositoryEndPoints.clear();
  objServerCount = 0;
}

error_status_t RPC_MONITORED_SYSTEM_OBJ::UnbindFromServer() {
  if (fRPCinfo.rpc_handle == nullptr)
    return RPC_S_OK;
  const error_status_t status = RpcBindingFree(&fRPCinfo.rpc_handle);
  fRPCinfo.rpc_handle = nullptr;
  return status;
}

void RPC_MONITORED_SYSTEM_OBJ::RecordMessage(int set, int number) {
  objErrorMessageSet = set;
  objErrorMessageNum = number;
}

void RPC_MONITORED_SYSTEM_OBJ::RMSOHandleError(error_status_t status) {
  constexpr int kRuntimeMessage = 90;
  objStatus = status;
  if (objErrorMessageSet == kNoMessage)
    RecordMessage(kConnectionSet, kLookupFailed);
  const int message = repository_message(status);
  objRepErrorMessageNum = message != 0 ? message : kRuntimeMessage;
  if (message == 0)
    objErrorCause = zt_status_text(status);
  else if (status == kRepNothingFound && objErrorCause.empty())
    objErrorCause = zt_status_text(RPC_X_NO_MORE_ENTRIES);
}

int RPC_MONITORED_SYSTEM_OBJ::ReturnSocketFile() {
  return objSocketIndex < 0 ? -1 : objSocketNumber[static_cast<std::size_t>(objSocketIndex)];
}

void RPC_MONITORED_SYSTEM_OBJ::ConnectionLost() {
  objValidObject = 0;
  objConnectionStatus = CONNECTION_BAD;
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

  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = static_cast<std::uint32_t>(system_key);
  address.sin_port = hublnk_Port();
  const sockets::Socket probe = sockets::socket(AF_INET, SOCK_STREAM, 0);
  if (probe == sockets::kInvalidSocket)
    return kProbeRefused;
  const auto limit = rpc::silence_of_level(zt_com_timeout).value_or(sockets::kLongestConnect);
  if (sockets::connect(probe, address, limit) != 0) {
    objConnectError = sockets::WSAGetLastError();
    sockets::closesocket(probe);
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
