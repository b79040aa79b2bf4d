// SPDX-License-Identifier: Apache-2.0
// A view: rows of one class, some of its metrics, at a position that moves on as they are read.
//
// A base view has every row; a filtered view those within its shifts; a temporal view has one row
// for each chosen instance and each interval (counted from 1970, stamped with its start) in which
// the instance has a row within the shifts. Positions are the rows' times; 0xFFFFFFFF stands behind
// the last row.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "agent/repository_status.h"
#include "agent/row_table.h"
#include "agent/shift.h"

namespace agent {

inline constexpr std::uint32_t kEndPosition = 0xFFFFFFFF;

struct ViewDefinition {
  const RowTable* table = nullptr;   // not owned
  std::vector<std::size_t> metrics;  // indexes into the class's metrics, at least one
  std::vector<Shift> shifts;         // empty: no filter
  bool temporal = false;
  std::vector<std::size_t> instances;  // of a temporal view: row numbers within a slot
  std::uint32_t interval = 0;          // of a temporal view; 0: that of the class
};

// How many elements the client's arrays hold.
struct ReadLimits {
  std::uint64_t positions = 0;
  std::uint64_t integers = 0;
  std::uint64_t characters = 0;
};

struct ReadResult {
  RepositoryStatus status = RepositoryStatus::ok;
  std::vector<std::uint32_t> positions;  // with the end mark behind the last row, if it has room
  std::vector<std::uint32_t> integers;   // one for each metric and row, an offset for a text
  std::string characters;                // the texts, each with its zero
};

class View {
 public:
  explicit View(ViewDefinition definition);

  std::uint32_t first_position() const;  // kEndPosition when there is no row
  std::uint32_t last_position() const;
  std::uint32_t position() const;
  // Goes to the first row that is not before `where` and gives its position.
  std::uint32_t set_position(std::uint32_t where);
  std::uint32_t x_interval() const { return interval_; }
  // Gives the interval that is set from now on; the position becomes that of the interval it was
  // in. Of no effect on views that are not temporal.
  std::uint32_t set_x_interval(std::uint32_t interval);

  // Rows from the position on, as many as fit; the next read goes on behind them.
  ReadResult read(const ReadLimits& limits);

 private:
  // Where the view stands: a slot of the table and a row in it (or the number of a chosen
  // instance). `slot` is the first of an interval in a temporal view. At the end: slots().
  struct Cursor {
    std::size_t slot = 0;
    std::size_t row = 0;
  };

  bool at_end(const Cursor& cursor) const { return cursor.slot >= table_.slots(); }
  bool row_at(const Cursor& cursor) const;
  std::size_t rows_at(std::size_t slot) const;
  // One past the slots that a row at `slot` is made of.
  std::size_t group_end(std::size_t slot) const;
  std::uint32_t stamp(std::size_t slot) const;
  void settle(Cursor& cursor) const;
  bool append_row(const Cursor& cursor, const ReadLimits& limits, ReadResult& result) const;
  Value value_at(const Cursor& cursor, std::size_t metric) const;
  Value summary(std::size_t slot, std::size_t instance, std::size_t metric) const;

  const ViewDefinition definition_;
  const RowTable& table_;
  std::uint32_t interval_;
  Cursor cursor_;
};

}  // namespace agent
