// SPDX-License-Identifier: Apache-2.0
#include "agent/repository.h"

#include <algorithm>

namespace agent {

namespace {

using rpc::server::Fault;

// The index of each identifier among the elements; false when one is not there.
template <typename Element>
bool find_all(const std::vector<Element>& elements, std::span<const std::uint32_t> ids,
              std::vector<std::size_t>& indexes) {
  for (const std::uint32_t id : ids) {
    const auto found = std::find_if(elements.begin(), elements.end(),
                                    [id](const Element& one) { return one.id == id; });
    if (found == elements.end())
      return false;
    indexes.push_back(static_cast<std::size_t>(found - elements.begin()));
  }
  return true;
}

}  // namespace

Repository::Repository(std::shared_ptr<const DataSource> source) : source_(std::move(source)) {
  tables_.reserve(source_->classes.size());
  for (const ClassData& data : source_->classes) {
    by_id_.emplace(data.id, tables_.size());
    tables_.emplace_back(data);
  }
}

const RowTable* Repository::table(std::uint32_t id) const {
  const auto found = by_id_.find(id);
  return found != by_id_.end() ? &tables_[found->second] : nullptr;
}

bool ViewContexts::full(const uuid_t& client) const {
  const auto own = [&](const auto& entry) { return entry.second.client == client; };
  return objects() >= kMostObjects ||
         std::count_if(views_.begin(), views_.end(), own) +
                 std::count_if(filters_.begin(), filters_.end(), own) >=
             static_cast<std::ptrdiff_t>(kMostObjectsOfClient);
}

RepositoryStatus ViewContexts::create_view(const uuid_t& client, const ViewRequest& request,
                                           std::vector<Shift> shifts, rpc::WireContext* context) {
  ViewDefinition definition;
  definition.table = repository_->table(request.table);
  if (definition.table == nullptr)
    return RepositoryStatus::nothing_found;
  const ClassData& data = definition.table->data();
  if (request.metrics.empty())
    return RepositoryStatus::no_metrics;
  if (!find_all(data.metrics, request.metrics, definition.metrics))
    return RepositoryStatus::unknown_metric;
  definition.shifts = std::move(shifts);
  if (request.kind == ViewKind::temporal) {
    definition.temporal = true;
    definition.interval = request.interval;
    const bool summarizable = (data.flags & kSummarizableFlag) != 0;
    if (request.interval != 0 && !summarizable &&
        request.interval != static_cast<std::uint32_t>(data.interval))
      return RepositoryStatus::not_summarizable;
    if (data.instances.empty())
      definition.instances = {0};
    else if (request.instances.empty() ||
             !find_all(data.instances, request.instances, definition.instances))
      return RepositoryStatus::unknown_instance;
  }
  if (full(client))
    return RepositoryStatus::too_many_objects;
  context->id = random_.uuid();
  views_.emplace(context->id, ViewObject{client, request.kind, View(std::move(definition))});
  tell("view", context->id, "made");
  return RepositoryStatus::ok;
}

RepositoryStatus ViewContexts::create_filter(const uuid_t& client, std::vector<Shift> shifts,
                                             rpc::WireContext* context) {
  if (shifts.empty() || !std::all_of(shifts.begin(), shifts.end(), sound))
    return RepositoryStatus::bad_shift;
  if (full(client))
    return RepositoryStatus::too_many_objects;
  context->id = random_.uuid();
  filters_.emplace(context->id, FilterObject{client, std::move(shifts)});
  tell("filter", context->id, "made");
  return RepositoryStatus::ok;
}

std::map<uuid_t, ViewContexts::ViewObject>::iterator ViewContexts::find_view(
    const uuid_t& client, const rpc::WireContext& context, std::optional<ViewKind> kind) {
  const auto found = views_.find(context.id);
  if (found == views_.end() || context.attributes != 0 || found->second.client != client ||
      (kind && found->second.kind != *kind))
    throw Fault(rpc::nca::kContextMismatch);
  return found;
}

View& ViewContexts::view(const uuid_t& client, const rpc::WireContext& context,
                         std::optional<ViewKind> kind) {
  return find_view(client, context, kind)->second.view;
}

const std::vector<Shift>& ViewContexts::filter(const uuid_t& client,
                                               const rpc::WireContext& context) const {
  const auto found = filters_.find(context.id);
  if (found == filters_.end() || context.attributes != 0 || found->second.client != client)
    throw Fault(rpc::nca::kContextMismatch);
  return found->second.shifts;
}

void ViewContexts::destroy_view(const uuid_t& client, rpc::WireContext* context,
                                std::optional<ViewKind> kind) {
  if (context->null())
    return;
  views_.erase(find_view(client, *context, kind));
  tell("view", context->id, "destroyed");
  *context = {};
}

void ViewContexts::destroy_filter(const uuid_t& client, rpc::WireContext* context) {
  if (context->null())
    return;
  filter(client, *context);
  filters_.erase(context->id);
  tell("filter", context->id, "destroyed");
  *context = {};
}

void ViewContexts::tell(std::string_view object, const uuid_t& id, std::string_view change) const {
  if (observer_)
    observer_(object, id, change);
}

template <typename Objects, typename Predicate>
void ViewContexts::end(Objects& objects, std::string_view name, Predicate goes) {
  std::erase_if(objects, [&](const auto& entry) {
    const bool ends = goes(entry.second);
    if (ends)
      tell(name, entry.first, "run down");
    return ends;
  });
}

void ViewContexts::run_down(const uuid_t& client) {
  const auto own = [&](const auto& object) { return object.client == client; };
  end(views_, "view", own);
  end(filters_, "filter", own);
}

void ViewContexts::run_down_all() {
  const auto every = [](const auto&) { return true; };
  end(views_, "view", every);
  end(filters_, "filter", every);
}

void ViewContexts::serve(const Repository& repository) {
  run_down_all();
  repository_ = &repository;
}

}  // namespace agent
