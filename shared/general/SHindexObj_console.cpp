// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): records by their
// keys, and a count of them.

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "shared/general/SHindexObj.h"

namespace {

int gDebugLevel = 0;

}  // namespace

// The cursor is left at the start of the found slot, whose image is in fSlot.
int INDEX_DATA_OBJ::FindRecord(const char* key, std::int32_t& location) {
  location = -1;
  SlotWalk walk(fFile);
  const char* slot = walk.Next();
  while (slot != nullptr && (slot[0] == kIndexSlotDeleted ||
                             std::memcmp(slot + 1, key, static_cast<std::size_t>(SizeOfKeys)) != 0))
    slot = walk.Next();
  fReadStatus = walk.status();
  if (slot == nullptr)
    return kIndexNotFound;
  std::copy_n(slot, RecordSize, fSlot.data());
  fPosition = walk.location();
  location = static_cast<std::int32_t>(fPosition);
  return 0;
}

int INDEX_DATA_OBJ::GetRecByKey(const char* key, char* record, std::int32_t& location) {
  if (FindRecord(key, location) != 0)
    return kIndexNotFound;
  std::copy_n(fSlot.data() + 1 + SizeOfKeys, SizeOfRecords, record);
  return 0;
}

int INDEX_DATA_OBJ::GetRec(const char* key, int key_size, char* record, int& record_size) {
  std::int32_t location;
  return GetRec(key, key_size, record, record_size, location);
}

int INDEX_DATA_OBJ::GetRec(const char* key, int key_size, char* record, int& record_size,
                           std::int32_t& location) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (CheckSizes(key_size, record_size) != 0)
    return SetResult(kIndexWrongSize);
  return SetResult(GetRecByKey(key, record, location));
}

int INDEX_DATA_OBJ::PutRec(const char* key, int key_size, const char* record, int record_size) {
  std::int32_t location;
  return PutRec(key, key_size, record, record_size, location);
}

int INDEX_DATA_OBJ::PutRec(const char* key, int key_size, const char* record, int record_size,
                           std::int32_t& location) {
  return PutRec(key, key_size, record, record_size, location, 0);
}

int INDEX_DATA_OBJ::ReplaceRec(const char* key, int key_size, const char* record, int record_size) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (CheckSizes(key_size, record_size) != 0)
    return SetResult(kIndexWrongSize);
  std::int32_t location;
  if (FindRecord(key, location) != 0)
    return SetResult(kIndexNotFound);
  fSlot[0] = kIndexSlotLive;
  std::copy_n(record, SizeOfRecords, fSlot.data() + 1 + SizeOfKeys);
  return SetResult(WriteSlot());
}

int INDEX_DATA_OBJ::DeleteRec(const char* key, int /*key_size*/) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  std::int32_t location;
  if (FindRecord(key, location) != 0)
    return SetResult(kIndexNotFound);
  FillDeletedSlot();
  return SetResult(WriteSlot());
}

int INDEX_DATA_OBJ::GetFirstRec(char* key, int& key_size, char* record, int& record_size) {
  std::int32_t location;
  return GetFirstRec(key, key_size, record, record_size, location);
}

int INDEX_DATA_OBJ::GetNextRec(char* key, int& key_size, char* record, int& record_size) {
  std::int32_t location;
  return GetNextRec(key, key_size, record, record_size, location);
}

int INDEX_DATA_OBJ::GetNumberOfEntries(int& number_of_entries, char* key, int& key_size,
                                       char* record, int& record_size) {
  number_of_entries = 0;
  if (ValidObj == 0)
    return kIndexNotValid;
  int status = GetFirstRec(key, key_size, record, record_size);
  if (status != 0 || record_size == 0)
    return status;
  do {
    ++number_of_entries;
    status = GetNextRec(key, key_size, record, record_size);
  } while (status == 0 && record_size > 0);
  return record_size == 0 ? 0 : status;
}

int INDEX_DATA_OBJ::ReturnRecAndKey(const char* key, char* record) {
  std::int32_t location;
  return SetResult(ValidObj == 0 ? kIndexNotFound : GetRecByKey(key, record, location));
}

void INDEX_DATA_OBJ::PrintDebugInfo(const char* string) const {
  if (fDebugLevel == 1 && fDebugLevel != gDebugLevel) {
    std::fputs("\n", stderr);
    gDebugLevel = fDebugLevel;
  }
  std::fprintf(stderr, "obj-%-3d [%d] %*s%s\n", fNumber, fDebugLevel, (fDebugLevel + 1) * 3, " ",
               string);
  std::fflush(stderr);
}
