// SPDX-License-Identifier: Apache-2.0
// The data query: the last hour of one class of a data source, as a table.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "present/util/util.h"
#include "source/domain/ZTdataTable.h"
#include "source/domain/ZTdiagCommObj.h"
#include "source/domain/ZTdiagCommTrace.h"
#include "source/support/ZTprintable.h"

namespace {

constexpr const char* kCollectorSource = "TAMBO";
constexpr const char* kCollectorClass = "GLOBAL";
constexpr const char* kCollectorMetrics[] = {"GBL_CPU_TOTAL_UTIL", "GBL_PRI_QUEUE", "GBL_NUM_DISK"};
constexpr int kMostMetrics = 3;
constexpr int kFirstClass = 0;
constexpr std::uint32_t kLastHour = 3600;  // seconds

}  // namespace

int zt_DiagComm_class::QueryServer(const char* data_source_name) {
  const TracedOperation traced("zt_DiagComm_class::QueryServer");
  fConnectedToServer = 0;
  int result = 0;
  if ((fConnectedToSystem || ConnectToSystem(fSystemName.c_str())) &&
      ConnectToServer(data_source_name)) {
    fConnectedToServer = 1;
    DisplayLeftOut();
    result = QueryDataSource();
  }
  if (fConnectedToServer)
    DisconnectFromServer();
  std::fflush(stdout);
  std::fflush(stderr);
  return result;
}

void zt_DiagComm_class::DisplayLeftOut() {
  for (const auto& left_out : fRepServerInfoObj->ReturnLeftOut())
    show_message({messages::kCommandSet, left_out.number}, left_out.parameter);
}

int zt_DiagComm_class::QueryDataSource() {
  if (fDataSourceName == kCollectorSource)
    return QueryClass(kCollectorClass, kCollectorMetrics, std::size(kCollectorMetrics));
  const zt_RepServerInfo_class& client = *fRepServerInfoObj;
  // The first metric of a class is not shown: it repeats the time.
  const int count = std::min(client.ReturnNumMetrics(kFirstClass) - 1, kMostMetrics);
  if (count < 1) {
    if (client.ReturnNumClasses() == 0) {
      ExplainData("no class");
    } else {
      fErrorNum = messages::kMetricsMissing;
      fErrorParm = client.ReturnClassName(kFirstClass);
      ExplainData("no metric to show in that class");
    }
    return 0;
  }
  const rep_sMetricDescriptor* metrics = client.ReturnMetrics(kFirstClass);
  const char* names[kMostMetrics];
  for (int i = 0; i < count; ++i)
    names[i] = metrics[i + 1].Descriptor.fName;
  return QueryClass(client.ReturnClassName(kFirstClass), names, count);
}

int zt_DiagComm_class::QueryClass(const char* class_name, const char* const* metric_names,
                                  int num_names) {
  const TracedOperation traced("zt_DiagComm_class::QueryClass");
  zt_RepServerInfo_class& client = *fRepServerInfoObj;
  const int class_index = FindClass(class_name);
  if (class_index < 0)
    return 0;
  if (client.ReturnLastX(class_index) == 0) {
    fErrorNum = messages::kClassEmpty;
    fErrorParm = class_name;
    ExplainData("no row in that class");
    return 0;
  }
  std::vector<const rep_sMetricDescriptor*> columns;
  std::vector<std::uint32_t> ids;
  const rep_sMetricDescriptor* metrics = client.ReturnMetrics(class_index);
  for (int i = 0; i < client.ReturnNumMetrics(class_index); ++i) {
    const char* name = metrics[i].Descriptor.fName;
    const bool wanted = std::any_of(metric_names, metric_names + num_names, [&](const char* other) {
      return std::strcmp(name, other) == 0;
    });
    if (!wanted)
      continue;
    columns.push_back(&metrics[i]);
    ids.push_back(metrics[i].Descriptor.fId);
  }
  if (ids.empty()) {
    fErrorNum = messages::kMetricsMissing;
    fErrorParm = class_name;
    ExplainData("none of " +
                list_of("metric", "metrics", {metric_names, metric_names + num_names}) + " there");
    return 0;
  }

  if (!client.CreateBaseView(class_index, ids.data(), static_cast<int>(ids.size())))
    return 0;
  if (!client.SetPosition(class_index, kLastHour)) {
    client.DisconnectFromClass();
    return 0;
  }
  const int read = client.ReadData();
  client.DisconnectFromClass();
  if (!read)
    return 0;
  if (client.ReturnTimeStamps()[0] == kEndOfData) {
    fErrorNum = messages::kNoData;
    fErrorParm = class_name;
    ExplainData("no row in that class");
    return 0;
  }

  const auto table = format_data_table(client, columns);
  if (!table) {
    client.RefuseRead();
    return 0;
  }
  std::printf("Data source %s, class %s\n", printable(fDataSourceName.value_or("")).c_str(),
              printable(class_name).c_str());
  std::fwrite(table->data(), 1, table->size(), stdout);
  std::fputs("\n", stdout);
  std::fflush(stdout);
  if (client.ReturnBatchFull()) {
    DateTime last;
    last.SetGmt(client.ReturnTimeStamps()[client.ReturnLastTimeStampIndex()]);
    show_message({messages::kCommandSet, messages::kMoreRows}, last.FmtDateTime());
  }
  std::fflush(stderr);
  return 1;
}
