// SPDX-License-Identifier: Apache-2.0
#include "agent/view_interfaces.h"

#include <algorithm>

#include "repFilteredView_server.h"
#include "repTemporalView_server.h"
#include "repTimeFilter_server.h"
#include "repView_server.h"

namespace agent {

namespace {

using Context = rpc::WireContext;
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

class TimeFilterInterface : public Scripted<repTimeFilter_Server> {
 public:
  TimeFilterInterface(OperationScript& script, ViewContexts& contexts)
      : Scripted(script), contexts_(contexts) {}

  void repTimeFilter_Create(const CallInfo& call, std::uint32_t lastShiftIndex,
                            const repTimeFilter_sShiftDescriptor* shifts, Context* filterContext,
                            error_status_t* status) override {
    if (refused(status))
      return;
    std::vector<Shift> wanted;
    for (std::uint32_t i = 0; i != lastShiftIndex + 1; ++i)
      wanted.push_back(
          {static_cast<ShiftKind>(shifts[i].fShiftType), shifts[i].fStart, shifts[i].fStop});
    *status = static_cast<error_status_t>(
        contexts_.create_filter(call.activity, std::move(wanted), filterContext));
  }

  void repTimeFilter_Destroy(const CallInfo&, Context* filterContext,
                             error_status_t* status) override {
    if (!refused(status))
      contexts_.destroy_filter(filterContext);
  }

  void repTimeFilter_Copy(const CallInfo& call, const Context& fromFilterContext,
                          Context* toFilterContext, error_status_t* status) override {
    if (!refused(status))
      *status = static_cast<error_status_t>(contexts_.create_filter(
          call.activity, contexts_.filter(fromFilterContext), toFilterContext));
  }

 private:
  ViewContexts& contexts_;
};

// What the view interfaces share: each operation, once the script lets it run.
template <typename Skeleton>
class ViewInterface : public Scripted<Skeleton> {
 public:
  // Without a kind the interface reaches views of every kind.
  ViewInterface(OperationScript& script, ViewContexts& contexts, std::optional<ViewKind> kind)
      : Scripted<Skeleton>(script), contexts_(contexts), kind_(kind) {}

 protected:
  // `filter` may be null.
  void create(const CallInfo& call, const ViewRequest& request, const Context* filter,
              Context* view, error_status_t* status) {
    if (this->refused(status))
      return;
    std::vector<Shift> shifts;
    if (filter != nullptr)
      shifts = contexts_.filter(*filter);
    *status = static_cast<error_status_t>(
        contexts_.create_view(call.activity, request, std::move(shifts), view));
  }

  void destroy(Context* view, error_status_t* status) {
    if (!this->refused(status))
      contexts_.destroy_view(view, kind_);
  }

  void get(const Context& view, std::uint32_t (View::*what)() const, std::uint32_t* value,
           error_status_t* status) {
    if (!this->refused(status))
      *value = (contexts_.view(view, kind_).*what)();
  }

  void set(const Context& view, std::uint32_t (View::*what)(std::uint32_t), std::uint32_t* value,
           error_status_t* status) {
    if (!this->refused(status))
      *value = (contexts_.view(view, kind_).*what)(*value);
  }

  void read(const Context& view, const ReadLimits& limits, std::uint32_t* last_position,
            std::uint32_t* last_integer, std::uint32_t* last_character, std::uint32_t* positions,
            std::uint32_t* integers, char* characters, error_status_t* status) {
    if (this->refused(status))
      return;
    const ReadResult result = contexts_.view(view, kind_).read(limits);
    *status = static_cast<error_status_t>(result.status);
    *last_position = put(result.positions, positions);
    *last_integer = put(result.integers, integers);
    *last_character = put(result.characters, characters);
  }

 private:
  ViewContexts& contexts_;
  const std::optional<ViewKind> kind_;
};

class BaseViewInterface : public ViewInterface<repView_Server> {
 public:
  BaseViewInterface(OperationScript& script, ViewContexts& contexts)
      : ViewInterface(script, contexts, std::nullopt) {}

  void repView_Create(const CallInfo& call, std::uint32_t tableId, std::uint32_t lastMetricIndex,
                      const std::uint32_t* metricIds, Context* viewContext,
                      error_status_t* status) override {
    ViewRequest request;
    request.table = tableId;
    request.metrics = identifiers(metricIds, lastMetricIndex);
    create(call, request, nullptr, viewContext, status);
  }
  void repView_Destroy(const CallInfo&, Context* view, error_status_t* status) override {
    destroy(view, status);
  }
  void repView_GetFirstPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                                error_status_t* status) override {
    get(view, &View::first_position, where, status);
  }
  void repView_GetLastPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                               error_status_t* status) override {
    get(view, &View::last_position, where, status);
  }
  void repView_GetPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                           error_status_t* status) override {
    get(view, &View::position, where, status);
  }
  void repView_SetPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                           error_status_t* status) override {
    set(view, &View::set_position, where, status);
  }
  void repView_GetXInterval(const CallInfo&, const Context& view, std::uint32_t* interval,
                            error_status_t* status) override {
    get(view, &View::x_interval, interval, status);
  }
  void repView_Read(const CallInfo&, const Context& view, std::uint32_t maxPosition,
                    std::uint32_t* lastPosition, std::uint32_t maxInt, std::uint32_t* lastInt,
                    std::uint32_t maxChar, std::uint32_t* lastChar, std::uint32_t* positions,
                    std::uint32_t* ints, char* chars, error_status_t* status) override {
    read(view, limits(maxPosition, maxInt, maxChar), lastPosition, lastInt, lastChar, positions,
         ints, chars, status);
  }
};

class FilteredViewInterface : public ViewInterface<repFilteredView_Server> {
 public:
  FilteredViewInterface(OperationScript& script, ViewContexts& contexts)
      : ViewInterface(script, contexts, ViewKind::filtered) {}

  void repFilteredView_Create(const CallInfo& call, std::uint32_t tableId,
                              const Context& filterObjId, std::uint32_t lastMetricIndex,
                              const std::uint32_t* metricIds, Context* viewContext,
                              error_status_t* status) override {
    ViewRequest request;
    request.kind = ViewKind::filtered;
    request.table = tableId;
    request.metrics = identifiers(metricIds, lastMetricIndex);
    create(call, request, &filterObjId, viewContext, status);
  }
  void repFilteredView_Destroy(const CallInfo&, Context* view, error_status_t* status) override {
    destroy(view, status);
  }
  void repFilteredView_GetFirstPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                                        error_status_t* status) override {
    get(view, &View::first_position, where, status);
  }
  void repFilteredView_GetLastPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                                       error_status_t* status) override {
    get(view, &View::last_position, where, status);
  }
  void repFilteredView_GetPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                                   error_status_t* status) override {
    get(view, &View::position, where, status);
  }
  void repFilteredView_SetPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                                   error_status_t* status) override {
    set(view, &View::set_position, where, status);
  }
  void repFilteredView_GetXInterval(const CallInfo&, const Context& view, std::uint32_t* interval,
                                    error_status_t* status) override {
    get(view, &View::x_interval, interval, status);
  }
  void repFilteredView_Read(const CallInfo&, const Context& view, std::uint32_t maxPosition,
                            std::uint32_t* lastPosition, std::uint32_t maxInt,
                            std::uint32_t* lastInt, std::uint32_t maxChar, std::uint32_t* lastChar,
                            std::uint32_t* positions, std::uint32_t* ints, char* chars,
                            error_status_t* status) override {
    read(view, limits(maxPosition, maxInt, maxChar), lastPosition, lastInt, lastChar, positions,
         ints, chars, status);
  }
};

class TemporalViewInterface : public ViewInterface<repTemporalView_Server> {
 public:
  TemporalViewInterface(OperationScript& script, ViewContexts& contexts)
      : ViewInterface(script, contexts, ViewKind::temporal) {}

  void repTemporalView_Create(const CallInfo& call, std::uint32_t tableId,
                              const Context& filterContext, std::uint32_t interval,
                              std::uint32_t lastInstanceIndex, const std::uint32_t* instanceIds,
                              std::uint32_t lastMetricIndex, const std::uint32_t* metricIds,
                              Context* viewContext, error_status_t* status) override {
    ViewRequest request;
    request.kind = ViewKind::temporal;
    request.table = tableId;
    request.interval = interval;
    request.instances = identifiers(instanceIds, lastInstanceIndex);
    request.metrics = identifiers(metricIds, lastMetricIndex);
    create(call, request, &filterContext, viewContext, status);
  }
  void repTemporalView_Destroy(const CallInfo&, Context* view, error_status_t* status) override {
    destroy(view, status);
  }
  void repTemporalView_GetFirstPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                                        error_status_t* status) override {
    get(view, &View::first_position, where, status);
  }
  void repTemporalView_GetLastPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                                       error_status_t* status) override {
    get(view, &View::last_position, where, status);
  }
  void repTemporalView_GetPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                                   error_status_t* status) override {
    get(view, &View::position, where, status);
  }
  void repTemporalView_SetPosition(const CallInfo&, const Context& view, std::uint32_t* where,
                                   error_status_t* status) override {
    set(view, &View::set_position, where, status);
  }
  void repTemporalView_GetXInterval(const CallInfo&, const Context& view, std::uint32_t* interval,
                                    error_status_t* status) override {
    get(view, &View::x_interval, interval, status);
  }
  void repTemporalView_SetXInterval(const CallInfo&, const Context& view, std::uint32_t* interval,
                                    error_status_t* status) override {
    set(view, &View::set_x_interval, interval, status);
  }
  void repTemporalView_Read(const CallInfo&, const Context& view, std::uint32_t maxPosition,
                            std::uint32_t* lastPosition, std::uint32_t maxInt,
                            std::uint32_t* lastInt, std::uint32_t maxChar, std::uint32_t* lastChar,
                            std::uint32_t* positions, std::uint32_t* ints, char* chars,
                            error_status_t* status) override {
    read(view, limits(maxPosition, maxInt, maxChar), lastPosition, lastInt, lastChar, positions,
         ints, chars, status);
  }
};

}  // namespace

std::vector<std::unique_ptr<rpc::server::Interface>> view_interfaces(OperationScript& script,
                                                                     ViewContexts& contexts) {
  std::vector<std::unique_ptr<rpc::server::Interface>> all;
  all.push_back(std::make_unique<BaseViewInterface>(script, contexts));
  all.push_back(std::make_unique<TimeFilterInterface>(script, contexts));
  all.push_back(std::make_unique<FilteredViewInterface>(script, contexts));
  all.push_back(std::make_unique<TemporalViewInterface>(script, contexts));
  return all;
}

}  // namespace agent
