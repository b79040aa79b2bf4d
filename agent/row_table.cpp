// SPDX-License-Identifier: Apache-2.0
#include "agent/row_table.h"

#include <algorithm>
#include <ctime>
#include <string_view>
#include <unordered_map>

namespace agent {

namespace {

std::uint32_t wire(std::int64_t number) {
  return static_cast<std::uint32_t>(number);
}

bool lives(const Instance& instance, std::int64_t when) {
  return when >= instance.birth && when <= instance.death;
}

// One row's value by a model. Instances of one class are set apart by reading the model some rows
// ahead.
struct ModelReader {
  const ClassData& data;
  std::size_t slot;
  std::size_t row;

  std::uint64_t step() const { return std::uint64_t{slot} + row * 5; }

  Value operator()(const ConstantModel& model) const { return wire(model.value); }
  Value operator()(const RampModel& model) const {
    const auto steps =
        static_cast<std::uint64_t>(model.to - model.from) / static_cast<std::uint64_t>(model.step) +
        1;
    return wire(model.from + static_cast<std::int64_t>(step() % steps) * model.step);
  }
  Value operator()(const WaveModel& model) const {
    const std::uint64_t phase = step() % model.period * 2;  // 0 to just under two periods
    const std::uint64_t height = phase <= model.period ? phase : 2 * model.period - phase;
    const auto swing = static_cast<std::uint64_t>(model.high - model.low);
    return wire(model.low + static_cast<std::int64_t>(swing * height / model.period));
  }
  Value operator()(const ValuesModel& model) const {
    return wire(model.values[step() % model.values.size()]);
  }
  Value operator()(const TextsModel& model) const {
    return std::string_view(model.texts[step() % model.texts.size()]);
  }
  Value operator()(const InstanceModel& model) const {
    if (row >= data.instances.size())
      return std::string_view();
    return std::string_view(model.label ? data.instances[row].label : data.instances[row].name);
  }
};

}  // namespace

RowTable::RowTable(const ClassData& data) : data_(data) {
  for (std::size_t i = 0; i < data.rows.size(); ++i)
    if (i == 0 || data.rows[i].time != data.rows[i - 1].time)
      starts_.push_back(i);
  if (!data.rows.empty())
    starts_.push_back(data.rows.size());
  if (!data.instances.empty())
    find_instances();
}

void RowTable::find_instances() {
  std::unordered_map<std::string_view, std::size_t> by_text;
  for (std::size_t i = data_.instances.size(); i-- > 0;) {
    by_text[data_.instances[i].label] = i;
    by_text[data_.instances[i].name] = i;
  }
  const auto metric =
      std::find_if(data_.metrics.begin(), data_.metrics.end(),
                   [&](const auto& one) { return one.id == data_.discriminator && one.is_text(); });
  const auto column = static_cast<std::size_t>(metric - data_.metrics.begin());
  std::size_t next = 0;  // of those that live
  for (std::size_t i = 0; i < data_.rows.size(); ++i) {
    const ExplicitRow& row = data_.rows[i];
    if (i == 0 || row.time != data_.rows[i - 1].time)
      next = 0;
    while (next < data_.instances.size() && !lives(data_.instances[next], row.time))
      ++next;
    std::size_t instance = next++;
    if (metric != data_.metrics.end())
      if (const auto named = by_text.find(std::get<std::string>(row.cells[column]));
          named != by_text.end())
        instance = named->second;
    instances_.push_back(instance);
  }
}

std::size_t RowTable::slots() const {
  if (!starts_.empty())
    return starts_.size() - 1;
  if (!data_.live)
    return data_.row_count;
  const std::int64_t age = std::int64_t{std::time(nullptr)} - data_.first_time;
  return std::max<std::size_t>(data_.row_count,
                               age < 0 ? 0 : static_cast<std::size_t>(age / data_.interval) + 1);
}

std::int32_t RowTable::last_x() const {
  return data_.live ? static_cast<std::int32_t>(time(slots() - 1)) : data_.last_x;
}

std::uint32_t RowTable::time(std::size_t slot) const {
  if (!starts_.empty())
    return data_.rows[starts_[slot]].time;
  return data_.first_time +
         static_cast<std::uint32_t>(slot) * static_cast<std::uint32_t>(data_.interval);
}

std::size_t RowTable::slot_from(std::uint32_t wanted) const {
  std::size_t low = 0;
  std::size_t high = slots();
  while (low < high) {
    const std::size_t middle = low + (high - low) / 2;
    if (time(middle) < wanted)
      low = middle + 1;
    else
      high = middle;
  }
  return low;
}

std::size_t RowTable::rows(std::size_t slot) const {
  if (!starts_.empty())
    return starts_[slot + 1] - starts_[slot];
  return std::max<std::size_t>(data_.instances.size(), 1);
}

bool RowTable::has_row(std::size_t slot, std::size_t row) const {
  if (row >= rows(slot))
    return false;
  return !starts_.empty() || row >= data_.instances.size() ||
         lives(data_.instances[row], time(slot));
}

std::optional<std::size_t> RowTable::row_of(std::size_t slot, std::size_t instance) const {
  if (instances_.empty())
    return has_row(slot, instance) ? std::optional(instance) : std::nullopt;
  for (std::size_t row = 0; row < rows(slot); ++row)
    if (instances_[starts_[slot] + row] == instance)
      return row;
  return std::nullopt;
}

Value RowTable::value(std::size_t slot, std::size_t row, std::size_t metric) const {
  if (starts_.empty())
    return std::visit(ModelReader{data_, slot, row}, data_.metrics[metric].model);
  const Cell& cell = data_.rows[starts_[slot] + row].cells[metric];
  if (const auto* text = std::get_if<std::string>(&cell))
    return std::string_view(*text);
  return wire(std::get<std::int64_t>(cell));
}

}  // namespace agent
