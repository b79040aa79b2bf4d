#include "agent/view_interfaces.h"

#include <algorithm>

namespace agent {

namespace {

using rpc::server::CallInfo;

// An array that travels with its last index; the greatest index is that of an empty one.
std::span<const std::uint32_t> identifiers(const std::uint32_t* ids, std::uint32_t last_index) {
  return {ids, static_cast<std::uint32_t>(last_index + 1)};
}

ReadLimits limits(std::uint32_t max_position, std::uint32_t max_integer,
                  std::uint32_t max_character) {
  return {std::uint64_t{max_position} + 1, std::uint64_t{max_integer} + 1,
          std::uint64_t{max_character} + 1};
}

// Fills the client's array and gives the last index. An index cannot say "none": of an empty result
// the array's first element, which is 0, is sent.
template <typename Container, typename Element>
std::uint32_t put(const Container& from, Element* to) {
  std::copy(from.begin(), from.end(), to);
  return from.empty() ? 0 : static_cast<std::uint32_t>(from.size() - 1);
}

}  // namespace

void TimeFilterInterface::repTimeFilter_Create(const CallInfo& call, std::uint32_t lastShiftIndex,
                                               const repTimeFilter_sShiftDescriptor* shifts,
                                               rpc::WireContext* filterContext,
                                               error_status_t* status) {
  if (refused(status))
    return;
  std::vector<Shift> wanted;
  for (std::uint32_t i = 0; i != lastShiftIndex + 1; ++i)
    wanted.push_back(
        {static_cast<ShiftKind>(shifts[i].fShiftType), shifts[i].fStart, shifts[i].fStop});
  *status = static_cast<error_status_t>(
      contexts_.create_filter(call.activity, std::move(wanted), filterContext));
}

void TimeFilterInterface::repTimeFilter_Destroy(const CallInfo&, rpc::WireContext* filterContext,
                                                error_status_t* status) {
  if (!refused(status))
    contexts_.destroy_filter(filterContext);
}

void TimeFilterInterface::repTimeFilter_Copy(const CallInfo& call,
                                             const rpc::WireContext& fromFilterContext,
                                             rpc::WireContext* toFilterContext,
                                             error_status_t* status) {
  if (!refused(status))
    *status = static_cast<error_status_t>(contexts_.create_filter(
        call.activity, contexts_.filter(fromFilterContext), toFilterContext));
}

void BaseViewInterface::repView_Create(const CallInfo& call, std::uint32_t tableId,
                                       std::uint32_t lastMetricIndex,
                                       const std::uint32_t* metricIds,
                                       rpc::WireContext* viewContext, error_status_t* status) {
  if (refused(status))
    return;
  ViewRequest request;
  request.table = tableId;
  request.metrics = identifiers(metricIds, lastMetricIndex);
  *status =
      static_cast<error_status_t>(contexts_.create_view(call.activity, request, {}, viewContext));
}

void BaseViewInterface::repView_Destroy(const CallInfo&, rpc::WireContext* viewContext,
                                        error_status_t* status) {
  if (!refused(status))
    contexts_.destroy_view(viewContext);
}

void BaseViewInterface::repView_GetFirstPosition(const CallInfo&,
                                                 const rpc::WireContext& viewContext,
                                                 std::uint32_t* where, error_status_t* status) {
  if (!refused(status))
    *where = contexts_.view(viewContext).first_position();
}

void BaseViewInterface::repView_GetLastPosition(const CallInfo&,
                                                const rpc::WireContext& viewContext,
                                                std::uint32_t* where, error_status_t* status) {
  if (!refused(status))
    *where = contexts_.view(viewContext).last_position();
}

void BaseViewInterface::repView_GetPosition(const CallInfo&, const rpc::WireContext& viewContext,
                                            std::uint32_t* where, error_status_t* status) {
  if (!refused(status))
    *where = contexts_.view(viewContext).position();
}

void BaseViewInterface::repView_SetPosition(const CallInfo&, const rpc::WireContext& viewContext,
                                            std::uint32_t* where, error_status_t* status) {
  if (!refused(status))
    *where = contexts_.view(viewContext).set_position(*where);
}

void BaseViewInterface::repView_GetXInterval(const CallInfo&, const rpc::WireContext& viewContext,
                                             std::uint32_t* interval, error_status_t* status) {
  if (!refused(status))
    *interval = contexts_.view(viewContext).x_interval();
}

void BaseViewInterface::repView_Read(
    const CallInfo&, const rpc::WireContext& viewContext, std::uint32_t maxPositionIndex,
    std::uint32_t* lastPositionIndex, std::uint32_t maxIntResultsIndex,
    std::uint32_t* lastIntResultsIndex, std::uint32_t maxCharResultsIndex,
    std::uint32_t* lastCharResultsIndex, std::uint32_t* positions, std::uint32_t* intResults,
    char* charResults, error_status_t* status) {
  if (refused(status))
    return;
  const ReadResult result =
      contexts_.view(viewContext)
          .read(limits(maxPositionIndex, maxIntResultsIndex, maxCharResultsIndex));
  *status = static_cast<error_status_t>(result.status);
  *lastPositionIndex = put(result.positions, positions);
  *lastIntResultsIndex = put(result.integers, intResults);
  *lastCharResultsIndex = put(result.characters, charResults);
}

void FilteredViewInterface::repFilteredView_Create(const CallInfo& call, std::uint32_t tableId,
                                                   const rpc::WireContext& filterObjId,
                                                   std::uint32_t lastMetricIndex,
                                                   const std::uint32_t* metricIds,
                                                   rpc::WireContext* viewContext,
                                                   error_status_t* status) {
  if (refused(status))
    return;
  ViewRequest request;
  request.kind = ViewKind::filtered;
  request.table = tableId;
  request.metrics = identifiers(metricIds, lastMetricIndex);
  *status = static_cast<error_status_t>(
      contexts_.create_view(call.activity, request, contexts_.filter(filterObjId), viewContext));
}

void FilteredViewInterface::repFilteredView_Destroy(const CallInfo&, rpc::WireContext* viewContext,
                                                    error_status_t* status) {
  if (!refused(status))
    contexts_.destroy_view(viewContext, ViewKind::filtered);
}

void FilteredViewInterface::repFilteredView_GetFirstPosition(const CallInfo&,
                                                             const rpc::WireContext& viewContext,
                                                             std::uint32_t* where,
                                                             error_status_t* status) {
  if (!refused(status))
    *where = contexts_.view(viewContext, ViewKind::filtered).first_position();
}

void FilteredViewInterface::repFilteredView_GetLastPosition(const CallInfo&,
                                                            const rpc::WireContext& viewContext,
                                                            std::uint32_t* where,
                                                            error_status_t* status) {
  if (!refused(status))
    *where = contexts_.view(viewContext, ViewKind::filtered).last_position();
}

void FilteredViewInterface::repFilteredView_GetPosition(const CallInfo&,
                                                        const rpc::WireContext& viewContext,
                                                        std::uint32_t* where,
                                                        error_status_t* status) {
  if (!refused(status))
    *where = contexts_.view(viewContext, ViewKind::filtered).position();
}

void FilteredViewInterface::repFilteredView_SetPosition(const CallInfo&,
                                                        const rpc::WireContext& viewContext,
                                                        std::uint32_t* where,
                                                        error_status_t* status) {
  if (!refused(status))
    *where = contexts_.view(viewContext, ViewKind::filtered).set_position(*where);
}

void FilteredViewInterface::repFilteredView_GetXInterval(const CallInfo&,
                                                         const rpc::WireContext& viewContext,
                                                         std::uint32_t* interval,
                                                         error_status_t* status) {
  if (!refused(status))
    *interval = contexts_.view(viewContext, ViewKind::filtered).x_interval();
}

void FilteredViewInterface::repFilteredView_Read(
    const CallInfo&, const rpc::WireContext& viewContext, std::uint32_t maxPositionIndex,
    std::uint32_t* lastPositionIndex, std::uint32_t maxIntResultsIndex,
    std::uint32_t* lastIntResultsIndex, std::uint32_t maxCharResultsIndex,
    std::uint32_t* lastCharResultsIndex, std::uint32_t* positions, std::uint32_t* intResults,
    char* charResults, error_status_t* status) {
  if (refused(status))
    return;
  const ReadResult result =
      contexts_.view(viewContext, ViewKind::filtered)
          .read(limits(maxPositionIndex, maxIntResultsIndex, maxCharResultsIndex));
  *status = static_cast<error_status_t>(result.status);
  *lastPositionIndex = put(result.positions, positions);
  *lastIntResultsIndex = put(result.integers, intResults);
  *lastCharResultsIndex = put(result.characters, charResults);
}

void TemporalViewInterface::repTemporalView_Create(
    const CallInfo& call, std::uint32_t tableId, const rpc::WireContext& filterContext,
    std::uint32_t interval, std::uint32_t lastInstanceIndex, const std::uint32_t* instanceIds,
    std::uint32_t lastMetricIndex, const std::uint32_t* metricIds, rpc::WireContext* viewContext,
    error_status_t* status) {
  if (refused(status))
    return;
  ViewRequest request;
  request.kind = ViewKind::temporal;
  request.table = tableId;
  request.interval = interval;
  request.instances = identifiers(instanceIds, lastInstanceIndex);
  request.metrics = identifiers(metricIds, lastMetricIndex);
  *status = static_cast<error_status_t>(
      contexts_.create_view(call.activity, request, contexts_.filter(filterContext), viewContext));
}

void TemporalViewInterface::repTemporalView_Destroy(const CallInfo&, rpc::WireContext* viewContext,
                                                    error_status_t* status) {
  if (!refused(status))
    contexts_.destroy_view(viewContext, ViewKind::temporal);
}

void TemporalViewInterface::repTemporalView_GetFirstPosition(const CallInfo&,
                                                             const rpc::WireContext& viewContext,
                                                             std::uint32_t* where,
                                                             error_status_t* status) {
  if (!refused(status))
    *where = contexts_.view(viewContext, ViewKind::temporal).first_position();
}

void TemporalViewInterface::repTemporalView_GetLastPosition(const CallInfo&,
                                                            const rpc::WireContext& viewContext,
                                                            std::uint32_t* where,
                                                            error_status_t* status) {
  if (!refused(status))
    *where = contexts_.view(viewContext, ViewKind::temporal).last_position();
}

void TemporalViewInterface::repTemporalView_GetPosition(const CallInfo&,
                                                        const rpc::WireContext& viewContext,
                                                        std::uint32_t* where,
                                                        error_status_t* status) {
  if (!refused(status))
    *where = contexts_.view(viewContext, ViewKind::temporal).position();
}

void TemporalViewInterface::repTemporalView_SetPosition(const CallInfo&,
                                                        const rpc::WireContext& viewContext,
                                                        std::uint32_t* where,
                                                        error_status_t* status) {
  if (!refused(status))
    *where = contexts_.view(viewContext, ViewKind::temporal).set_position(*where);
}

void TemporalViewInterface::repTemporalView_GetXInterval(const CallInfo&,
                                                         const rpc::WireContext& viewContext,
                                                         std::uint32_t* interval,
                                                         error_status_t* status) {
  if (!refused(status))
    *interval = contexts_.view(viewContext, ViewKind::temporal).x_interval();
}

void TemporalViewInterface::repTemporalView_SetXInterval(const CallInfo&,
                                                         const rpc::WireContext& viewContext,
                                                         std::uint32_t* interval,
                                                         error_status_t* status) {
  if (!refused(status))
    *interval = contexts_.view(viewContext, ViewKind::temporal).set_x_interval(*interval);
}

void TemporalViewInterface::repTemporalView_Read(
    const CallInfo&, const rpc::WireContext& viewContext, std::uint32_t maxPositionIndex,
    std::uint32_t* lastPositionIndex, std::uint32_t maxIntResultsIndex,
    std::uint32_t* lastIntResultsIndex, std::uint32_t maxCharResultsIndex,
    std::uint32_t* lastCharResultsIndex, std::uint32_t* positions, std::uint32_t* intResults,
    char* charResults, error_status_t* status) {
  if (refused(status))
    return;
  const ReadResult result =
      contexts_.view(viewContext, ViewKind::temporal)
          .read(limits(maxPositionIndex, maxIntResultsIndex, maxCharResultsIndex));
  *status = static_cast<error_status_t>(result.status);
  *lastPositionIndex = put(result.positions, positions);
  *lastIntResultsIndex = put(result.integers, intResults);
  *lastCharResultsIndex = put(result.characters, charResults);
}

}  // namespace agent
