// SPDX-License-Identifier: Apache-2.0
#include "agent/recorder/class_rows.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "repView.h"

namespace agent::recorder {

namespace {

constexpr std::uint32_t kNoIndex = 0xFFFFFFFF;
// What one read has room for: what the console asks for at a time, and twice its texts.
constexpr std::size_t kPositions = 256;
constexpr std::size_t kIntegers = 4'096;
constexpr std::size_t kCharacters = 65'536;
// Metrics of one view: several of their rows fit into a read whatever their texts hold.
constexpr std::size_t kMostMetricsOfView = 256;
constexpr std::size_t kTextOfRow = kCharacters / 4;

// A view on the server, destroyed with the object.
class OwnedView {
 public:
  OwnedView() = default;
  ~OwnedView() {
    if (context_ != nullptr)
      call([&](error_status_t* status) { zt_v2_repView_Destroy(&context_, status); });
  }
  OwnedView(const OwnedView&) = delete;
  OwnedView& operator=(const OwnedView&) = delete;

  // The server may hand out a view together with its refusal; that one is destroyed too.
  CallEnd create(const Server& server, std::uint32_t table, std::span<const std::uint32_t> ids) {
    return call([&](error_status_t* status) {
      zt_v2_repView_Create(server.handle(), table, static_cast<std::uint32_t>(ids.size() - 1),
                           ids.data(), &context_, status);
    });
  }
  RPC_CONTEXT_HANDLE get() const { return context_; }

 private:
  RPC_CONTEXT_HANDLE context_ = nullptr;
};

// One reply of a read, and whether it holds what it says.
struct Batch {
  std::vector<std::uint32_t> positions = std::vector<std::uint32_t>(kPositions);
  std::vector<std::uint32_t> integers = std::vector<std::uint32_t>(kIntegers);
  std::vector<char> characters = std::vector<char>(kCharacters);
  std::uint32_t last_position = kNoIndex;
  std::uint32_t last_integer = kNoIndex;
  std::uint32_t last_character = kNoIndex;
  std::size_t rows = 0;
  bool end = false;  // the last row is in it, or there is none

  bool sound(std::size_t metrics) {
    const auto count = [](std::uint32_t last) { return std::size_t{last + 1}; };
    if (count(last_position) > kPositions || count(last_integer) > kIntegers ||
        count(last_character) > kCharacters)
      return false;
    positions.resize(count(last_position));
    characters.resize(count(last_character));
    const auto stop = std::find(positions.begin(), positions.end(), repView_cEndOfData);
    rows = static_cast<std::size_t>(stop - positions.begin());
    end = stop != positions.end() || positions.empty();
    return count(last_integer) >= rows * metrics;
  }

  // Nothing for an offset beyond the texts, or without an end of its text.
  std::optional<std::string> text(std::uint32_t offset) const {
    if (offset >= characters.size())
      return std::nullopt;
    const auto from = characters.begin() + offset;
    const auto stop = std::find(from, characters.end(), '\0');
    if (stop == characters.end())
      return std::nullopt;
    return std::string(from, stop);
  }
};

class Reader {
 public:
  Reader(const Server& server, const ClassData& data, const RowsWanted& wanted, const Walk& walk)
      : server_(server), data_(data), wanted_(wanted), walk_(walk) {}

  RowsHad read() {
    std::size_t first = 0;
    while (first < data_.metrics.size() && had_.failed.ok()) {
      const std::size_t count = metrics_from(first);
      std::vector<ExplicitRow> part = read_part(std::span(data_.metrics).subspan(first, count));
      if (first == 0)
        had_.rows = std::move(part);
      else
        join(std::move(part));
      first += count;
    }
    if (first < data_.metrics.size() || !had_.failed.ok())
      had_.rows.clear();
    return std::move(had_);
  }

 private:
  // How many metrics from the first one on are asked for in one view.
  std::size_t metrics_from(std::size_t first) const {
    std::size_t count = 0;
    std::size_t text = 0;
    for (std::size_t i = first; i < data_.metrics.size() && count < kMostMetricsOfView; ++i) {
      text += data_.metrics[i].is_text() ? data_.metrics[i].length + std::size_t{1} : 0;
      if (count > 0 && text > kTextOfRow)
        break;
      ++count;
    }
    return count;
  }

  bool done(const char* operation, const CallEnd& end) {
    if (end.ok())
      return true;
    had_.operation = operation;
    had_.failed = end;
    return false;
  }

  std::vector<ExplicitRow> read_part(std::span<const Metric> metrics) {
    std::vector<std::uint32_t> ids;
    for (const Metric& metric : metrics)
      ids.push_back(metric.id);
    std::vector<ExplicitRow> rows;
    OwnedView view;
    if (!done("repView_Create", view.create(server_, data_.id, ids)))
      return rows;
    std::uint32_t where = wanted_.from;
    if (!done("repView_SetPosition", call([&](error_status_t* status) {
                zt_v2_repView_SetPosition(view.get(), &where, status);
              })))
      return rows;
    for (bool more = true; more && walk_.ended().empty();)
      more = read_batch(view, metrics, rows);
    return rows;
  }

  // Whether there is more to be had.
  bool read_batch(const OwnedView& view, std::span<const Metric> metrics,
                  std::vector<ExplicitRow>& rows) {
    Batch batch;
    const std::size_t room =
        std::min({kPositions, kIntegers / metrics.size(), wanted_.most - rows.size()});
    CallEnd end = call([&](error_status_t* status) {
      zt_v2_repView_Read(view.get(), static_cast<std::uint32_t>(room - 1), &batch.last_position,
                         kIntegers - 1, &batch.last_integer, kCharacters - 1, &batch.last_character,
                         batch.positions.data(), batch.integers.data(), batch.characters.data(),
                         status);
    });
    end.undecodable = end.undecodable || (end.ok() && !batch.sound(metrics.size()));
    if (!done("repView_Read", end))
      return false;
    for (std::size_t i = 0; i < batch.rows; ++i)
      if (!append(batch, i, metrics, rows))
        return false;
    if (rows.size() < wanted_.most)
      return !batch.end;
    if (wanted_.most > 1 && !batch.end)
      walk_.missing("class " + data_.name + ": more than " + std::to_string(wanted_.most) +
                    " rows; those behind " + std::to_string(rows.back().time));
    return false;
  }

  // Whether the row is one of those that are wanted, and more may follow it.
  bool append(const Batch& batch, std::size_t number, std::span<const Metric> metrics,
              std::vector<ExplicitRow>& rows) {
    ExplicitRow row;
    row.time = batch.positions[number];
    if (row.time > wanted_.to)
      return false;
    if (!rows.empty() && row.time < rows.back().time) {
      walk_.missing("class " + data_.name + ": rows go back in time; those behind " +
                    std::to_string(rows.back().time));
      return false;
    }
    std::size_t octets = 0;
    for (std::size_t i = 0; i < metrics.size(); ++i) {
      const std::uint32_t value = batch.integers[number * metrics.size() + i];
      if (!metrics[i].is_text()) {
        row.cells.emplace_back(std::int64_t{static_cast<std::int32_t>(value)});
        continue;
      }
      auto text = batch.text(value);
      if (!text)
        return done("repView_Read", {RPC_S_OK, {}, true});
      octets += text->size();
      row.cells.emplace_back(*std::move(text));
    }
    if (!walk_.room->take(metrics.size() + 1, octets)) {
      walk_.missing("class " + data_.name + ": no more rows fit into a scenario; those from " +
                    std::to_string(row.time) + " on");
      return false;
    }
    rows.push_back(std::move(row));
    return true;
  }

  // Puts the cells of further metrics behind those of the same rows. A class that grew meanwhile
  // has rows at its end that not all parts have.
  void join(std::vector<ExplicitRow> part) {
    std::size_t same = 0;
    while (same < had_.rows.size() && same < part.size() &&
           had_.rows[same].time == part[same].time) {
      auto& cells = had_.rows[same].cells;
      std::move(part[same].cells.begin(), part[same].cells.end(), std::back_inserter(cells));
      ++same;
    }
    if (same < had_.rows.size() && had_.failed.ok())
      walk_.missing("class " + data_.name + ": " + std::to_string(had_.rows.size() - same) +
                    " rows that were not the same when they were read again");
    had_.rows.resize(same);
  }

  const Server& server_;
  const ClassData& data_;
  const RowsWanted wanted_;
  const Walk& walk_;
  RowsHad had_;
};

}  // namespace

RowsHad read_rows(const Server& server, const ClassData& data, const RowsWanted& wanted,
                  const Walk& walk) {
  return Reader(server, data, wanted, walk).read();
}

}  // namespace agent::recorder
