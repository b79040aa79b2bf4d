// SPDX-License-Identifier: Apache-2.0
// The registered-server check and the endpoint listing.

#include <cstdio>

#include "source/domain/ZTalarmNotifyObj.h"
#include "source/domain/ZTdiagCommObj.h"
#include "source/domain/ZTdiagCommTrace.h"
#include "source/domain/ZTmapperBinding.h"
#include "source/support/ZTglobal.h"
#include "source/support/ZTprintable.h"

namespace {

constexpr int kListingFailed = 107;
constexpr int kInquiryCannotBegin = 115;
constexpr int kElementFailed = 116;
constexpr int kNoMapperBinding = 117;
constexpr int kMapperUnknown = 118;
constexpr int kMapperSilent = 121;
constexpr int kSearchUnfinished = 123;

// Elements listed at most, so that a mapper which never ends its map cannot hold us.
constexpr std::uint32_t kMostElements = 65536;

void print_uuid(const char* heading, const uuid_t& uuid) {
  RPC_STATUS status = RPC_S_OK;
  if (UuidIsNil(&uuid, &status)) {
    std::printf("%snil\n", heading);
    return;
  }
  char* text = nullptr;
  UuidToStringA(&uuid, &text);
  std::printf("%s%s\n", heading, text != nullptr ? text : "");
  RpcStringFreeA(&text);
}

std::string printable_or_empty(const char* text) {
  return text != nullptr ? printable(text) : "";
}

}  // namespace

int zt_DiagComm_class::Breakout() {
  const TracedOperation traced("zt_DiagComm_class::Breakout");
  if (!ConnectToSystem(fSystemName.c_str()))
    return 0;
  const auto& names = fRepServerInfoObj->ReturnDataSourceNames();
  const auto& endpoints = fRepServerInfoObj->ReturnRepositoryEndPoints();
  const auto& paths = fRepServerInfoObj->ReturnRepositoryPaths();
  std::printf("Found registered rep_servers at:\n\n");
  for (std::size_t i = 0; i < names.size(); ++i) {
    std::printf("  Server: Port[%s] - %s\n", printable(endpoints[i]).c_str(),
                printable(names[i]).c_str());
    std::printf("  Path  : %s\n\n", printable(paths[i]).c_str());
  }
  std::fflush(stdout);
  if (fRepServerInfoObj->ReturnSearchUnfinished()) {
    fErrorNum = kSearchUnfinished;
    fErrorParm = fSystemName;
    DisplayErrors();
  }
  return ReportAlarmServer();
}

int zt_DiagComm_class::ReportAlarmServer() {
  zt_RPCAlarmNoticeLink_class alarms;
  unsigned char registered = 0;
  const int ping = alarms.PingAlmServer(fSystemKey, registered);
  if (registered == 1) {
    std::printf("Found almserver registered at:\n\n  Port[%s]\n",
                printable_or_empty(alarms.ReturnEndPoint()).c_str());
  } else if (ping == 0) {
    std::printf("No almserver registered.\n");
  }
  if (registered == 1 || ping == 0)
    std::printf("\n");
  std::fflush(stdout);
  // A server that is registered and dead would otherwise look like one that was never there.
  if (ping != 0 || alarms.ReturnUnreachable())
    alarms.DisplayErrors();
  std::fflush(stderr);
  return ping == 0;
}

int zt_DiagComm_class::ListAllRegistered() {
  const TracedOperation traced("zt_DiagComm_class::ListAllRegistered");
  if (!ValidSystemName(fSystemName.c_str()))
    return 0;
  std::printf("Elements of the endpoint map or location broker.\n\n");
  std::fflush(stdout);
  std::uint32_t count = 0;
  if (!PrintEndPointMap(count) || count == 0) {
    fErrorNum = kListingFailed;
    return 0;
  }
  return 1;
}

int zt_DiagComm_class::InquiryFailed(int message, RPC_STATUS status) {
  fErrorNum2 = message;
  fErrorParm2 = std::to_string(static_cast<std::int32_t>(status));
  fRPCErrorStatus = status;
  return 0;
}

int zt_DiagComm_class::PrintEndPointMap(std::uint32_t& element_count) {
  const TracedOperation traced("zt_DiagComm_class::PrintEndPointMap");
  fErrorNum = 0;
  element_count = 0;
  MapperBinding mapper;
  error_status_t released = RPC_S_OK;
  RPC_STATUS status = mapper.bind(fSystemName.c_str(), &released);
  if (status != RPC_S_OK)
    return InquiryFailed(kNoMapperBinding, status);
  RpcMgmtSetComTimeout(mapper.get(), zt_com_timeout);
  RPC_EP_INQ_HANDLE inquiry = nullptr;
  status = RpcMgmtEpEltInqBegin(mapper.get(), RPC_C_EP_ALL_ELTS, nullptr, 0, nullptr, &inquiry);
  if (status != RPC_S_OK)
    return InquiryFailed(kInquiryCannotBegin, status);
  const int result = PrintElements(inquiry, element_count);
  RpcMgmtEpEltInqDone(&inquiry);
  std::fflush(stdout);
  return result;
}

int zt_DiagComm_class::PrintElements(RPC_EP_INQ_HANDLE inquiry, std::uint32_t& element_count) {
  while (element_count < kMostElements) {
    rpc_if_id_t interface_id{};
    RPC_BINDING_HANDLE binding = nullptr;
    uuid_t object{};
    char* annotation = nullptr;
    const RPC_STATUS status =
        RpcMgmtEpEltInqNextA(inquiry, &interface_id, &binding, &object, &annotation);
    if (status != RPC_S_OK)
      return EndOfElements(status);
    char* text = nullptr;
    RpcBindingToStringBindingA(binding, &text);
    print_uuid("  <object>         ", object);
    print_uuid("  <interface id>   ", interface_id.uuid);
    std::printf("  <string binding> %s\n", printable_or_empty(text).c_str());
    std::printf("  <annotation>     %s\n\n", printable_or_empty(annotation).c_str());
    RpcBindingFree(&binding);
    RpcStringFreeA(&annotation);
    RpcStringFreeA(&text);
    ++element_count;
  }
  return EndOfElements(RPC_S_PROTOCOL_ERROR);
}

int zt_DiagComm_class::EndOfElements(RPC_STATUS status) {
  switch (status) {
    case RPC_X_NO_MORE_ENTRIES:
    case RPC_S_CANNOT_SUPPORT:
      return 1;
    case RPC_S_UNKNOWN_IF:
      fErrorNum2 = kMapperUnknown;
      return 0;
    case RPC_S_COMM_FAILURE:
      fErrorNum2 = kMapperSilent;
      return 0;
    default:
      return InquiryFailed(kElementFailed, status);
  }
}
