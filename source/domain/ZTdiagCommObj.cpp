// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTdiagCommObj.h"

#include <algorithm>
#include <cstdio>

#include "platform/sys/sockets.h"
#include "source/domain/ZTdiagCommTrace.h"
#include "source/domain/ZTenvInit.h"

namespace {

void show(int number, std::string_view parameter) {
  show_message({messages::kCommandSet, number}, parameter);
}

}  // namespace

std::string list_of(const char* singular, const char* plural,
                    const std::vector<std::string>& names) {
  constexpr std::size_t kMost = 8;
  if (names.empty())
    return std::string("no ") + singular;
  std::string text = std::string("the ") + (names.size() == 1 ? singular : plural);
  for (std::size_t i = 0; i < std::min(kMost, names.size()); ++i)
    text += (i == 0 ? " " : ", ") + names[i];
  if (names.size() > kMost)
    text += " and " + std::to_string(names.size() - kMost) + " more";
  return text;
}

const char* error_text(unsigned int status) {
  static std::string error_string;
  error_string = zt_status_text(status);
  return error_string.c_str();
}

zt_DiagComm_class::zt_DiagComm_class() {
  const TracedOperation traced("zt_DiagComm_class::zt_DiagComm_class");
  for (const auto reader : {Init_ZT_RPC_NOISE, Init_ZT_RPC_TIMEOUT, Init_ZT_TRACE_INTERNAL}) {
    if (reader(fErrorParm, fErrorNum) != 0)
      continue;
    DisplayErrors();
    std::fputs("\n", stderr);
    std::fflush(stderr);
  }
  if (gTraceObj.ReturnDebugOn())
    zt_trace_level = 1;
}

zt_DiagComm_class::~zt_DiagComm_class() {
  const TracedOperation traced("zt_DiagComm_class::~zt_DiagComm_class");
  DisconnectFromSystem();
}

void zt_DiagComm_class::DisplayErrors() {
  if (fErrorNum != 0) {
    show(fErrorNum, fErrorParm);
    fErrorNum = 0;
  } else if (fRepServerInfoObj) {
    fRepServerInfoObj->DisplayErrors();
  }
  if (fErrorNum2 != 0) {
    show(fErrorNum2, fErrorParm2);
    fErrorNum2 = 0;
  }
  if (fRPCErrorStatus != 0) {
    show(messages::kRuntimeText, error_text(fRPCErrorStatus));
    fRPCErrorStatus = 0;
  }
  if (fFailure) {
    show(messages::kDetails, fFailure->sentence());
    fFailure.reset();
  }
  std::fflush(stderr);
}

void zt_DiagComm_class::ExplainData(const std::string& text) {
  fErrorNum2 = messages::kDetails;
  fErrorParm2 = fRepServerInfoObj->ReturnServerPlace() + ": the data source " +
                fDataSourceName.value_or("") + " has " + text + ".";
}

void zt_DiagComm_class::ExplainSources() {
  char address[kKeyTextSize];
  SystemKeyToIPAddr(fSystemKey, address);
  fErrorNum2 = messages::kDetails;
  fErrorParm2 = std::string(address) + ": the servers that answer have " +
                list_of("data source", "data sources", fRepServerInfoObj->ReturnDataSourceNames()) +
                ".";
  if (const auto missing = fRepServerInfoObj->ReturnMissing())
    fErrorParm2 += " But " + missing->sentence();
}

void zt_DiagComm_class::DisplayNameNotes() {
  if (sockets::name_server_silent() && !fNameServerReported) {
    fNameServerReported = true;
    show(messages::kNameServerSilent, {});
  }
  std::string further;
  for (const SystemKey key : fTargetKeys) {
    char address[kKeyTextSize];
    SystemKeyToIPAddr(key, address);
    if (key != fSystemKey)
      further += (further.empty() ? "" : ", ") + std::string(address);
  }
  fTargetKeys.clear();
  if (!further.empty())
    show(messages::kMoreAddresses, further);
}

int zt_DiagComm_class::GetLocalSystem(char* name, SystemKey& key) {
  const TracedOperation traced("zt_DiagComm_class::GetLocalSystem");
  if (GetLocalSystemKey(key) != 0) {
    fErrorNum = messages::kNoLocalKey;
    return 0;
  }
  fSystemKey = key;
  if (SystemKeyToARPAName(key, name, kHostNameSize - 1) != 0) {
    char address[kKeyTextSize];
    SystemKeyToIPAddr(key, address);
    fErrorNum = messages::kNoLocalName;
    fErrorParm = address;
    return 0;
  }
  return 1;
}

int zt_DiagComm_class::ValidSystemName(const char* name) {
  const TracedOperation traced("zt_DiagComm_class::ValidSystemName");
  const std::string given = name;  // the name may be our own, which changes below
  if (fConnectedToSystem)
    DisconnectFromSystem();
  if (fTargetPinned && given == fSystemName)
    return 1;
  fTargetPinned = false;
  char official[kHostNameSize] = "";
  if (given.empty()) {
    const int found = GetLocalSystem(official, fSystemKey);
    fSystemName = official;
    fTargetPinned = found != 0;
    return found;
  }
  fSystemName = given;
  // The conversion cuts trailing blanks in place, as the target's name is to be.
  const int status = ARPANameToSystemKeys(fSystemName.data(), fSystemKey, fTargetKeys);
  fSystemName.resize(std::char_traits<char>::length(fSystemName.c_str()));
  if (status != 0 || fSystemKey == kNoSystemKey) {
    fTargetKeys.clear();
    const RoadFailure failure = road_name_failure(given);
    fErrorNum = failure.message.number;
    fErrorParm = failure.parameter;
    return 0;
  }
  if (SystemKeyToARPAName(fSystemKey, official, kHostNameSize) == 0)
    fSystemName = official;
  fTargetPinned = true;
  return 1;
}

int zt_DiagComm_class::ConnectToSystem(const char* system_name) {
  const TracedOperation traced("zt_DiagComm_class::ConnectToSystem");
  const std::string name = system_name;
  if (fConnectedToSystem)
    DisconnectFromSystem();
  if (!ValidSystemName(name.c_str()))
    return 0;
  fRepServerInfoObj.reset();
  fRepServerInfoObj =
      std::make_unique<zt_RepServerInfo_class>(fSystemKey, fSystemName.c_str(), &fSilence);
  if (fRepServerInfoObj->ValidObj()) {
    fConnectedToSystem = 1;
    return 1;
  }
  const int connect_error = fRepServerInfoObj->ReturnConnectError();
  if (connect_error == sockets::WSAECONNREFUSED) {
    gTraceObj.LogMsg("zt_RepServerInfo_class returned ConnectError = %d", connect_error);
    fErrorNum = messages::kConnectionRefused;
  } else if (connect_error != 0) {
    gTraceObj.LogMsg("zt_RepServerInfo_class returned ConnectError = %d", connect_error);
    fErrorNum = messages::kSystemUnreachable;
    fErrorNum2 = messages::kSocketError;
    fErrorParm2 = std::to_string(connect_error);
  } else {
    const int last_error = fRepServerInfoObj->ReturnLastError();
    gTraceObj.LogMsg("zt_RepServerInfo_class returned LastError = %d", last_error);
    if (last_error == static_cast<int>(kAgentTooOld))
      fErrorNum = messages::kSystemTooOld;
  }
  // What is told with a message of ours ends with the client's failure.
  if (fErrorNum != 0)
    fFailure = fRepServerInfoObj->ReturnFailure();
  return 0;
}

void zt_DiagComm_class::DisconnectFromSystem() {
  const TracedOperation traced("zt_DiagComm_class::DisconnectFromSystem");
  DisconnectFromServer();
  if (fConnectedToSystem) {
    fConnectedToSystem = 0;
    fRepServerInfoObj.reset();
  }
}

int zt_DiagComm_class::FindClass(const char* class_name) {
  const zt_RepServerInfo_class& client = *fRepServerInfoObj;
  const int found = fRepServerInfoObj->ValidClassName(class_name);
  if (found < 0) {
    std::vector<std::string> names;
    names.reserve(static_cast<std::size_t>(client.ReturnNumClasses()));
    for (int i = 0; i < client.ReturnNumClasses(); ++i)
      names.emplace_back(client.ReturnClassName(i));
    ExplainData(list_of("class", "classes", names));
  }
  return found;
}

int zt_DiagComm_class::ConnectToServer(const char* data_source_name) {
  const TracedOperation traced("zt_DiagComm_class::ConnectToServer");
  fDataSourceName = data_source_name;
  if (!fRepServerInfoObj->ConnectToServer(data_source_name)) {
    if (fRepServerInfoObj->ReturnLastError() == messages::kUnknownDataSource.number)
      ExplainSources();
    return 0;
  }
  fDataSourceName = fRepServerInfoObj->ReturnDataSourceName();
  return 1;
}

void zt_DiagComm_class::DisconnectFromServer() {
  const TracedOperation traced("zt_DiagComm_class::DisconnectFromServer");
  if (!fConnectedToServer)
    return;
  fConnectedToServer = 0;
  fDataSourceName.reset();
  fRepServerInfoObj->DisconnectFromServer();
}
