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

// The element's string binding, or the numbers of its protocols where they give none.
std::string place_of(const RpcEndpointElement& element) {
  char* text = nullptr;
  if (element.binding != nullptr &&
      RpcBindingToStringBindingA(element.binding, &text) == RPC_S_OK) {
    std::string place = text;
    RpcStringFreeA(&text);
    return place;
  }
  std::string place = "protocol floors";
  for (const unsigned floor : element.floors)
    place += " " + std::to_string(floor);
  return place;
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
  if (fRepServerInfoObj->ReturnSearchUnfinished())
    show_message({messages::kCommandSet, messages::kSearchUnfinished}, fSystemName);
  if (fRepServerInfoObj->ReturnServersLeftOut())
    show_message({messages::kCommandSet, messages::kMoreServers}, std::to_string(names.size()));
  if (const auto missing = fRepServerInfoObj->ReturnMissing()) {
    show_message({messages::kCommandSet, messages::kServersMissing});
    show_message({messages::kCommandSet, messages::kDetails}, missing->sentence());
  }
  return ReportAlarmServer();
}

int zt_DiagComm_class::ReportAlarmServer() {
  zt_RPCAlarmNoticeLink_class alarms(&fSilence);
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
  if (ping != 0 || alarms.ReturnFailure())
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
  const int whole = PrintEndPointMap(count);
  if (whole && (count != 0 || std::ferror(stdout) != 0))
    return 1;
  fErrorNum = messages::kListingFailed;
  fErrorParm = count == 0 ? "element" : "further element";
  if (whole) {
    fErrorNum2 = messages::kDetails;
    fErrorParm2 = ZTagentRoad(fSystemKey, {}).mapper_address().text() +
                  ": the endpoint map was read to its end. Start the agent.";
  }
  return 0;
}

// Leaves the messages of a failed inquiry, and the failure itself for the line behind them.
int zt_DiagComm_class::InquiryFailed(int message, RPC_STATUS status, bool with_status) {
  const RoadSettings settings{.timeout_level = zt_com_timeout, .silence = &fSilence};
  fFailure = ZTagentRoad(fSystemKey, settings).mapper_failure({status, RpcLastCallOutcome()});
  fErrorNum2 = message;
  if (with_status) {
    fErrorParm2 = std::to_string(static_cast<std::int32_t>(status));
    fRPCErrorStatus = status;
  }
  return 0;
}

int zt_DiagComm_class::PrintEndPointMap(std::uint32_t& element_count) {
  const TracedOperation traced("zt_DiagComm_class::PrintEndPointMap");
  fErrorNum = 0;
  element_count = 0;
  char address[kKeyTextSize];
  SystemKeyToIPAddr(fSystemKey, address);
  MapperBinding mapper;
  error_status_t released = RPC_S_OK;
  RPC_STATUS status = mapper.bind(address, &released);
  if (status != RPC_S_OK)
    return InquiryFailed(messages::kNoBindingToMapper, status);
  RpcMgmtSetComTimeout(mapper.get(), zt_com_timeout);
  const RoadSettings settings{.timeout_level = zt_com_timeout, .silence = &fSilence};
  const BriefWait brief = ZTagentRoad(fSystemKey, settings).wait_for_mapper();
  RPC_EP_INQ_HANDLE inquiry = nullptr;
  status = RpcMgmtEpEltInqBegin(mapper.get(), RPC_C_EP_ALL_ELTS, nullptr, 0, nullptr, &inquiry);
  if (status != RPC_S_OK)
    return InquiryFailed(messages::kInquiryCannotBegin, status);
  const int result = PrintElements(inquiry, element_count);
  const std::uint32_t unreadable = RpcMgmtEpEltInqUnreadable(inquiry);
  RpcMgmtEpEltInqDone(&inquiry);
  std::fflush(stdout);
  if (unreadable != 0)
    show_message({messages::kCommandSet, messages::kUnreadableElements},
                 std::to_string(unreadable));
  return result;
}

int zt_DiagComm_class::PrintElements(RPC_EP_INQ_HANDLE inquiry, std::uint32_t& element_count) {
  while (element_count < kMostElements) {
    if (std::ferror(stdout) != 0)
      return 1;  // nobody reads on; the end of the program says so
    RpcEndpointElement element;
    const RPC_STATUS status = RpcMgmtEpEltInqNextAny(inquiry, &element);
    if (status != RPC_S_OK)
      return EndOfElements(status);
    print_uuid("  <object>         ", element.object);
    print_uuid("  <interface id>   ", element.interface_id.uuid);
    std::printf("  <string binding> %s\n", printable(place_of(element)).c_str());
    std::printf("  <annotation>     %s\n\n", printable(element.annotation).c_str());
    RpcBindingFree(&element.binding);
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
      return InquiryFailed(messages::kMapperUnknown, status, false);
    case RPC_S_COMM_FAILURE:
      return InquiryFailed(messages::kMapperFailed, status, false);
    default:
      return InquiryFailed(messages::kElementFailed, status);
  }
}
