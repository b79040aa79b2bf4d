// SPDX-License-Identifier: Apache-2.0
#include "agent/view.h"

#include <algorithm>
#include <limits>

namespace agent {

namespace {

// Puts the numbers of an interval together.
class Accumulator {
 public:
  explicit Accumulator(std::int16_t summary) : summary_(static_cast<Summary>(summary)) {}

  void add(std::int64_t number) {
    sum_ += number;
    greatest_ = std::max(greatest_, number);
    least_ = std::min(least_, number);
    last_ = number;
    ++count_;
  }

  // Sums beyond what 32 bits hold stay at the limit.
  std::uint32_t result() const {
    std::int64_t value = last_;
    switch (summary_) {
      case Summary::average:
        value = count_ == 0 ? 0 : rounded_average();
        break;
      case Summary::sum:
        value = std::clamp<std::int64_t>(sum_, std::numeric_limits<std::int32_t>::min(),
                                         std::numeric_limits<std::int32_t>::max());
        break;
      case Summary::greatest:
        value = greatest_;
        break;
      case Summary::least:
        value = least_;
        break;
      case Summary::last:
        break;
    }
    return static_cast<std::uint32_t>(value);
  }

 private:
  std::int64_t rounded_average() const {
    const std::int64_t half = count_ / 2;
    return (sum_ >= 0 ? sum_ + half : sum_ - half) / count_;
  }

  Summary summary_;
  std::int64_t sum_ = 0;
  std::int64_t greatest_ = std::numeric_limits<std::int64_t>::min();
  std::int64_t least_ = std::numeric_limits<std::int64_t>::max();
  std::int64_t last_ = 0;
  std::int64_t count_ = 0;
};

std::uint32_t chosen_interval(const ViewDefinition& definition) {
  if (definition.temporal && definition.interval != 0)
    return definition.interval;
  return static_cast<std::uint32_t>(definition.table->data().interval);
}

}  // namespace

View::View(ViewDefinition definition)
    : definition_(std::move(definition)),
      table_(*definition_.table),
      interval_(chosen_interval(definition_)) {
  settle(cursor_);
}

std::uint32_t View::stamp(std::size_t slot) const {
  const std::uint32_t time = table_.time(slot);
  return definition_.temporal ? time - time % interval_ : time;
}

std::size_t View::group_end(std::size_t slot) const {
  if (!definition_.temporal)
    return slot + 1;
  const std::uint64_t end = std::uint64_t{stamp(slot)} + interval_;
  if (end > std::numeric_limits<std::uint32_t>::max())
    return table_.slots();
  return table_.slot_from(static_cast<std::uint32_t>(end));
}

std::size_t View::rows_at(std::size_t slot) const {
  return definition_.temporal ? definition_.instances.size() : table_.rows(slot);
}

bool View::row_at(const Cursor& cursor) const {
  const std::size_t end = group_end(cursor.slot);
  for (std::size_t slot = cursor.slot; slot < end; ++slot)
    if (in_any(definition_.shifts, table_.time(slot)) &&
        (definition_.temporal ? table_.row_of(slot, definition_.instances[cursor.row]).has_value()
                              : table_.has_row(slot, cursor.row)))
      return true;
  return false;
}

// Moves on to the next place, this one included, where there is a row.
void View::settle(Cursor& cursor) const {
  while (!at_end(cursor)) {
    for (; cursor.row < rows_at(cursor.slot); ++cursor.row)
      if (row_at(cursor))
        return;
    cursor = {group_end(cursor.slot), 0};
  }
}

std::uint32_t View::first_position() const {
  Cursor cursor;
  settle(cursor);
  return at_end(cursor) ? kEndPosition : stamp(cursor.slot);
}

std::uint32_t View::last_position() const {
  for (std::size_t slot = table_.slots(); slot > 0; --slot) {
    Cursor cursor{slot - 1, 0};
    if (definition_.temporal)
      cursor.slot = table_.slot_from(stamp(slot - 1));
    for (; cursor.row < rows_at(cursor.slot); ++cursor.row)
      if (row_at(cursor))
        return stamp(cursor.slot);
    slot = cursor.slot + 1;
  }
  return kEndPosition;
}

std::uint32_t View::position() const {
  return at_end(cursor_) ? kEndPosition : stamp(cursor_.slot);
}

std::uint32_t View::set_position(std::uint32_t where) {
  const std::uint32_t from = definition_.temporal ? where - where % interval_ : where;
  cursor_ = {table_.slot_from(from), 0};
  settle(cursor_);
  return position();
}

std::uint32_t View::set_x_interval(std::uint32_t interval) {
  if (definition_.temporal) {
    const std::uint32_t where = position();
    interval_ = interval != 0 ? interval : static_cast<std::uint32_t>(table_.data().interval);
    if (where != kEndPosition)
      set_position(where);
  }
  return interval_;
}

ReadResult View::read(const ReadLimits& limits) {
  ReadResult result;
  while (!at_end(cursor_) && append_row(cursor_, limits, result)) {
    ++cursor_.row;
    settle(cursor_);
  }
  if (at_end(cursor_) && result.positions.size() < limits.positions)
    result.positions.push_back(kEndPosition);
  if (result.positions.empty())
    result.status = RepositoryStatus::no_room;
  return result;
}

// False, with nothing changed, when the row does not fit.
bool View::append_row(const Cursor& cursor, const ReadLimits& limits, ReadResult& result) const {
  if (result.positions.size() + 1 > limits.positions ||
      result.integers.size() + definition_.metrics.size() > limits.integers)
    return false;
  const std::size_t integers = result.integers.size();
  const std::size_t characters = result.characters.size();
  for (const std::size_t metric : definition_.metrics) {
    const Value value = value_at(cursor, metric);
    if (const auto* number = std::get_if<std::uint32_t>(&value)) {
      result.integers.push_back(*number);
      continue;
    }
    const auto text = std::get<std::string_view>(value);
    if (result.characters.size() + text.size() + 1 > limits.characters) {
      result.integers.resize(integers);
      result.characters.resize(characters);
      return false;
    }
    result.integers.push_back(static_cast<std::uint32_t>(result.characters.size()));
    result.characters.append(text);
    result.characters.push_back('\0');
  }
  result.positions.push_back(stamp(cursor.slot));
  return true;
}

Value View::value_at(const Cursor& cursor, std::size_t metric) const {
  if (definition_.temporal)
    return summary(cursor.slot, definition_.instances[cursor.row], metric);
  return table_.value(cursor.slot, cursor.row, metric);
}

Value View::summary(std::size_t slot, std::size_t instance, std::size_t metric) const {
  const Metric& described = table_.data().metrics[metric];
  Accumulator numbers(described.summary);
  std::string_view text;
  for (const std::size_t end = group_end(slot); slot < end; ++slot) {
    const auto row = table_.row_of(slot, instance);
    if (!row || !in_any(definition_.shifts, table_.time(slot)))
      continue;
    const Value value = table_.value(slot, *row, metric);
    if (const auto* last_text = std::get_if<std::string_view>(&value))
      text = *last_text;
    else
      numbers.add(static_cast<std::int32_t>(std::get<std::uint32_t>(value)));
  }
  if (described.is_text())
    return text;
  return numbers.result();
}

}  // namespace agent
