// SPDX-License-Identifier: Apache-2.0
// The manager's cross-reference table: entry 0 belongs to the sort, entries 1 to fSystemRecCount
// hold the systems in the order of their keys, and the entry behind them is a terminator. The last
// few may be out of order: systems that were inserted since the table was built. It is a picture of
// the file as of one value of the change counter.

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "source/sysdb/ZTsysInfoObj.h"

namespace {

constexpr int kTableStep = 100;  // entries by which the table grows

// So many inserted systems are searched one by one before all are put in order: shared among them,
// a sort costs little however long the table is.
constexpr int kMostUnordered = 256;

}  // namespace

int zt_SystemDBMgt_class::CheckSystemXrefTable() {
  const int value = CounterValue();
  if (value == fSemaphoreValue && fXrefSynced != 0)
    return 0;
  if (value == fSemaphoreValue && fInsertedSystem && FileIsAsSeen()) {
    TakeInInsertedSystem();
    return 1;
  }
  // Taken before the file is read: a change during the build moves the counter again.
  fSemaphoreValue = value;
  InitSystemXrefTable();
  return 1;
}

bool zt_SystemDBMgt_class::FileIsAsSeen() const {
  sys::tFILE_STAMP now;
  return fIndexDataObj->File().GetStamp(now) == 0 && now == fFileStamp;
}

// Whether a table built now would not differ. The counter alone does not tell: a writer may have
// died between its change and the counter, or the counter have gone round.
bool zt_SystemDBMgt_class::TableIsCurrent() const {
  return fXrefSynced != 0 && CounterValue() == fSemaphoreValue && FileIsAsSeen();
}

void zt_SystemDBMgt_class::InitSystemXrefTable() {
  const std::size_t capacity = fSystemXrefTable.empty() ? kTableStep : fSystemXrefTable.size();
  fSystemXrefTable.clear();
  fNames.Clear();
  fSystemXrefTable.resize(capacity);
  fXrefEntriesAvail = static_cast<int>(capacity) - 1;

  fInsertedSystem.reset();
  fFileStamp = {};
  fIndexDataObj->File().GetStamp(fFileStamp);
  // A file may claim any length: what is beyond this many grows as it is found.
  constexpr std::int64_t kMostExpected = 1 << 20;
  fSystemXrefTable.reserve(static_cast<std::size_t>(
      std::clamp<std::int64_t>(fFileStamp.length / kSlotSize, 0, kMostExpected) + kTableStep));
  BuildSystemXrefTable();
}

// A table that a failed read cut short is none: nobody may take a system for absent by it. The next
// check builds it anew.
void zt_SystemDBMgt_class::BuildSystemXrefTable() {
  std::size_t next = 1;
  fNoHoleBefore = kSlotSize;
  SlotWalk walk(fIndexDataObj->File());
  for (const char* slot = walk.Next(); slot != nullptr; slot = walk.Next()) {
    const auto location = static_cast<std::int32_t>(walk.location());
    // The version record, also when damage has given it another key: a user must not delete it.
    if (slot[0] == kIndexSlotDeleted || location == kVersionLocation)
      continue;
    GrowSystemXrefTable();
    const char* name = slot + 1 + sizeof(SystemKey);
    fSystemXrefTable[next++] =
        SYSTEM_XREF_ENTRY(fNames, std::string_view(name, strnlen(name, kSystemNameSize - 1)),
                          ConvertSystemKey(slot + 1), location);
    --fXrefEntriesAvail;
    if (location == fNoHoleBefore)
      fNoHoleBefore += kSlotSize;
  }
  fTableStatus = walk.status() == sys::tFILE_ERRORS::cEOF ? 0 : walk.status();
  if (fTableStatus != 0)
    next = 1;
  fSystemXrefTable[next] = SYSTEM_XREF_ENTRY();
  fSystemRecCount = static_cast<int>(next - 1);
  fOrderedCount = 0;
  fKeys.clear();
  OrderXrefTable();
  fXrefSynced = fTableStatus == 0;
}

void zt_SystemDBMgt_class::OrderXrefTable() {
  if (fOrderedCount == fSystemRecCount)
    return;
  SortSysList(fSystemXrefTable.data(), fSystemRecCount);
  fOrderedCount = fSystemRecCount;
  fKeys.resize(static_cast<std::size_t>(fSystemRecCount));
  std::transform(fSystemXrefTable.begin() + 1, fSystemXrefTable.begin() + 1 + fSystemRecCount,
                 fKeys.begin(), [](const SYSTEM_XREF_ENTRY& entry) { return entry.fKey; });
}

int zt_SystemDBMgt_class::SyncWithFile() {
  if (!TableIsCurrent()) {
    fSemaphoreValue = CounterValue();
    InitSystemXrefTable();
  }
  return fError = fTableStatus;
}

// Makes room for one more entry and the terminator.
void zt_SystemDBMgt_class::GrowSystemXrefTable() {
  if (fXrefEntriesAvail >= 2)
    return;
  // The steps are the table's; its memory grows by halves, so that copying stays linear.
  if (fSystemXrefTable.size() + kTableStep > fSystemXrefTable.capacity())
    fSystemXrefTable.reserve(fSystemXrefTable.size() * 3 / 2 + kTableStep);
  fSystemXrefTable.resize(fSystemXrefTable.size() + kTableStep);
  fXrefEntriesAvail += kTableStep;
}

// What a new build would make of the table, but for the order of the last entries.
void zt_SystemDBMgt_class::TakeInInsertedSystem() {
  GrowSystemXrefTable();
  fKeys.push_back(fInsertedSystem->fKey);
  fSystemXrefTable[static_cast<std::size_t>(++fSystemRecCount)] = std::move(*fInsertedSystem);
  fInsertedSystem.reset();
  --fXrefEntriesAvail;
  fXrefSynced = 1;
  if (fSystemRecCount - fOrderedCount > kMostUnordered)
    OrderXrefTable();
}

int zt_SystemDBMgt_class::IndexOf(SystemKey key) const {
  if (fKeys.empty())
    return -1;
  // Without a branch that depends on a key: which way is taken cannot be foreseen.
  const SystemKey* at = fKeys.data();
  for (auto count = static_cast<std::size_t>(fOrderedCount); count > 1; count -= count / 2)
    at += at[count / 2 - 1] < key ? count / 2 : 0;
  const SystemKey* const end = fKeys.data() + fKeys.size();
  if (*at != key)
    at = std::find(fKeys.data() + fOrderedCount, end, key);
  const auto index = static_cast<std::size_t>(at - fKeys.data()) + 1;
  return at != end && fSystemXrefTable[index].fLocation != -1 ? static_cast<int>(index) : -1;
}

void zt_SystemDBMgt_class::SetTableName(SystemKey key, const char* name) {
  if (const int index = IndexOf(key); index >= 1)
    fSystemXrefTable[static_cast<std::size_t>(index)].SetSystemName(name);
}
