// SPDX-License-Identifier: Apache-2.0
// Inserts by the thousand: holes are filled slot by slot, and what is left goes behind the end in
// large writes. A process that is killed within such a write leaves the slots before that place, and
// part of one, which is no record.

#include <algorithm>
#include <cstring>
#include <ctime>

#include "source/sysdb/ZTsignalsBlocked.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

constexpr std::uint32_t kSlotsPerWrite = 1024 * 1024 / kSlotSize;

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
  SlotWalk walk(file, static_cast<std::uint32_t>(fNoHoleBefore));
  std::vector<char> slot(kSlotSize);
  for (const char* there = walk.Next(); there != nullptr; there = walk.Next()) {
    if (there[0] != kIndexSlotDeleted)
      continue;
    if (!next_slot(slot))
      return fError = 0;
    const SignalsBlocked together;
    if (fError = file.WriteOverDeleted(walk.location(), slot); fError != 0)
      return fError;
    RaiseChangeCounter();
    ++added;
  }
  if (walk.status() != sys::tFILE_ERRORS::cEOF)
    return fError = walk.status();
  return fError = AppendSystems(next_slot, added);
}

int zt_SystemDBMgt_class::AppendSystems(const std::function<bool(std::vector<char>&)>& next_slot,
                                        int& added) {
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
