// SPDX-License-Identifier: Apache-2.0
// The manager of the system database: records, iteration, lock and change detection. Its opening
// and the older layout are in ZTsysInfoObj_open.cpp, the cross-reference table in
// ZTsysInfoObj_table.cpp, inserts by the thousand in ZTsysInfoObj_bulk.cpp.

#include "source/sysdb/ZTsysInfoObj.h"

#include <sys/stat.h>

#include <cstring>
#include <ctime>

#include "platform/sys/native_path.h"
#include "source/sysdb/ZTsignalsBlocked.h"

namespace {

char* BytesOf(zt_SystemInfo_struct& record) {
  return reinterpret_cast<char*>(&record);
}

const char* BytesOf(const zt_SystemInfo_struct& record) {
  return reinterpret_cast<const char*>(&record);
}

// The key's four bytes as the file holds them.
struct KeyBytes {
  explicit KeyBytes(SystemKey key) { std::memcpy(bytes, &key, sizeof bytes); }
  char bytes[sizeof(SystemKey)];
};

bool SameText(const char* a, const char* b) {
  return std::strncmp(a, b, kSystemNameSize) == 0;
}

}  // namespace

// Reads the record of a table entry. The entry may be out of date at any moment, since readers hold
// no lock: a slot that holds another system by now is no record of this one.
int zt_SystemDBMgt_class::ReadAtIndex(int index) {
  if (index < 1)
    return fTableStatus != 0 ? fTableStatus : int{kIndexNotFound};
  const SYSTEM_XREF_ENTRY& entry = fSystemXrefTable[static_cast<std::size_t>(index)];
  int size = kSystemRecordSize;
  zt_SystemInfo_struct record;
  const int status = fIndexDataObj->GetRec(entry.fLocation, BytesOf(record), size);
  if (status != 0)
    return status;
  if (fIndexDataObj->ReturnSlotState() == kIndexSlotDeleted ||
      ConvertSystemKey(fIndexDataObj->ReturnSlotKey()) != entry.fKey)
    return kIndexNotFound;
  fSystemInfo = record;
  fCurrentLocation = entry.fLocation;
  return 0;
}

int zt_SystemDBMgt_class::GetSystemInfo(SystemKey key) {
  CheckSystemXrefTable();
  fError = ReadAtIndex(IndexOf(key));
  if (fError == kIndexNotFound && CheckSystemXrefTable() != 0)
    fError = ReadAtIndex(IndexOf(key));
  return fError;
}

int zt_SystemDBMgt_class::GetSystemRec(SystemKey key, zt_SystemInfo_class& info) {
  if (GetSystemInfo(key) == 0)
    info = zt_SystemInfo_class(fSystemInfo, key);
  return fError;
}

int zt_SystemDBMgt_class::PositionAtSystem(SystemKey key) {
  zt_SystemInfo_class scratch;
  return GetSystemRec(key, scratch);
}

// A walk that a read failure cut short must not count as one that saw every record.
int zt_SystemDBMgt_class::WalkStatus() const {
  const int status = fIndexDataObj->ReturnReadStatus();
  return status == sys::tFILE_ERRORS::cEOF ? 0 : status;
}

int zt_SystemDBMgt_class::GetFirstSystemRec(zt_SystemInfo_class& info) {
  fError = 0;
  if (fBuildingXrefTable == 0)
    CheckSystemXrefTable();
  KeyBytes key(0);
  int key_size = 0;
  int record_size = 0;
  const int status = fIndexDataObj->GetFirstRec(key.bytes, key_size, BytesOf(fSystemInfo),
                                                record_size, fCurrentLocation);
  if (status != 0 || record_size == 0)
    return fError = WalkStatus() != 0 ? WalkStatus() : int{kSysDbNoMoreSystems};
  // The version record, also when damage has given it another key: a user must not delete it.
  if (fCurrentLocation == kVersionLocation || ConvertSystemKey(key.bytes) == 0)
    return GetNextSystemRec(info);
  info = zt_SystemInfo_class(fSystemInfo, ConvertSystemKey(key.bytes));
  return 0;
}

int zt_SystemDBMgt_class::GetNextSystemRec(zt_SystemInfo_class& info) {
  fError = 0;
  KeyBytes key(0);
  int key_size = 0;
  int record_size = 0;
  if (fIndexDataObj->GetNextRec(key.bytes, key_size, BytesOf(fSystemInfo), record_size,
                                fCurrentLocation) != 0)
    return fError = WalkStatus() != 0 ? WalkStatus() : int{kSysDbNoMoreSystems};
  info = zt_SystemInfo_class(fSystemInfo, ConvertSystemKey(key.bytes));
  return 0;
}

int zt_SystemDBMgt_class::PutSystemRec(const zt_SystemInfo_class& info) {
  fError = 0;
  SystemKey key = kNoSystemKey;
  zt_SystemInfo_struct record = info.ReturnStruct(key);
  if (key == kNoSystemKey)
    return fError = kSysDbNoKey;
  if (fReadOnly)
    return fError = sys::tFILE_ERRORS::cACCESS;
  record.fRecUpdateTime = static_cast<std::int32_t>(std::time(nullptr));

  PositionAtSystem(key);
  if (fError == kIndexNotFound && !TableIsCurrent()) {
    // A writer may have died between its insert and the change counter: only a table that is
    // certainly current proves that the key is new.
    InitSystemXrefTable();
    if (PositionAtSystem(key) == 0)
      RaiseChangeCounter();
  }
  // With nobody else writing, the table can follow our own write without a look at the file.
  const bool follows = fLockHeld != 0 && TableIsCurrent();
  if (fError == 0) {
    const KeyBytes key_bytes(key);
    fError = fIndexDataObj->ReplaceRec(fCurrentLocation, key_bytes.bytes, BytesOf(record),
                                       kSystemRecordSize);
    if (fError == 0 && !SameText(fSystemInfo.fSystemName, record.fSystemName))
      SetTableName(key, record.fSystemName);
  } else if (fError == kIndexNotFound) {
    fError = InsertSystem(key, record, follows);
  }
  if (fError != 0)
    return fError;
  if (follows)
    fIndexDataObj->File().GetStamp(fFileStamp);
  fSystemInfo = record;
  return 0;
}

int zt_SystemDBMgt_class::InsertSystem(SystemKey key, const zt_SystemInfo_struct& record,
                                       bool follows) {
  const SignalsBlocked together;
  const KeyBytes key_bytes(key);
  std::int32_t location = -1;
  const int status =
      fIndexDataObj->PutRec(key_bytes.bytes, sizeof key_bytes.bytes, BytesOf(record),
                            kSystemRecordSize, location, follows ? fNoHoleBefore : 0);
  if (status != 0)
    return status;
  RaiseChangeCounter();
  fCurrentLocation = location;
  if (follows) {
    fInsertedSystem.emplace(record.fSystemName, key, location);
    fNoHoleBefore = location + kSlotSize;
  }
  return 0;
}

int zt_SystemDBMgt_class::DeleteSystemRec(SystemKey key) {
  fError = 0;
  if (PositionAtSystem(key) != 0)
    return fError;
  const SignalsBlocked together;
  fError = fIndexDataObj->DeleteRec(fCurrentLocation);
  if (fError != 0)
    return fError;
  fCurrentLocation = -1;
  RaiseChangeCounter();
  if (const int index = IndexOf(key); index >= 1)
    fSystemXrefTable[static_cast<std::size_t>(index)].fLocation = -1;
  return 0;
}

int zt_SystemDBMgt_class::MoveSystemRec(SystemKey key, SystemKey new_key) {
  if (PositionAtSystem(key) != 0)
    return fError;
  zt_SystemInfo_struct record = fSystemInfo;
  record.fRecUpdateTime = static_cast<std::int32_t>(std::time(nullptr));
  const SignalsBlocked together;
  const KeyBytes key_bytes(new_key);
  fError = fIndexDataObj->ReplaceRec(fCurrentLocation, key_bytes.bytes, BytesOf(record),
                                     kSystemRecordSize);
  if (fError == 0)
    RaiseChangeCounter();
  return fError;
}

// Tells every process, this one included, that its table is out of date.
void zt_SystemDBMgt_class::RaiseChangeCounter() {
  fSemaphoreValue = CounterValue() + 1;
  fSemaphoreObj->SetSemVal(0, fSemaphoreValue);
  fXrefSynced = 0;
}

void zt_SystemDBMgt_class::Lock() {
  LockPatience patience{fOptions.lock_wait, {}};
  patience.notice = [this](const std::string& file, long holder) {
    Tell("waiting for the lock " + sys::native_path(file) +
         (holder != 0 ? ", which process " + std::to_string(holder) + " holds" : ""));
  };
  fError = fIndexDataObj->Lock(patience);
  if (fError == 0)
    fLockHeld = 1;
}

void zt_SystemDBMgt_class::Unlock() {
  fError = fIndexDataObj->Unlock();
  if (fError == 0)
    fLockHeld = 0;
}

unsigned char zt_SystemDBMgt_class::DBChanged(zt_ModLevel_enum mod_level) {
  if (mod_level == zt_DBStructure_const)
    return CheckSystemXrefTable() != 0;
  struct stat about {};
  if (sys::_stat(fSystemFileName.c_str(), &about) != 0 || about.st_mtime <= fLastModifyTime)
    return 0;
  fLastModifyTime = about.st_mtime;
  return 1;
}
