// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): views through time
// filters.

#include "source/domain/ZTdiagCommTrace.h"
#include "source/domain/ZTrepServerInfoObj.h"
#include "source/domain/ZTviewTrace.h"
#include "source/support/ZTprintable.h"

namespace {

const char* shift_type_name(std::int16_t type) {
  switch (type) {
    case repTimeFilter_cShiftAbsolute:
      return "repTimeFilter_cShiftAbsolute";
    case repTimeFilter_cShiftDaily:
      return "repTimeFilter_cShiftDaily";
    default:
      return "repTimeFilter_cShiftWeekly";
  }
}

void trace_shifts(const repTimeFilter_sShiftDescriptor* shifts, int num_shifts) {
  gTraceObj.LogMsg("\nnum_shifts = %d", num_shifts);
  for (int i = 0; i < num_shifts; ++i) {
    const auto start = static_cast<std::uint32_t>(shifts[i].fStart);
    const auto stop = static_cast<std::uint32_t>(shifts[i].fStop);
    gTraceObj.LogMsg("shifts[%d].fShiftType = %s", i, shift_type_name(shifts[i].fShiftType));
    gTraceObj.LogMsg("shifts[%d].fStart     = %s", i,
                     text_of_time(start, &DateTime::FmtTime).c_str());
    gTraceObj.LogMsg("shifts[%d].fStop      = %s", i,
                     text_of_time(stop, &DateTime::FmtTime).c_str());
  }
}

}  // namespace

int zt_RepServerInfo_class::CreateFilteredView(int class_index, const std::uint32_t* metric_ids,
                                               int num_metrics,
                                               const repTimeFilter_sShiftDescriptor* shifts,
                                               int num_shifts) {
  const TracedOperation traced("zt_RepServerInfo_class::CreateFilteredView");
  if (num_metrics < 0 || num_shifts < 1 || FindClass(class_index) == nullptr)
    return Fail(kBadParameter);
  const rep_sDescriptor& table = FindClass(class_index)->ClassInfo.Descriptor;
  gTraceObj.LogMsg("Class is %s", printable(table.fName).c_str());
  gTraceObj.LogMsg("class_index = %d", class_index);
  gTraceObj.LogMsg("\nnum_metrics = %d", num_metrics);
  trace_ids("Metric ID  ", metric_ids, num_metrics);
  trace_shifts(shifts, num_shifts);
  fNumMetrics = num_metrics;
  if (!CreateFilter(shifts, num_shifts))
    return 0;
  gTraceObj.LogMsg("calling zt_repFilteredView_Create");
  return FinishView(Ask("repFilteredView_Create", [&](error_status_t* status) {
    zt_repFilteredView_Create(&fRPCinfo, table.fId, &fFilterId, last_index_of(num_metrics),
                              list_or_empty(metric_ids), &fViewId, status);
  }));
}

int zt_RepServerInfo_class::CreateTemporalView(int class_index, const std::uint32_t* metric_ids,
                                               int num_metrics, const std::uint32_t* instance_ids,
                                               int num_instances,
                                               const repTimeFilter_sShiftDescriptor* shifts,
                                               int num_shifts,
                                               std::uint32_t summarization_interval) {
  const TracedOperation traced("zt_RepServerInfo_class::CreateTemporalView");
  if (num_metrics < 0 || num_instances < 1 || num_shifts < 1 || FindClass(class_index) == nullptr)
    return Fail(kBadParameter);
  const rep_sDescriptor& table = FindClass(class_index)->ClassInfo.Descriptor;
  gTraceObj.LogMsg("Class is %s", printable(table.fName).c_str());
  gTraceObj.LogMsg("class_index   = %d", class_index);
  gTraceObj.LogMsg("\nnum_metrics   = %d", num_metrics);
  trace_ids("Metric ID    ", metric_ids, num_metrics);
  gTraceObj.LogMsg("\nnum_instances = %d", num_instances);
  trace_ids("Instance ID  ", instance_ids, num_instances);
  trace_shifts(shifts, num_shifts);
  fNumMetrics = num_metrics;
  if (!CreateFilter(shifts, num_shifts))
    return 0;
  gTraceObj.LogMsg("calling zt_repTemporalView_Create");
  return FinishView(Ask("repTemporalView_Create", [&](error_status_t* status) {
    zt_repTemporalView_Create(
        &fRPCinfo, table.fId, &fFilterId, summarization_interval, last_index_of(num_instances),
        instance_ids, last_index_of(num_metrics), list_or_empty(metric_ids), &fViewId, status);
  }));
}

int zt_RepServerInfo_class::CreateFilter(const repTimeFilter_sShiftDescriptor* shifts,
                                         int num_shifts) {
  DestroyView();
  DestroyFilter();
  gTraceObj.LogMsg("calling zt_repTimeFilter_Create");
  const LostCall call = Ask("repTimeFilter_Create", [&](error_status_t* status) {
    zt_repTimeFilter_Create(&fRPCinfo, last_index_of(num_shifts), shifts, &fFilterId, status);
  });
  fFilterCreated = fRPCinfo.filter_context != nullptr;
  if (call.status == RPC_S_OK)
    return 1;
  // A server may hand out an object together with its refusal.
  DestroyFilter();
  return Fail(call);
}
