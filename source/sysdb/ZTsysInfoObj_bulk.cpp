// SPDX-License-Identifier: Apache-2.0
// Inserts and changes by the thousand, which wait for the device at their end. Holes are filled
// slot by slot, and what is left goes behind the end in large writes. A process that is killed
// within such a write leaves the slots before that place, and part of one, which is no record.

#include <algorithm>
#include <cstring>
#include <ctime>

#include "source/sysdb/ZTsignalsBlocked.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

constexpr std::uint32_t kSlotsPerWrite = 1024 * 1024 / kSlotSize;

// Slots on two pages that are filled before the device is waited for and they become live.
constexpr std::size_t kMostFilled = 256;

}  // namespace

int zt_SystemDBMgt_class::AddSystemRecs(
    const std::function<bool(SystemKey&, zt_SystemInfo_struct&)>& next, int& added) {
  added = 0;
  if (fReadOnly)
    return fError = sys::tFILE_ERRORS::cACCESS;
  const auto now = static_cast<std::int32_t>(std::time(nullptr));
  const auto next_slot = [&](std::vector<char>& slot) {
    SystemKey key = kNoSystemKey;
    zt_SystemInfo_struct record{};
    if (!next(key, record))
      return false;
    record.fRecUpdateTime = now;
    slot[0] = kIndexSlotLive;
    std::memcpy(slot.data() + 1, &key, sizeof key);
    std::memcpy(slot.data() + 1 + sizeof key, &record, sizeof record);
    return true;
  };
  SlotFile& file = fIndexDataObj->File();
  file.DeferSync();
  fError = FillHoles(next_slot, added);
  if (fError == sys::tFILE_ERRORS::cEOF)
    fError = AppendSystems(next_slot, added);
  const int synced = file.Sync();
  if (synced != 0)
    added = 0;
  return fError = fError != 0 ? fError : synced;
}

// cEOF: there are no further holes.
int zt_SystemDBMgt_class::FillHoles(const NextSlot& next_slot, int& added) {
  SlotFile& file = fIndexDataObj->File();
  SlotWalk walk(file, static_cast<std::uint32_t>(fNoHoleBefore));
  std::vector<char> slot(kSlotSize);
  std::vector<std::uint32_t> filled;
  int status = 0;
  for (const char* there = walk.Next(); status == 0; there = walk.Next()) {
    if (there == nullptr) {
      status = walk.status();
      break;
    }
    if (there[0] != kIndexSlotDeleted)
      continue;
    if (!next_slot(slot))
      break;
    const SignalsBlocked together;
    const bool on_two_pages = file.IsOnTwoPages(walk.location());
    if (on_two_pages)
      slot[0] = kIndexSlotDeleted;
    if (status = file.Write(walk.location(), slot.data()); status != 0)
      break;
    if (on_two_pages)
      filled.push_back(walk.location());
    else
      ++added;
    RaiseChangeCounter();
    if (filled.size() == kMostFilled)
      status = MakeLive(filled, added);
  }
  const int made = MakeLive(filled, added);
  return made != 0 ? made : status;
}

// Takes the status "deleted" off slots whose records are on the device by then: a power failure
// leaves none of them half.
int zt_SystemDBMgt_class::MakeLive(std::vector<std::uint32_t>& filled, int& added) {
  if (filled.empty())
    return 0;
  SlotFile& file = fIndexDataObj->File();
  int status = file.Sync();
  file.DeferSync();
  const SignalsBlocked together;
  for (const std::uint32_t location : filled)
    if (status == 0)
      status = file.WriteState(location, kIndexSlotLive);
  RaiseChangeCounter();
  added += status == 0 ? static_cast<int>(filled.size()) : 0;
  filled.clear();
  return status;
}

int zt_SystemDBMgt_class::AppendSystems(const NextSlot& next_slot, int& added) {
  SlotFile& file = fIndexDataObj->File();
  std::uint32_t end = 0;
  if (const int status = file.End(end); status != 0)
    return status;
  std::vector<char> slot(kSlotSize);
  std::vector<char> slots;
  for (bool more = true; more;) {
    slots.clear();
    std::uint32_t count = 0;
    while (count < kSlotsPerWrite && (more = next_slot(slot))) {
      slots.insert(slots.end(), slot.begin(), slot.end());
      ++count;
    }
    if (count == 0)
      break;
    if (file.IsEndOfLocations(end + (count - 1) * kSlotSize))
      return sys::tFILE_ERRORS::cFULL;
    const SignalsBlocked together;
    if (const int status = file.Write(end, slots.data(), count); status != 0)
      return status;
    RaiseChangeCounter();
    end += count * kSlotSize;
    added += static_cast<int>(count);
  }
  return 0;
}

int zt_SystemDBMgt_class::UpdateSystemRecs(const std::function<const zt_SystemInfo_class*()>& next,
                                           int& updated) {
  SlotFile& file = fIndexDataObj->File();
  file.DeferSync();
  updated = 0;
  int status = 0;
  for (const auto* info = next(); info != nullptr && status == 0; info = next()) {
    status = PutSystemRec(*info);
    updated += status == 0 ? 1 : 0;
  }
  const int synced = file.Sync();
  if (synced != 0)
    updated = 0;
  return fError = status != 0 ? status : synced;
}
