// SPDX-License-Identifier: Apache-2.0
// ztsys import: the systems of a CSV file with a heading, or of a list with a name or an address a
// line. Each bad line is named; all others go in, in one opening of the database and under one
// lock.

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <limits>
#include <unordered_map>
#include <unordered_set>

#include "source/support/ZTprintable.h"
#include "tools/ztsys/csv.h"
#include "tools/ztsys/database.h"
#include "tools/ztsys/fields.h"
#include "tools/ztsys/host_names.h"
#include "tools/ztsys/new_system.h"
#include "tools/ztsys/text_lines.h"

namespace ztsys {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

enum Column : std::size_t { kName, kAddress, kGroup, kType, kColumnCount };
constexpr std::array<std::string_view, kColumnCount> kColumnNames = {"name", "address", "group",
                                                                     "type"};

// A line that may become a system. Empty texts leave the fields of a system that is there alone.
struct Row {
  int line = 0;
  SystemKey key = kNoSystemKey;
  std::string name;
  std::string group;
  std::string type;
};

// The lines of a file, and those that are wrong.
class Import {
 public:
  explicit Import(const Arguments& arguments) : arguments_(arguments) {
    file_ = arguments.operands[0] == "-" ? "standard input" : arguments.operands[0];
  }

  Status Read();
  // Takes the rows into the database, or only says what would be.
  Status Store();
  void Report() const {
    std::printf("%d added, %d updated, %d unchanged, %d failed\n", added_, updated_, unchanged_,
                failed_);
  }
  int failed() const { return failed_; }

 private:
  void Bad(int line, const std::string& why) {
    ++failed_;
    Fail(file_ + ':' + std::to_string(line) + ": " + why);
  }
  Status ReadLines(std::istream& in);
  Status TakeHeading(const std::vector<std::string>& cells, int line, bool& is_heading);
  void TakeCells(const std::vector<std::string>& cells, int line);
  void LookUp();
  Status CollectPresent(SystemReader& reader);
  using Changes = std::vector<const zt_SystemInfo_class*>;  // of present_
  void Sort(Changes& changes);
  bool Change(zt_SystemInfo_class& info, const Row& row) const;
  Status Preview();
  Status Write();
  // The database could not be read: every row that is left has failed.
  Status NothingStored(Status why);

  const Arguments& arguments_;
  std::string file_;
  std::array<std::size_t, kColumnCount> columns_{};  // where each is in a line, or beyond
  std::size_t width_ = 1;                            // cells of a line
  std::vector<Row> rows_;
  std::vector<std::size_t> to_look_up_;
  std::unordered_map<SystemKey, zt_SystemInfo_class> present_;
  std::vector<std::size_t> new_;  // rows
  int added_ = 0;
  int updated_ = 0;
  int unchanged_ = 0;
  int failed_ = 0;
};

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return text;
}

std::string Trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" \t");
  return first == std::string::npos ? ""
                                    : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// As the command line has it, and any other number that a record may hold: list --csv writes the
// types that nobody knows as numbers.
std::optional<int> ParseTypeCell(const std::string& text) {
  if (const auto type = ParseType(text))
    return type;
  std::int16_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size())
    return number;
  return std::nullopt;
}

std::string WithoutNone(const std::string& text) {
  return text == kNone ? "" : text;
}

Status Import::Read() {
  Status status = kDone;
  if (arguments_.operands[0] == "-") {
    status = ReadLines(std::cin);
  } else {
    std::ifstream in(arguments_.operands[0], std::ios::binary);
    if (!in)
      return Fail(file_ + ": " + std::strerror(errno));
    status = ReadLines(in);
  }
  if (status == kDone)
    LookUp();
  return status;
}

Status Import::ReadLines(std::istream& in) {
  columns_.fill(std::numeric_limits<std::size_t>::max());
  columns_[kName] = 0;
  std::string text;
  std::vector<std::string> cells;
  bool first = true;
  bool csv = false;
  for (int line = 1; ReadLine(in, text); ++line) {
    const bool too_long = text.size() > kLongestLine;
    if (too_long)
      in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    if (line == 1 && text.starts_with(kByteOrderMark))
      text.erase(0, kByteOrderMark.size());
    if (text.ends_with('\r'))
      text.pop_back();
    if (Trimmed(text).empty() || text[0] == '#')
      continue;
    if (too_long) {
      Bad(line, "the line is longer than " + std::to_string(kLongestLine) + " octets");
    } else if (!SplitCsv(text, cells)) {
      Bad(line, "a quotation mark is not closed, or text follows it");
    } else if (first) {
      if (const Status status = TakeHeading(cells, line, csv); status != kDone)
        return status;
      if (!csv)
        TakeCells({text}, line);
    } else {
      TakeCells(csv ? cells : std::vector<std::string>{text}, line);
    }
    first = false;
  }
  return in.bad() ? Fail(file_ + ": cannot be read: " + std::strerror(errno)) : kDone;
}

// A first line with the word "name" for a cell is a heading; all its cells must then be columns.
Status Import::TakeHeading(const std::vector<std::string>& cells, int line, bool& is_heading) {
  is_heading = std::any_of(cells.begin(), cells.end(), [](const std::string& cell) {
    return Lower(Trimmed(cell)) == kColumnNames[kName];
  });
  if (!is_heading && cells.size() > 1)
    return Fail(file_ + ':' + std::to_string(line) +
                    ": the first line of a CSV file names its columns: name,address,group,type",
                kUsage);
  if (!is_heading)
    return kDone;
  columns_.fill(std::numeric_limits<std::size_t>::max());
  width_ = cells.size();
  for (std::size_t at = 0; at < cells.size(); ++at) {
    const std::string name = Lower(Trimmed(cells[at]));
    const auto column = std::find(kColumnNames.begin(), kColumnNames.end(), name);
    const auto index = static_cast<std::size_t>(column - kColumnNames.begin());
    if (column == kColumnNames.end() || columns_[index] < cells.size())
      return Fail(file_ + ':' + std::to_string(line) + ": column '" + name + "' is " +
                      (column == kColumnNames.end() ? "unknown" : "there twice") +
                      "; columns are name, address, group and type",
                  kUsage);
    columns_[index] = at;
  }
  return kDone;
}

void Import::TakeCells(const std::vector<std::string>& cells, int line) {
  const auto cell = [&](Column column) {
    return columns_[column] < cells.size() ? Trimmed(cells[columns_[column]]) : std::string();
  };
  Row row{line, kNoSystemKey, cell(kName), cell(kGroup), cell(kType)};
  const std::string address = cell(kAddress);
  std::string why;
  if (cells.size() > width_)
    why = "more cells than columns";
  else if (row.name.empty())
    why = "no name";
  else if (why = RefusalOf("name", row.name, kSystemNameSize); why.empty())
    why = RefusalOf("group", row.group, kGroupNameSize);
  if (why.empty() && !row.type.empty() && !ParseTypeCell(row.type))
    why = RefusalOfType(row.type);
  const bool look_up = why.empty() && address.empty() && !LooksLikeAddress(row.name);
  if (why.empty() && !look_up)
    AddressOf(row.name, address.empty() ? std::nullopt : std::optional(address), row.key, why);
  if (!why.empty())
    return Bad(line, why);
  if (look_up)
    to_look_up_.push_back(rows_.size());
  rows_.push_back(std::move(row));
}

void Import::LookUp() {
  std::vector<std::string> names;
  for (const std::size_t index : to_look_up_)
    names.push_back(rows_[index].name);
  const Addresses addresses = LookUpAddresses(std::move(names));
  for (const std::size_t index : to_look_up_) {
    Row& row = rows_[index];
    const auto at = addresses.find(row.name);
    std::string why;
    if (at == addresses.end())
      why = RefusalOfUnresolved(row.name);
    else
      why = RefusalOfAddress(row.key = at->second);
    if (!why.empty()) {
      Bad(row.line, why);
      row.key = kNoSystemKey;
    }
  }
  std::erase_if(rows_, [](const Row& row) { return row.key == kNoSystemKey; });
}

// Those of the rows' systems that the database has.
Status Import::CollectPresent(SystemReader& reader) {
  std::vector<SystemKey> keys;
  for (const Row& row : rows_)
    keys.push_back(row.key);
  std::sort(keys.begin(), keys.end());
  return ForEachSystem(reader, [&](const zt_SystemInfo_class& info) {
    if (std::binary_search(keys.begin(), keys.end(), info.ReturnSystemKey()))
      present_.emplace(info.ReturnSystemKey(), info);
  });
}

// Whether the row changes anything in the system.
bool Import::Change(zt_SystemInfo_class& info, const Row& row) const {
  const zt_SystemInfo_class before = info;
  info = WithName(info, row.name);
  if (!row.group.empty())
    info.SetGroupName(WithoutNone(row.group).c_str());
  if (!row.type.empty())
    info.SetSystemType(*ParseTypeCell(row.type));
  SystemKey key = kNoSystemKey;
  const zt_SystemInfo_struct a = before.ReturnStruct(key);
  const zt_SystemInfo_struct b = info.ReturnStruct(key);
  return std::memcmp(&a, &b, sizeof a) != 0;
}

// Tells new systems from changes, and what is wrong with the rest. A system that stands twice in
// the file is there already when its second line comes.
void Import::Sort(Changes& changes) {
  std::unordered_map<SystemKey, std::size_t> added;
  std::unordered_set<SystemKey> changed;
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    Row& row = rows_[i];
    const auto present = present_.find(row.key);
    const auto earlier = added.find(row.key);
    if (present == present_.end() && earlier == added.end()) {
      added.emplace(row.key, i);
      new_.push_back(i);
    } else if (!arguments_.update) {
      Bad(row.line, earlier != added.end()
                        ? AddressText(row.key) + " is on line " +
                              std::to_string(rows_[earlier->second].line) + " already"
                        : NameAndAddress(present->second) + " is in the database already");
    } else if (earlier != added.end()) {
      Row& first = rows_[earlier->second];
      first.name = row.name;
      if (!row.group.empty())
        first.group = row.group;
      if (!row.type.empty())
        first.type = row.type;
      ++updated_;
    } else if (!Change(present->second, row)) {
      ++unchanged_;
    } else if (changed.insert(row.key).second) {
      changes.push_back(&present->second);
    } else {
      ++updated_;
    }
  }
}

Status Import::Store() {
  if (arguments_.dry_run)
    return Preview();
  return rows_.empty() ? kDone : Write();
}

Status Import::NothingStored(Status why) {
  failed_ += static_cast<int>(rows_.size());
  return why;
}

Status Import::Preview() {
  SystemReader reader;
  Status status = kDone;
  // A database that is missing would be made.
  if (reader.Open(DatabasePath(arguments_)) != sys::tFILE_ERRORS::cMISSING) {
    status = OpenReader(arguments_, reader);
    if (status == kDone)
      status = CollectPresent(reader);
  }
  if (status != kDone)
    return NothingStored(status);
  Changes changes;
  Sort(changes);
  added_ = static_cast<int>(new_.size());
  updated_ += static_cast<int>(changes.size());
  return status;
}

Status Import::Write() {
  Status status = kDone;
  const auto change = ztsys::Change::Begin(arguments_, Missing::kCreate, status);
  if (change == nullptr)
    return NothingStored(status);
  SystemReader reader;
  status = OpenReader(arguments_, reader);
  if (status == kDone)
    status = CollectPresent(reader);
  if (status != kDone)
    return NothingStored(status);
  Changes changes;
  Sort(changes);
  auto changed = changes.begin();
  int updated = 0;
  int error = change->db().Manager().UpdateSystemRecs(
      [&]() { return changed == changes.end() ? nullptr : *changed++; }, updated);
  updated_ += updated;
  if (error != 0) {
    failed_ += static_cast<int>(changes.size() + new_.size()) - updated;
    return change->Fail("cannot change all systems", error);
  }
  auto next = new_.begin();
  error = change->db().Manager().AddSystemRecs(
      [&](SystemKey& key, zt_SystemInfo_struct& record) {
        if (next == new_.end())
          return false;
        const Row& row = rows_[*next++];
        key = row.key;
        record = NewRecord(row.name, WithoutNone(row.group),
                           row.type.empty() ? 0 : *ParseTypeCell(row.type));
        return true;
      },
      added_);
  if (error == 0)
    return kDone;
  failed_ += static_cast<int>(new_.size()) - added_;
  return change->Fail("cannot add all systems", error);
}

}  // namespace

Status RunImport(const Arguments& arguments) {
  Import import(arguments);
  if (const Status status = import.Read(); status != kDone)
    return status;
  const Status status = import.Store();
  import.Report();
  return status == kDone && import.failed() > 0 ? kFailed : status;
}

}  // namespace ztsys
