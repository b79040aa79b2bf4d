// SPDX-License-Identifier: Apache-2.0
#include "agent/metadata_interface.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace agent {

namespace {

using rpc::server::CallInfo;

// Copies a text that the scenario has kept below the array's size; the arrays come zeroed.
template <std::size_t Size>
std::uint16_t put_text(char (&array)[Size], const std::string& text) {
  const std::size_t length = std::min(text.size(), Size - 1);
  std::memcpy(array, text.data(), length);
  return static_cast<std::uint16_t>(length);
}

template <typename Element>
void put_head(rep_sDescriptor& head, const Element& element) {
  head.fId = element.id;
  head.NameLength = put_text(head.fName, element.name);
  head.LabelLength = put_text(head.Label, element.label);
}

void put(rep_sTableDescriptor& result, const ClassData& data) {
  put_head(result.Descriptor, data);
  result.TableTypeId = data.type_id;
  result.DiscriminatorId = data.discriminator;
  result.fInterval = data.interval;
  result.FirstX = data.first_x;
  result.LastX = data.last_x;
  result.Flags = data.flags;
  result.IntervalUnits = data.interval_units;
}

void put(rep_sInstanceDescriptor& result, const Instance& instance) {
  put_head(result.Descriptor, instance);
  result.BirthTime = instance.birth;
  result.DeathTime = instance.death;
}

void put(rep_sMetricDescriptor& result, const Metric& metric) {
  put_head(result.Descriptor, metric);
  result.DenominatorId = metric.denominator;
  result.DataType = metric.data_type;
  result.Length = metric.length;
  result.ColumnWidth = metric.column_width;
  result.SumType = metric.summary;
  result.BaseScale = metric.base_scale;
  result.Scale10 = metric.scale10;
  result.HeadOneLength = put_text(result.HeadingOne, metric.headings[0]);
  result.HeadTwoLength = put_text(result.HeadingTwo, metric.headings[1]);
}

// Fills `results` with the elements of the identifier, or all, from the handle on.
template <typename Element, typename Descriptor>
error_status_t lookup(const std::vector<Element>& elements, std::uint32_t id, std::uint32_t* handle,
                      std::uint32_t max_index, std::uint32_t* last_index,
                      rpc::server::Results<Descriptor>& results) {
  const std::uint64_t room = std::uint64_t{max_index} + 1;
  std::uint32_t filled = 0;
  std::size_t next = *handle;
  for (; next < elements.size() && filled < room; ++next)
    if (id == 0 || elements[next].id == id)
      put(results[filled++], elements[next]);
  *handle = next < elements.size() && id == 0 ? static_cast<std::uint32_t>(next) : 0;
  if (filled == 0)
    return static_cast<error_status_t>(RepositoryStatus::nothing_found);
  *last_index = filled - 1;
  return 0;
}

}  // namespace

void MetadataInterface::LookupRepository(const CallInfo&, rep_sRepositoryDescriptor* result,
                                         error_status_t*) {
  const DataSource& source = repository_->source();
  put_head(result->Descriptor, source);
  result->Version = source.version;
  result->PathNameLength = put_text(result->PathName, source.path);
}

void MetadataInterface::LookupTable(const CallInfo&, std::uint32_t tableId,
                                    std::uint32_t* lookupHandle, std::uint32_t maxIndex,
                                    std::uint32_t* lastIndex,
                                    rpc::server::Results<rep_sTableDescriptor>& results,
                                    error_status_t* status) {
  const std::vector<ClassData>& classes = repository_->source().classes;
  *status = lookup(classes, tableId, lookupHandle, maxIndex, lastIndex, results);
  for (std::uint32_t i = 0; *status == 0 && i <= *lastIndex; ++i)
    results[i].LastX = repository_->table(results[i].Descriptor.fId)->last_x();
}

void MetadataInterface::LookupInstance(const CallInfo&, std::uint32_t tableId,
                                       std::uint32_t instanceId, std::uint32_t* lookupHandle,
                                       std::uint32_t maxIndex, std::uint32_t* lastIndex,
                                       rpc::server::Results<rep_sInstanceDescriptor>& results,
                                       error_status_t* status) {
  const RowTable* table = repository_->table(tableId);
  if (table == nullptr) {
    *status = static_cast<error_status_t>(RepositoryStatus::nothing_found);
    return;
  }
  *status = lookup(table->data().instances, instanceId, lookupHandle, maxIndex, lastIndex, results);
  if (*status == 0)
    for (std::uint32_t i = 0; i <= *lastIndex; ++i)
      results[i].TableTypeId = table->data().type_id;
}

void MetadataInterface::LookupMetric(const CallInfo&, std::uint32_t tableId, std::uint32_t metricId,
                                     std::uint32_t* lookupHandle, std::uint32_t maxIndex,
                                     std::uint32_t* lastIndex,
                                     rpc::server::Results<rep_sMetricDescriptor>& results,
                                     error_status_t* status) {
  const RowTable* table = repository_->table(tableId);
  if (table == nullptr)
    *status = static_cast<error_status_t>(RepositoryStatus::nothing_found);
  else
    *status = lookup(table->data().metrics, metricId, lookupHandle, maxIndex, lastIndex, results);
}

}  // namespace agent
