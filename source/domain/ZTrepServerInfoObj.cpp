// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTrepServerInfoObj.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "source/domain/ZTdiagCommTrace.h"
#include "source/domain/ZTnamedElement.h"
#include "source/support/ZTprintable.h"
#include "source/support/ZTsupport_procs.h"

namespace {

constexpr std::uint32_t kAllTables = 0;
constexpr std::uint32_t kAllOfTable = 0;
constexpr std::uint32_t kMostClasses = 251;
constexpr std::uint32_t kMostMetrics = 500;
constexpr std::uint32_t kMostInstances = 2048;

// Whether a reply's last index and the elements up to it can be used. All bits set: no element.
template <typename Element>
bool is_sound(const std::vector<Element>& elements, std::uint32_t last_index) {
  if (last_index == kNoIndex)
    return true;
  if (last_index >= elements.size())
    return false;
  return std::none_of(elements.begin(), elements.begin() + last_index + 1,
                      [](const Element& element) {
                        return element.Descriptor.NameLength >= sizeof element.Descriptor.fName ||
                               element.Descriptor.LabelLength >= sizeof element.Descriptor.Label;
                      });
}

template <typename Element>
std::vector<Element> first_elements(const std::vector<Element>& elements,
                                    std::uint32_t last_index) {
  return {elements.begin(), elements.begin() + static_cast<std::uint32_t>(last_index + 1)};
}

void trim_label(rep_sDescriptor& descriptor) {
  while (descriptor.LabelLength > 0 && descriptor.Label[descriptor.LabelLength - 1] == ' ')
    descriptor.Label[--descriptor.LabelLength] = '\0';
}

}  // namespace

struct zt_RepServerInfo_class::Scratch {
  std::vector<rep_sMetricDescriptor> metrics;
  std::vector<rep_sInstanceDescriptor> instances;
};

zt_RepServerInfo_class::zt_RepServerInfo_class(SystemKey system_key, const char* system_id,
                                               KnownSilence* silence)
    : RPC_MONITORED_SYSTEM_OBJ(system_key, system_id, silence), fErrorMsgParm(system_id) {
  const TracedOperation traced("zt_RepServerInfo_class::zt_RepServerInfo_class");
  if (!gTraceObj.ReturnDebugOn())
    return;
  gTraceObj.LogMsg("system_key = %d, system_id = %s", system_key, printable(system_id).c_str());
  for (std::size_t i = 0; i < objServerNames.size(); ++i) {
    gTraceObj.LogMsg("Server: Port [%s] %s", printable(objRepositoryEndPoints[i]).c_str(),
                     printable(objServerNames[i]).c_str());
    gTraceObj.LogMsg("Path  : %s", printable(objRepositoryPaths[i]).c_str());
  }
}

zt_RepServerInfo_class::~zt_RepServerInfo_class() {
  const TracedOperation traced("zt_RepServerInfo_class::~zt_RepServerInfo_class");
  DestroyView();
  DestroyFilter();
  if (fConnectedToServer)
    DisconnectFromServer();
}

int zt_RepServerInfo_class::Fail(const LostCall& call, const std::string& sought) {
  RecordFailedCall(call, sought);
  return 0;
}

bool zt_RepServerInfo_class::IsDataSource(const std::string& name) const {
  return std::find(objServerNames.begin(), objServerNames.end(), name) != objServerNames.end();
}

int zt_RepServerInfo_class::ConnectToServer(const char* data_source_name) {
  const TracedOperation traced("zt_RepServerInfo_class::ConnectToServer");
  gTraceObj.LogMsg("Data source name = %s", printable(data_source_name).c_str());
  if (fConnectedToServer) {
    DisconnectFromServer();
    fConnectedToServer = 0;
  }
  std::string name = data_source_name;
  if (!IsDataSource(name))
    Upshift(name);
  fDataSourceName = name;
  if (!IsDataSource(name)) {
    RecordMessage(messages::kUnknownDataSource);
    fErrorMsgParm = data_source_name;
    return 0;
  }
  gTraceObj.LogMsg("calling BindToServer");
  const std::string system_name = objSystemName;
  const error_status_t status = BindToServer(system_name.c_str(), name.c_str(), objServerKey);
  if (status != RPC_S_OK) {
    gTraceObj.LogMsg("BindToServer failed with %d", static_cast<std::int32_t>(status));
    RMSOHandleError(status);
    return 0;
  }
  fConnectedToServer = 1;
  return GetDataSourceInfo();
}

void zt_RepServerInfo_class::DisconnectFromServer() {
  const TracedOperation traced("zt_RepServerInfo_class::DisconnectFromServer");
  DestroyView();
  DestroyFilter();
  gTraceObj.LogMsg("calling UnbindToServer");
  UnbindFromServer();
  fDataSourceName.reset();
  fClasses.clear();
  fClasses.shrink_to_fit();
}

int zt_RepServerInfo_class::GetDataSourceInfo() {
  const TracedOperation traced("zt_RepServerInfo_class::GetDataSourceInfo");
  gTraceObj.LogMsg("fDataSourceName = %s", printable(fDataSourceName.value_or("")).c_str());
  gTraceObj.LogMsg("Calling zt_rep_LookupRepository");
  rep_sRepositoryDescriptor repository{};
  LostCall call = Ask("rep_LookupRepository", [&](error_status_t* status) {
    zt_rep_LookupRepository(fRPCinfo, &repository, status);
  });
  if (call.status != RPC_S_OK)
    return Fail(call);

  gTraceObj.LogMsg("calling zt_rep_LookupTable");
  std::vector<rep_sTableDescriptor> tables(kMostClasses);
  std::uint32_t lookup_handle = 0;
  std::uint32_t last_index = 0;
  call = Ask("rep_LookupTable", [&](error_status_t* status) {
    zt_rep_LookupTable(fRPCinfo, kAllTables, &lookup_handle, kMostClasses - 1, &last_index,
                       tables.data(), status);
  });
  if (call.status == RPC_S_OK && !is_sound(tables, last_index))
    call.status = RPC_X_BAD_STUB_DATA;
  if (call.status != RPC_S_OK)
    return Fail(call, "class in the data source " + fDataSourceName.value_or(""));
  tables = first_elements(tables, last_index);
  fLeftOut.clear();
  if (tables.size() == kMostClasses)
    fLeftOut.push_back({messages::kMoreClasses, std::to_string(kMostClasses)});
  gTraceObj.LogMsg("The number of classes is %d", static_cast<int>(tables.size()));

  fClasses = std::vector<zt_ClassInfo_struct>(tables.size());
  int loaded = 1;
  for (std::size_t i = 0; loaded != 0 && i < tables.size(); ++i) {
    gTraceObj.LogMsg("Class = %s", printable(tables[i].Descriptor.fName).c_str());
    fClasses[i].ClassInfo = tables[i];
    loaded = GetMetrics(fClasses[i]) != 0 && GetInstances(fClasses[i]) != 0;
  }
  fScratch.reset();
  return loaded;
}

zt_RepServerInfo_class::Scratch& zt_RepServerInfo_class::GetScratch() {
  if (!fScratch)
    fScratch = std::make_unique<Scratch>();
  return *fScratch;
}

int zt_RepServerInfo_class::GetMetrics(zt_ClassInfo_struct& class_info) {
  const TracedOperation traced("zt_RepServerInfo_class::GetMetrics");
  gTraceObj.LogMsg("Calling zt_rep_LookupMetric");
  auto& metrics = GetScratch().metrics;
  metrics.resize(kMostMetrics);
  std::uint32_t lookup_handle = 0;
  std::uint32_t last_index = 0;
  LostCall call = Ask("rep_LookupMetric", [&](error_status_t* status) {
    zt_rep_LookupMetric(fRPCinfo, class_info.ClassInfo.Descriptor.fId, kAllOfTable, &lookup_handle,
                        kMostMetrics - 1, &last_index, metrics.data(), status);
  });
  if (call.status == kRepNothingFound) {
    gTraceObj.LogMsg("zt_rep_LookupMetric found no metrics");
    return 2;
  }
  if (call.status == RPC_S_OK && !is_sound(metrics, last_index))
    call.status = RPC_X_BAD_STUB_DATA;
  if (call.status != RPC_S_OK)
    return Fail(call);
  const std::uint32_t count = last_index + 1;
  class_info.Metrics.Keep(std::span(metrics).first(count));
  class_info.NumMetrics = static_cast<int>(count);
  if (count == kMostMetrics)
    fLeftOut.push_back({messages::kMoreMetrics, std::to_string(kMostMetrics) +
                                                    " metrics of the class " +
                                                    class_info.ClassInfo.Descriptor.fName});
  gTraceObj.LogMsg("The number of metrics is %d", class_info.NumMetrics);
  return 1;
}

int zt_RepServerInfo_class::GetInstances(zt_ClassInfo_struct& class_info) {
  const TracedOperation traced("zt_RepServerInfo_class::GetInstances");
  if ((class_info.ClassInfo.Flags & kMultiInstance) == 0) {
    gTraceObj.LogMsg("Single-instance class");
    return 1;
  }
  gTraceObj.LogMsg("calling zt_rep_LookupInstance");
  auto& instances = GetScratch().instances;
  instances.resize(kMostInstances);
  std::uint32_t lookup_handle = 0;
  std::uint32_t last_index = 0;
  LostCall call = Ask("rep_LookupInstance", [&](error_status_t* status) {
    zt_rep_LookupInstance(fRPCinfo, class_info.ClassInfo.Descriptor.fId, kAllOfTable,
                          &lookup_handle, kMostInstances - 1, &last_index, instances.data(),
                          status);
  });
  if (call.status == kRepNothingFound) {
    gTraceObj.LogMsg("zt_rep_LookupInstance found no instances");
    return 2;
  }
  if (call.status == RPC_S_OK && !is_sound(instances, last_index))
    call.status = RPC_X_BAD_STUB_DATA;
  if (call.status != RPC_S_OK)
    return Fail(call);
  class_info.Instances = first_elements(instances, last_index);
  class_info.NumInstances = static_cast<int>(class_info.Instances.size());
  if (class_info.Instances.size() == kMostInstances)
    fLeftOut.push_back({messages::kMoreInstances, std::to_string(kMostInstances) +
                                                      " instances of the class " +
                                                      class_info.ClassInfo.Descriptor.fName});
  for (rep_sInstanceDescriptor& instance : class_info.Instances)
    trim_label(instance.Descriptor);
  gTraceObj.LogMsg("The number of instances is %d", class_info.NumInstances);
  return 1;
}

int zt_RepServerInfo_class::ValidClassName(const char* class_name) {
  const TracedOperation traced("zt_RepServerInfo_class::ValidClassName");
  gTraceObj.LogMsg("class_name = %s", printable(class_name).c_str());
  int index = find_named(fClasses, class_name);
  if (index < 0 || FindClass(index)->NumMetrics == 0) {
    RecordMessage(messages::kUnknownClass);
    fErrorMsgParm = class_name;
    index = -1;
  }
  gTraceObj.LogMsg("Index = %d", index);
  return index;
}

void zt_RepServerInfo_class::DisplayErrors() {
  std::fflush(stdout);
  std::fflush(stderr);
  if (objErrorMessageNum != MessageId::kNoMessage)
    show_message({objErrorMessageSet, objErrorMessageNum}, fErrorMsgParm);
  if (objRepErrorMessageNum != MessageId::kNoMessage) {
    std::string cause = objErrorCause;
    while (!cause.empty() && (cause.back() == '\n' || cause.back() == '\r'))
      cause.pop_back();
    show_message({messages::kRepositorySet, objRepErrorMessageNum}, cause);
  }
  // The message whose parameter is ours holds all of it.
  if (ReturnFailure() && objRepErrorMessageNum != messages::kNothingFound.number)
    show_message({messages::kCommandSet, messages::kDetails}, ReturnFailure()->sentence());
  // A later check on this connection must not show an old failure again.
  ForgetMessages();
  fErrorMsgParm = objSystemID;
}

const char* zt_RepServerInfo_class::ReturnDataSourceName() const {
  return fDataSourceName ? fDataSourceName->c_str() : nullptr;
}

const zt_RepServerInfo_class::zt_ClassInfo_struct* zt_RepServerInfo_class::FindClass(
    int class_index) const {
  const bool exists = class_index >= 0 && class_index < ReturnNumClasses();
  return exists ? &fClasses[static_cast<std::size_t>(class_index)] : nullptr;
}

int zt_RepServerInfo_class::ReturnNumMetrics(int class_index) const {
  const auto* found = FindClass(class_index);
  return found != nullptr ? found->NumMetrics : -1;
}

const rep_sMetricDescriptor* zt_RepServerInfo_class::ReturnMetrics(int class_index) const {
  const auto* found = FindClass(class_index);
  return found != nullptr ? found->Metrics.Unpacked() : nullptr;
}

const char* zt_RepServerInfo_class::ReturnClassName(int class_index) const {
  const auto* found = FindClass(class_index);
  return found != nullptr ? found->ClassInfo.Descriptor.fName : nullptr;
}

std::int32_t zt_RepServerInfo_class::ReturnLastX(int class_index) const {
  return FindClass(class_index)->ClassInfo.LastX;
}
