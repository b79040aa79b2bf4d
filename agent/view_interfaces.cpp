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
using rpc::server::Results;

// An array that travels with its last index; the greatest index is that of an empty one.
std::span<const std::uint32_t> identifiers(const std::uint32_t* ids, std::uint32_t last_index) {
  return {ids, static_cast<std::uint32_t>(last_index + 1)};
}

// Fills the client's array and gives the last index. An index cannot say "none": of an empty result
// the array's first element, which is 0, is sent.
template <typename Container, typename Element>
std::uint32_t put(const Container& from, Results<Element>& to) {
  std::copy(from.begin(), from.end(), to.first(from.size()).begin());
  return from.empty() ? 0 : static_cast<std::uint32_t>(from.size() - 1);
}

class TimeFilterInterface : public repTimeFilter_Server {
 public:
  explicit TimeFilterInterface(ViewContexts& contexts) : contexts_(contexts) {}

  void Create(const CallInfo& call, std::uint32_t lastShiftIndex,
              const repTimeFilter_sShiftDescriptor* shifts, Context* filterContext,
              error_status_t* status) override {
    std::vector<Shift> wanted;
    for (std::uint32_t i = 0; i != lastShiftIndex + 1; ++i)
      wanted.push_back(
          {static_cast<ShiftKind>(shifts[i].fShiftType), shifts[i].fStart, shifts[i].fStop});
    *status = static_cast<error_status_t>(
        contexts_.create_filter(call.client, std::move(wanted), filterContext));
  }

  void Destroy(const CallInfo& call, Context* filterContext, error_status_t*) override {
    contexts_.destroy_filter(call.client, filterContext);
  }

  void Copy(const CallInfo& call, const Context& fromFilterContext, Context* toFilterContext,
            error_status_t* status) override {
    *status = static_cast<error_status_t>(contexts_.create_filter(
        call.client, contexts_.filter(call.client, fromFilterContext), toFilterContext));
  }

 private:
  ViewContexts& contexts_;
};

// What the view interfaces share: all but how their views are made.
template <typename Skeleton>
class ViewInterface : public Skeleton {
 public:
  // Without a kind the interface reaches views of every kind.
  ViewInterface(ViewContexts& contexts, std::optional<ViewKind> kind)
      : contexts_(contexts), kind_(kind) {}

  void Destroy(const CallInfo& call, Context* view, error_status_t*) override {
    contexts_.destroy_view(call.client, view, kind_);
  }
  void GetFirstPosition(const CallInfo& call, const Context& view, std::uint32_t* where,
                        error_status_t*) override {
    *where = find(call, view).first_position();
  }
  void GetLastPosition(const CallInfo& call, const Context& view, std::uint32_t* where,
                       error_status_t*) override {
    *where = find(call, view).last_position();
  }
  void GetPosition(const CallInfo& call, const Context& view, std::uint32_t* where,
                   error_status_t*) override {
    *where = find(call, view).position();
  }
  void SetPosition(const CallInfo& call, const Context& view, std::uint32_t* where,
                   error_status_t*) override {
    *where = find(call, view).set_position(*where);
  }
  void GetXInterval(const CallInfo& call, const Context& view, std::uint32_t* interval,
                    error_status_t*) override {
    *interval = find(call, view).x_interval();
  }
  void Read(const CallInfo& call, const Context& view, std::uint32_t max_position,
            std::uint32_t* last_position, std::uint32_t max_integer, std::uint32_t* last_integer,
            std::uint32_t max_character, std::uint32_t* last_character,
            Results<std::uint32_t>& positions, Results<std::uint32_t>& integers,
            Results<char>& characters, error_status_t* status) override {
    const ReadResult result =
        find(call, view)
            .read({std::uint64_t{max_position} + 1, std::uint64_t{max_integer} + 1,
                   std::uint64_t{max_character} + 1});
    *status = static_cast<error_status_t>(result.status);
    *last_position = put(result.positions, positions);
    *last_integer = put(result.integers, integers);
    *last_character = put(result.characters, characters);
  }

 protected:
  View& find(const CallInfo& call, const Context& view) {
    return contexts_.view(call.client, view, kind_);
  }

  // `filter` may be null.
  void create(const CallInfo& call, const ViewRequest& request, const Context* filter,
              Context* view, error_status_t* status) {
    std::vector<Shift> shifts;
    if (filter != nullptr)
      shifts = contexts_.filter(call.client, *filter);
    *status = static_cast<error_status_t>(
        contexts_.create_view(call.client, request, std::move(shifts), view));
  }

 private:
  ViewContexts& contexts_;
  const std::optional<ViewKind> kind_;
};

class BaseViewInterface : public ViewInterface<repView_Server> {
 public:
  explicit BaseViewInterface(ViewContexts& contexts) : ViewInterface(contexts, std::nullopt) {}

  void Create(const CallInfo& call, std::uint32_t table, std::uint32_t last_metric,
              const std::uint32_t* metrics, Context* view, error_status_t* status) override {
    ViewRequest request;
    request.table = table;
    request.metrics = identifiers(metrics, last_metric);
    create(call, request, nullptr, view, status);
  }
};

class FilteredViewInterface : public ViewInterface<repFilteredView_Server> {
 public:
  explicit FilteredViewInterface(ViewContexts& contexts)
      : ViewInterface(contexts, ViewKind::filtered) {}

  void Create(const CallInfo& call, std::uint32_t table, const Context& filter,
              std::uint32_t last_metric, const std::uint32_t* metrics, Context* view,
              error_status_t* status) override {
    ViewRequest request;
    request.kind = ViewKind::filtered;
    request.table = table;
    request.metrics = identifiers(metrics, last_metric);
    create(call, request, &filter, view, status);
  }
};

class TemporalViewInterface : public ViewInterface<repTemporalView_Server> {
 public:
  explicit TemporalViewInterface(ViewContexts& contexts)
      : ViewInterface(contexts, ViewKind::temporal) {}

  void Create(const CallInfo& call, std::uint32_t table, const Context& filter,
              std::uint32_t interval, std::uint32_t last_instance, const std::uint32_t* instances,
              std::uint32_t last_metric, const std::uint32_t* metrics, Context* view,
              error_status_t* status) override {
    ViewRequest request;
    request.kind = ViewKind::temporal;
    request.table = table;
    request.interval = interval;
    request.instances = identifiers(instances, last_instance);
    request.metrics = identifiers(metrics, last_metric);
    create(call, request, &filter, view, status);
  }
  void SetXInterval(const CallInfo& call, const Context& view, std::uint32_t* interval,
                    error_status_t*) override {
    *interval = find(call, view).set_x_interval(*interval);
  }
};

}  // namespace

std::vector<std::unique_ptr<rpc::server::Interface>> view_interfaces(ViewContexts& contexts) {
  std::vector<std::unique_ptr<rpc::server::Interface>> all;
  all.push_back(std::make_unique<BaseViewInterface>(contexts));
  all.push_back(std::make_unique<TimeFilterInterface>(contexts));
  all.push_back(std::make_unique<FilteredViewInterface>(contexts));
  all.push_back(std::make_unique<TemporalViewInterface>(contexts));
  return all;
}

}  // namespace agent
