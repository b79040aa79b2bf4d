// SPDX-License-Identifier: Apache-2.0
// The configuration report: the first record of the collector's class CONFIGURATION.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "present/util/util.h"
#include "source/domain/ZTdiagCommObj.h"
#include "source/domain/ZTdiagCommTrace.h"
#include "source/support/ZTprintable.h"
#include "source/support/ZTsupport_procs.h"

namespace {

constexpr const char* kCollectorSource = "TAMBO";
constexpr const char* kConfigurationClass = "CONFIGURATION";
constexpr std::uint32_t kOldestData = 0;

struct ConfigurationLine {
  const char* metric;
  bool is_text;
  const char* heading;
};

// In the order in which the values are asked for.
constexpr ConfigurationLine kMetrics[] = {
    {"GBL_OSNAME", true, "  OS Name        : "},
    {"GBL_SYSTEM_ID", true, "  System ID      : "},
    {"GBL_OSRELEASE", true, "  OS Release     : "},
    {"GBL_MACHINE", true, "  Machine        : "},
    {"GBL_COLLECTOR", true, "  Collector      : "},
    {"GBL_LOGFILE_VERSION", false, "  Logfile Version: "},
    {"GBL_NUM_NETWORK", false, "  Number of LANs : "},
};
// In the order in which they are printed.
constexpr std::size_t kPrintOrder[] = {0, 2, 3, 1, 4, 5, 6};
constexpr std::size_t kNotAsked = ~std::size_t{0};

// The metrics of the report that a class has, and where each stands in a row.
class ConfigurationView {
 public:
  ConfigurationView(const rep_sMetricDescriptor* metrics, int count) {
    std::fill(std::begin(columns_), std::end(columns_), kNotAsked);
    for (std::size_t slot = 0; slot < std::size(kMetrics); ++slot) {
      // The last metric of a name wins.
      for (int i = count; i > 0; --i) {
        if (std::strcmp(metrics[i - 1].Descriptor.fName, kMetrics[slot].metric) != 0)
          continue;
        columns_[slot] = ids_.size();
        ids_.push_back(metrics[i - 1].Descriptor.fId);
        break;
      }
    }
  }

  const std::vector<std::uint32_t>& ids() const { return ids_; }
  // The column of a slot, kNotAsked when the class lacks its metric.
  std::size_t column(std::size_t slot) const { return columns_[slot]; }

 private:
  std::size_t columns_[std::size(kMetrics)];
  std::vector<std::uint32_t> ids_;
};

}  // namespace

int zt_DiagComm_class::PrintConfigInfo() {
  const TracedOperation traced("zt_DiagComm_class::PrintConfigInfo");
  fConnectedToServer = 0;
  if (!ConnectToSystem(fSystemName.c_str()))
    return 0;
  int result = 0;
  const auto& names = fRepServerInfoObj->ReturnDataSourceNames();
  if (std::find(names.begin(), names.end(), kCollectorSource) == names.end()) {
    fErrorNum = messages::kNoCollector;
    ExplainSources();
  } else if (!ConnectToServer(kCollectorSource)) {
    fRepServerInfoObj->DisplayErrors();
    fErrorNum = messages::kCollectorCannotBeOpened;
  } else {
    fConnectedToServer = 1;
    DisplayLeftOut();
    result = PrintConfiguration();
  }
  if (fConnectedToServer)
    DisconnectFromServer();
  std::fflush(stdout);
  std::fflush(stderr);
  return result;
}

int zt_DiagComm_class::PrintConfiguration() {
  zt_RepServerInfo_class& client = *fRepServerInfoObj;
  const int class_index = FindClass(kConfigurationClass);
  if (class_index < 0)
    return 0;
  const ConfigurationView view(client.ReturnMetrics(class_index),
                               client.ReturnNumMetrics(class_index));
  if (view.ids().empty()) {
    fErrorNum = messages::kMetricsMissing;
    fErrorParm = kConfigurationClass;
    ExplainData("none of the metrics of the report there");
    return 0;
  }
  if (!client.CreateBaseView(class_index, view.ids().data(), static_cast<int>(view.ids().size())))
    return 0;
  if (!client.SetPosition(class_index, kOldestData)) {
    client.DisconnectFromClass();
    return 0;
  }
  const int read = client.ReadData();
  client.DisconnectFromClass();
  if (!read)
    return 0;
  if (client.ReturnTimeStamps()[0] == kEndOfData || client.ReturnRowCount() == 0) {
    fErrorNum = messages::kNoData;
    fErrorParm = kConfigurationClass;
    ExplainData("no row in that class");
    return 0;
  }

  std::string report;
  for (const std::size_t slot : kPrintOrder) {
    const std::size_t column = view.column(slot);
    if (column == kNotAsked)
      continue;
    const std::uint32_t value = client.ReturnIntResults()[column];
    report += kMetrics[slot].heading;
    if (kMetrics[slot].is_text) {
      const auto text = client.ReturnText(value);
      if (!text) {
        client.RefuseRead();
        return 0;
      }
      report += printable(strrtrim(std::string(*text).c_str()));
    } else {
      report += std::to_string(static_cast<std::int32_t>(value));
    }
    report += '\n';
  }
  DateTime collected;
  collected.SetGmt(client.ReturnTimeStamps()[0]);
  std::printf("CONFIGURATION data was collected at %s\n%s\n", collected.FmtDateTime(),
              report.c_str());
  return 1;
}
