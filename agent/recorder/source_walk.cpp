// SPDX-License-Identifier: Apache-2.0
#include "agent/recorder/source_walk.h"

#include <algorithm>
#include <limits>
#include <set>
#include <string>
#include <utility>

#include "agent/recorder/class_rows.h"
#include "agent/repository_status.h"
#include "agent/scenario_parser.h"
#include "rep.h"

namespace agent::recorder {

namespace {

constexpr std::uint32_t kNoIndex = 0xFFFFFFFF;
constexpr std::uint32_t kAll = 0;
// Elements asked for at a time, as the console does.
constexpr std::uint32_t kClassBatch = 251;
constexpr std::uint32_t kMetricBatch = 500;
constexpr std::uint32_t kInstanceBatch = 2'048;
constexpr std::string_view kConfigurationClass = "CONFIGURATION";
constexpr std::int64_t kSecondsOfHour = 3'600;
constexpr std::int32_t kLatestRow = std::numeric_limits<std::int32_t>::max() - 1;

template <typename Element>
void take_head(const rep_sDescriptor& head, Element& element) {
  element.id = head.fId;
  element.name = field_text(head.fName);
  element.label = field_text(head.Label);
}

ClassData class_of(const rep_sTableDescriptor& table) {
  ClassData data;
  take_head(table.Descriptor, data);
  data.type_id = table.TableTypeId;
  data.discriminator = table.DiscriminatorId;
  data.interval = table.fInterval;
  data.interval_units = table.IntervalUnits;
  data.flags = table.Flags;
  data.first_x = table.FirstX;
  data.last_x = table.LastX;
  return data;
}

Metric metric_of(const rep_sMetricDescriptor& descriptor) {
  Metric metric;
  take_head(descriptor.Descriptor, metric);
  metric.denominator = descriptor.DenominatorId;
  metric.data_type = descriptor.DataType;
  metric.length = descriptor.Length;
  metric.column_width = descriptor.ColumnWidth;
  metric.summary = descriptor.SumType;
  metric.base_scale = descriptor.BaseScale;
  metric.scale10 = descriptor.Scale10;
  metric.headings = {field_text(descriptor.HeadingOne), field_text(descriptor.HeadingTwo)};
  return metric;
}

Instance instance_of(const rep_sInstanceDescriptor& descriptor) {
  Instance instance;
  take_head(descriptor.Descriptor, instance);
  instance.birth = descriptor.BirthTime;
  instance.death = descriptor.DeathTime;
  return instance;
}

class SourceWalk {
 public:
  SourceWalk(const Server& server, const Walk& walk) : server_(server), walk_(walk) {}

  SourceRecord run() {
    if (!read_repository())
      return std::move(record_);
    for (const auto& table : list<rep_sTableDescriptor>(
             "rep_LookupTable", "classes", kClassBatch, kMostClasses,
             [&](auto... rest) { zt_v2_rep_LookupTable(server_.handle(), kAll, rest...); }))
      record_.source.classes.push_back(class_of(table));
    std::size_t unread = 0;
    for (ClassData& data : record_.source.classes) {
      if (go_on()) {
        read_class(data);
      } else {
        mend(data);
        ++unread;
      }
    }
    if (unread != 0)
      missing("its last " + std::to_string(unread) + " classes, but for their descriptors");
    return std::move(record_);
  }

 private:
  // Whether anything more is asked of the server.
  bool go_on() {
    if (silent_)
      return false;
    const std::string why = walk_.ended();
    if (!why.empty() && !told_end_)
      missing("the rest: " + why);
    told_end_ = told_end_ || !why.empty();
    return why.empty();
  }

  void missing(const std::string& text) const {
    const std::string& name = record_.source.name;
    walk_.missing((name.empty() ? "a data source without its name" : name) + ", " + text);
  }

  // Notes a call that failed; one rule for each operation, and nothing more after a silence.
  void failed(const std::string& operation, const std::string& what, const CallEnd& end) {
    missing(what + ": " + operation + " ended with " + end.words());
    silent_ = silent_ || end.unanswered();
    auto& rules = record_.behaviours;
    if (std::none_of(rules.begin(), rules.end(),
                     [&](const auto& rule) { return rule.operation == operation; }))
      rules.push_back(end.behaviour(operation));
  }

  bool read_repository() {
    rep_sRepositoryDescriptor repository{};
    const CallEnd end = call([&](error_status_t* status) {
      zt_v2_rep_LookupRepository(server_.handle(), &repository, status);
    });
    record_.big_endian = end.outcome.big_endian;
    if (!end.ok()) {
      failed("rep_LookupRepository", "all of it", end);
      return false;
    }
    take_head(repository.Descriptor, record_.source);
    record_.source.version = repository.Version;
    record_.source.path = field_text(repository.PathName);
    walk_.step("data source " + record_.source.name);
    return true;
  }

  // All elements of a listing, batch after batch. `lookup` takes the parameters from the handle on.
  template <typename Descriptor, typename Lookup>
  std::vector<Descriptor> list(const std::string& operation, const std::string& what,
                               std::uint32_t batch, std::size_t most, const Lookup& lookup) {
    std::vector<Descriptor> all;
    std::set<std::uint32_t> ids;
    std::uint32_t handle = 0;
    do {
      std::vector<Descriptor> found(batch);
      std::uint32_t last = kNoIndex;
      CallEnd end = call(
          [&](error_status_t* status) { lookup(&handle, batch - 1, &last, found.data(), status); });
      if (end.answered() && end.status == static_cast<RPC_STATUS>(RepositoryStatus::nothing_found))
        return all;
      end.undecodable = end.undecodable || (end.ok() && last != kNoIndex && last >= batch);
      if (!end.ok()) {
        failed(operation, what, end);
        return all;
      }
      found.resize(last + 1);
      const std::size_t before = all.size();
      for (const Descriptor& one : found)
        if (all.size() < most && ids.insert(one.Descriptor.fId).second)
          all.push_back(one);
      // A listing that repeats itself, or brings nothing, would go on for ever.
      if (all.size() - before < found.size()) {
        missing(what + ": " + (all.size() == most ? "those behind the first " : "all but ") +
                std::to_string(all.size()) + " of the list");
        return all;
      }
      if (found.empty())
        return all;
    } while (handle != 0 && go_on());
    return all;
  }

  void read_class(ClassData& data) {
    const std::string what = "class " + data.name;
    walk_.detail(record_.source.name + ", " + what);
    for (const auto& metric : list<rep_sMetricDescriptor>(
             "rep_LookupMetric", what + ", metrics", kMetricBatch, kMostMetrics, [&](auto... rest) {
               zt_v2_rep_LookupMetric(server_.handle(), data.id, kAll, rest...);
             }))
      data.metrics.push_back(metric_of(metric));
    if ((data.flags & kInstancesFlag) != 0 && go_on())
      for (const auto& instance : list<rep_sInstanceDescriptor>(
               "rep_LookupInstance", what + ", instances", kInstanceBatch, kMostInstances,
               [&](auto... rest) {
                 zt_v2_rep_LookupInstance(server_.handle(), data.id, kAll, rest...);
               }))
        data.instances.push_back(instance_of(instance));
    mend(data);
    if (data.last_x < 0)
      missing(what + ": rows of before 1970");
    if (!data.metrics.empty() && data.last_x > 0 && go_on())
      read_rows_of(data);
  }

  // What a scenario cannot say of a class is left out.
  void mend(ClassData& data) const {
    const bool known = std::any_of(data.metrics.begin(), data.metrics.end(),
                                   [&](const auto& one) { return one.id == data.discriminator; });
    if (data.discriminator != kNoDiscriminator && !known) {
      if (!data.metrics.empty())
        missing("class " + data.name + ": its discriminator, which is no metric of it");
      data.discriminator = kNoDiscriminator;
    }
    if (data.interval < 1) {
      missing("class " + data.name + ": its interval of " + std::to_string(data.interval) +
              " s, written as 1 s");
      data.interval = 1;
    }
  }

  void read_rows_of(ClassData& data) {
    RowsWanted wanted;
    wanted.to = static_cast<std::uint32_t>(std::min(data.last_x, kLatestRow));
    if (data.name == kConfigurationClass) {
      wanted.from = static_cast<std::uint32_t>(data.first_x);
      wanted.most = 1;
    } else {
      const std::int64_t from = data.last_x - kSecondsOfHour * walk_.hours;
      wanted.from = static_cast<std::uint32_t>(std::max<std::int64_t>({from, data.first_x, 0}));
    }
    Walk named = walk_;
    named.missing = [this](const std::string& text) { missing(text); };
    RowsHad had = read_rows(server_, data, wanted, named);
    if (!had.failed.ok())
      failed(had.operation, "class " + data.name + ", rows", had.failed);
    data.rows = std::move(had.rows);
  }

  const Server& server_;
  const Walk& walk_;
  SourceRecord record_;
  bool silent_ = false;
  bool told_end_ = false;
};

}  // namespace

SourceRecord record_source(const Server& server, const Walk& walk) {
  return SourceWalk(server, walk).run();
}

}  // namespace agent::recorder
