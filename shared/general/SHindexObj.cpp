// SPDX-License-Identifier: Apache-2.0
#include "shared/general/SHindexObj.h"

#include <algorithm>
#include <string>

#include "platform/sys/native_path.h"

using sys::tFILE_ERRORS;

namespace {

constexpr int kMaxSlotSize = 1024 * 1024;

int gObjectNumber = 0;

}  // namespace

int INDEX_DATA_OBJ::fDebugLevel = 0;

INDEX_DATA_OBJ::INDEX_DATA_OBJ(const char* file_name, int key_size, int record_size)
    : fNumber(++gObjectNumber) {
  OpenDataBase(file_name, key_size, record_size);
}

INDEX_DATA_OBJ::~INDEX_DATA_OBJ() = default;

void INDEX_DATA_OBJ::OpenDataBase(const char* file_name, int key_size, int record_size) {
  if (file_name == nullptr || key_size < 0 || record_size < 0 || key_size > kMaxSlotSize ||
      record_size > kMaxSlotSize) {
    Error = kIndexWrongSize;
    return;
  }
  SizeOfRecords = record_size;
  SizeOfKeys = key_size;
  RecordSize = static_cast<std::uint32_t>(record_size + key_size + 1);
  fSlot.resize(RecordSize);

  Error = fFile.Open(file_name, RecordSize);
  if (Error == 0) {
    const int status = fFile.OpenLockFile();
    fLockFileOpened = status == 0 ? 1 : 0;
    if (status == tFILE_ERRORS::cACCESS && !sys::may_write(std::string(file_name) + ".lk"))
      Error = status;
  }
  if (Error == tFILE_ERRORS::cACCESS)
    Error = fFile.OpenReadOnly(file_name, RecordSize);
  ValidObj = Error == 0 ? 1 : 0;
}

int INDEX_DATA_OBJ::CheckSizes(int key_size, int record_size) const {
  return record_size == SizeOfRecords && key_size == SizeOfKeys ? 0 : kIndexWrongSize;
}

// The cursor stands behind what was read or written.
int INDEX_DATA_OBJ::ReadSlot() {
  const int status = fFile.Read(fPosition, fSlot.data());
  if (status == 0)
    fPosition += RecordSize;
  return status;
}

int INDEX_DATA_OBJ::WriteSlot() {
  if (fFile.IsReadOnly())
    return tFILE_ERRORS::cACCESS;
  const int status = fFile.Write(fPosition, fSlot.data());
  if (status == 0)
    fPosition += RecordSize;
  return status;
}

void INDEX_DATA_OBJ::FillSlot(char state, const char* key, const char* record) {
  fSlot[0] = state;
  std::copy_n(key, SizeOfKeys, fSlot.data() + 1);
  std::copy_n(record, SizeOfRecords, fSlot.data() + 1 + SizeOfKeys);
}

void INDEX_DATA_OBJ::FillDeletedSlot() {
  std::fill(fSlot.begin(), fSlot.end(), '\0');
  fSlot[0] = kIndexSlotDeleted;
}

// Where the next insert belongs: the first deleted slot, or behind the last one.
int INDEX_DATA_OBJ::FindPlace(std::int32_t search_from, std::int32_t& location, bool& in_hole) {
  SlotWalk walk(fFile, static_cast<std::uint32_t>(search_from));
  const char* slot = walk.Next();
  while (slot != nullptr && slot[0] != kIndexSlotDeleted)
    slot = walk.Next();
  in_hole = slot != nullptr;
  std::uint32_t place = 0;
  if (in_hole) {
    place = walk.location();
  } else {
    fReadStatus = walk.status();
    if (fReadStatus != tFILE_ERRORS::cEOF)
      return fReadStatus;
    if (const int status = fFile.End(place); status != 0)
      return status;
  }
  if (fFile.IsEndOfLocations(place))
    return tFILE_ERRORS::cFULL;
  location = static_cast<std::int32_t>(place);
  return 0;
}

int INDEX_DATA_OBJ::GetRec(std::int32_t location, char* record, int& record_size) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (CheckSizes(SizeOfKeys, record_size) != 0)
    return SetResult(kIndexWrongSize);
  if (location < 0)
    return SetResult(tFILE_ERRORS::cPOSITION);
  fPosition = static_cast<std::uint32_t>(location);
  const int status = ReadSlot();
  if (status != 0)
    return SetResult(status == tFILE_ERRORS::cEOF ? kIndexNoSlot : status);
  std::copy_n(fSlot.data() + 1 + SizeOfKeys, SizeOfRecords, record);
  return SetResult(0);
}

int INDEX_DATA_OBJ::PutRec(const char* key, int key_size, const char* record, int record_size,
                           std::int32_t& location, std::int32_t search_from) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (CheckSizes(key_size, record_size) != 0)
    return SetResult(kIndexWrongSize);
  location = -1;
  if (fFile.IsReadOnly())
    return SetResult(tFILE_ERRORS::cACCESS);
  bool in_hole = false;
  if (SetResult(FindPlace(std::max(search_from, 0), location, in_hole)) != 0)
    return Result;
  fPosition = static_cast<std::uint32_t>(location);
  FillSlot(kIndexSlotLive, key, record);
  if (!in_hole)
    return SetResult(WriteSlot());
  fPosition += RecordSize;
  return SetResult(fFile.WriteOverDeleted(static_cast<std::uint32_t>(location), fSlot));
}

int INDEX_DATA_OBJ::ReplaceRec(std::int32_t location, const char* key, const char* record,
                               int record_size, char state) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (CheckSizes(SizeOfKeys, record_size) != 0)
    return SetResult(kIndexWrongSize);
  if (location < 0)
    return SetResult(tFILE_ERRORS::cPOSITION);
  fPosition = static_cast<std::uint32_t>(location);
  FillSlot(state, key, record);
  return SetResult(WriteSlot());
}

int INDEX_DATA_OBJ::DeleteRec(std::int32_t location) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (location < 0)
    return SetResult(kIndexNotFound);
  fPosition = static_cast<std::uint32_t>(location);
  FillDeletedSlot();
  return SetResult(WriteSlot());
}

int INDEX_DATA_OBJ::MarkRec(std::int32_t location, char state) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  if (location < 0)
    return SetResult(tFILE_ERRORS::cPOSITION);
  if (fFile.IsReadOnly())
    return SetResult(tFILE_ERRORS::cACCESS);
  fPosition = static_cast<std::uint32_t>(location) + RecordSize;
  return SetResult(fFile.WriteState(static_cast<std::uint32_t>(location), state));
}

int INDEX_DATA_OBJ::GetFirstRec(char* key, int& key_size, char* record, int& record_size,
                                std::int32_t& location) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  fPosition = 0;
  return GetNextRec(key, key_size, record, record_size, location);
}

int INDEX_DATA_OBJ::GetNextRec(char* key, int& key_size, char* record, int& record_size,
                               std::int32_t& location) {
  if (ValidObj == 0)
    return SetResult(kIndexNotValid);
  const bool found = NextLiveSlot(key, record, location) == 0;
  key_size = found ? SizeOfKeys : 0;
  record_size = found ? SizeOfRecords : 0;
  return SetResult(found ? 0 : kIndexNotFound);
}

int INDEX_DATA_OBJ::NextLiveSlot(char* key, char* record, std::int32_t& location) {
  do {
    location = static_cast<std::int32_t>(fPosition);
    fReadStatus = fFile.IsEndOfLocations(fPosition) ? int{tFILE_ERRORS::cEOF} : ReadSlot();
    if (fReadStatus != 0)
      return kIndexNotFound;
  } while (fSlot[0] == kIndexSlotDeleted);
  std::copy_n(fSlot.data() + 1, SizeOfKeys, key);
  std::copy_n(fSlot.data() + 1 + SizeOfKeys, SizeOfRecords, record);
  return 0;
}

int INDEX_DATA_OBJ::Lock(const LockPatience& patience) {
  return SetResult(fFile.IsReadOnly() ? int{tFILE_ERRORS::cACCESS} : fFile.Lock(patience));
}

int INDEX_DATA_OBJ::Unlock() {
  return SetResult(fFile.Unlock());
}
