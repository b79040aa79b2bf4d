// SPDX-License-Identifier: Apache-2.0
// Views of the repository client: creation, position, reading.

#include <algorithm>
#include <cstring>

#include "present/util/util.h"
#include "source/domain/ZTdiagCommTrace.h"
#include "source/domain/ZTrepServerInfoObj.h"
#include "source/domain/ZTviewTrace.h"
#include "source/support/ZTprintable.h"

namespace {

constexpr LostCall kUndecodable{RPC_X_BAD_STUB_DATA, {}};

}  // namespace

int zt_RepServerInfo_class::CreateBaseView(int class_index, const std::uint32_t* metric_ids,
                                           int num_metrics) {
  const TracedOperation traced("zt_RepServerInfo_class::CreateBaseView");
  if (num_metrics < 0 || FindClass(class_index) == nullptr)
    return Fail(kBadParameter);
  const rep_sDescriptor& table = FindClass(class_index)->ClassInfo.Descriptor;
  gTraceObj.LogMsg("Class is %s", printable(table.fName).c_str());
  trace_ids("Metric ID  ", metric_ids, num_metrics);
  gTraceObj.LogMsg("calling zt_repView_Create");
  fNumMetrics = num_metrics;
  DestroyView();
  fSought = std::string("data in the class ") + table.fName;
  return FinishView(Ask("repView_Create", [&](error_status_t* status) {
    zt_repView_Create(&fRPCinfo, table.fId, last_index_of(num_metrics), list_or_empty(metric_ids),
                      &fViewId, status);
  }));
}

int zt_RepServerInfo_class::FinishView(const LostCall& call) {
  fViewCreated = fRPCinfo.view_context != nullptr;
  if (call.status == RPC_S_OK)
    return 1;
  DestroyView();
  return Fail(call, fSought);
}

void zt_RepServerInfo_class::DestroyView() {
  if (!fViewCreated)
    return;
  fViewCreated = 0;
  gTraceObj.LogMsg("calling zt_repView_Destroy");
  Ask("repView_Destroy",
      [&](error_status_t* status) { zt_repView_Destroy(&fRPCinfo, &fViewId, status); });
  fRPCinfo.view_context = nullptr;
}

void zt_RepServerInfo_class::DestroyFilter() {
  if (!fFilterCreated)
    return;
  fFilterCreated = 0;
  gTraceObj.LogMsg("calling zt_repTimeFilter_Destroy");
  Ask("repTimeFilter_Destroy",
      [&](error_status_t* status) { zt_repTimeFilter_Destroy(&fRPCinfo, &fFilterId, status); });
  fRPCinfo.filter_context = nullptr;
}

int zt_RepServerInfo_class::SetPosition(int class_index, std::uint32_t start_time) {
  const TracedOperation traced("zt_RepServerInfo_class::SetPosition");
  if (!fViewCreated || FindClass(class_index) == nullptr)
    return Fail(kBadParameter);
  const rep_sTableDescriptor& table = FindClass(class_index)->ClassInfo;
  gTraceObj.LogMsg("Class is %s", printable(table.Descriptor.fName).c_str());
  gTraceObj.LogMsg("start_time = %d", signed_number(start_time));
  std::uint32_t position = start_time == 0 ? static_cast<std::uint32_t>(table.FirstX)
                                           : static_cast<std::uint32_t>(table.LastX) - start_time;
  gTraceObj.LogMsg("calling zt_repView_SetPosition.  StartTime = %s",
                   text_of_time(position, &DateTime::FmtDateTime).c_str());
  const LostCall call = Ask("repView_SetPosition", [&](error_status_t* status) {
    zt_repView_SetPosition(fRPCinfo, &fViewId, &position, status);
  });
  return call.status == RPC_S_OK ? 1 : Fail(call, fSought);
}

int zt_RepServerInfo_class::ReadData() {
  const TracedOperation traced("zt_RepServerInfo_class::ReadData");
  fMoreData = 0;
  fLastTimeStampIndex = fLastIntResultsIndex = fLastCharResultsIndex = kNoIndex;
  // Without a metric no row has a value, and more metrics than integers fit into no row.
  if (!fViewCreated || fNumMetrics < 1 ||
      static_cast<std::size_t>(fNumMetrics) > fIntResults.size())
    return Fail(kBadParameter);
  const std::uint32_t most_time_stamps = MaxTimeStamps();
  gTraceObj.LogMsg("calling zt_repView_Read with MaxTimeStamps = %d",
                   signed_number(most_time_stamps));
  fTimeStamps.fill(0);
  fIntResults.fill(0);
  fCharResults.fill('\0');
  LostCall call = Ask("repView_Read", [&](error_status_t* status) {
    zt_repView_Read(fRPCinfo, &fViewId, most_time_stamps, &fLastTimeStampIndex,
                    static_cast<std::uint32_t>(fIntResults.size() - 1), &fLastIntResultsIndex,
                    static_cast<std::uint32_t>(fCharResults.size() - 1), &fLastCharResultsIndex,
                    fTimeStamps.data(), fIntResults.data(), fCharResults.data(), status);
  });
  if (call.status == RPC_S_OK && !ReadReplyIsSound(most_time_stamps))
    call = kUndecodable;
  if (call.status != RPC_S_OK) {
    fLastTimeStampIndex = fLastIntResultsIndex = fLastCharResultsIndex = kNoIndex;
    return Fail(call, fSought);
  }
  // A batch without any time stamp is an end as well: asking again would bring the same.
  if (fLastTimeStampIndex != kNoIndex && fTimeStamps[fLastTimeStampIndex] != kEndOfData)
    fMoreData = 1;
  gTraceObj.LogMsg("fLastTimeStampIndex = %d", signed_number(fLastTimeStampIndex));
  gTraceObj.LogMsg("fMoreData           = %d", fMoreData);
  return 1;
}

// The last index of the time stamps asked for: rows times metrics fit into the integers.
std::uint32_t zt_RepServerInfo_class::MaxTimeStamps() const {
  const std::size_t rows = fIntResults.size() / static_cast<std::size_t>(fNumMetrics);
  return static_cast<std::uint32_t>(std::min(rows, fTimeStamps.size()) - 1);
}

bool zt_RepServerInfo_class::ReadReplyIsSound(std::uint32_t most_time_stamps) const {
  const auto within = [](std::uint32_t last, std::size_t most) {
    return last == kNoIndex || last <= most;
  };
  if (!within(fLastTimeStampIndex, most_time_stamps) ||
      !within(fLastIntResultsIndex, fIntResults.size() - 1) ||
      !within(fLastCharResultsIndex, fCharResults.size() - 1))
    return false;
  const std::size_t integers = static_cast<std::uint32_t>(fLastIntResultsIndex + 1);
  return integers >= ReturnRowCount() * static_cast<std::size_t>(fNumMetrics);
}

bool zt_RepServerInfo_class::ReturnBatchFull() const {
  if (!fMoreData || fNumMetrics < 1)
    return false;
  // Texts fill their room before rows do: no place is left for what a row took so far, twice.
  const std::size_t rows = ReturnRowCount();
  const std::size_t texts = static_cast<std::uint32_t>(fLastCharResultsIndex + 1);
  return fLastTimeStampIndex == MaxTimeStamps() ||
         (rows > 0 && fCharResults.size() - texts < texts / rows * 2);
}

std::size_t zt_RepServerInfo_class::ReturnRowCount() const {
  const auto end = fTimeStamps.begin() + static_cast<std::uint32_t>(fLastTimeStampIndex + 1);
  return static_cast<std::size_t>(std::find(fTimeStamps.begin(), end, kEndOfData) -
                                  fTimeStamps.begin());
}

void zt_RepServerInfo_class::RefuseRead() {
  Fail(kUndecodable);
}

std::optional<std::string_view> zt_RepServerInfo_class::ReturnText(std::uint32_t offset) const {
  const std::size_t received = static_cast<std::uint32_t>(fLastCharResultsIndex + 1);
  if (offset >= received)
    return std::nullopt;
  const char* start = fCharResults.data() + offset;
  const std::size_t length = strnlen(start, received - offset);
  if (length == received - offset)
    return std::nullopt;
  return std::string_view(start, length);
}

void zt_RepServerInfo_class::DisconnectFromClass() {
  const TracedOperation traced("zt_RepServerInfo_class::DisconnectFromClass");
  DestroyView();
}
