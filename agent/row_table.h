// SPDX-License-Identifier: Apache-2.0
// The rows of a class: at which times there are any, and what each metric says in them. Rows by
// model are computed when they are read and take no memory.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <variant>
#include <vector>

#include "agent/scenario.h"

namespace agent {

// A number as it travels (negative ones in two's complement), or a text that lives as long as the
// class.
using Value = std::variant<std::uint32_t, std::string_view>;

// Times are counted as slots from 0, in rising order; each slot has one row, or one for each
// instance of the class.
class RowTable {
 public:
  // The class is not owned.
  explicit RowTable(const ClassData& data);

  const ClassData& data() const { return data_; }
  std::size_t slots() const;
  // What the descriptor says of the last position.
  std::int32_t last_x() const;
  std::uint32_t time(std::size_t slot) const;
  // The first slot that is not before `time`; slots() when there is none.
  std::size_t slot_from(std::uint32_t time) const;
  std::size_t rows(std::size_t slot) const;
  // Whether the slot's row number `row` exists: by a model, that of an instance only within its
  // life.
  bool has_row(std::size_t slot, std::size_t row) const;
  // The row of an instance; nothing when it has none in this slot. Rows that the file spells out
  // belong to the instance that their discriminator names, else in turn to those that live then.
  std::optional<std::size_t> row_of(std::size_t slot, std::size_t instance) const;
  // `metric` is an index into the class's metrics, `row` below rows(slot).
  Value value(std::size_t slot, std::size_t row, std::size_t metric) const;

 private:
  void find_instances();

  const ClassData& data_;
  std::vector<std::size_t> starts_;     // explicit rows: where each slot begins, and the end
  std::vector<std::size_t> instances_;  // of each of them, in a class with instances
};

}  // namespace agent
