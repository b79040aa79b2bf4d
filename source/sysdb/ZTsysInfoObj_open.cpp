// SPDX-License-Identifier: Apache-2.0
// Opening a database: the version record, the change counter, and files in the older layout.
//
// A conversion may be interrupted at any write and is finished by the next opening; the reasoning
// is in docs/formats/system-database.md. In short: before the version record is rewritten, every
// slot in the older layout gets a status byte of its own; the version record is written with that
// byte too; each slot loses it when it is converted, and the version record last.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "platform/sys/native_path.h"
#include "platform/sys/whole_file.h"
#include "source/sysdb/ZTsysInfoObj.h"
#include "source/sysdb/ZTsysReader.h"

namespace {

constexpr char kVersionKey[sizeof(SystemKey)] = {0, 0, 0, 0};

// Names that the old file is kept under: ".v3", ".v3.1" and so on.
constexpr int kMaxKept = 100;

}  // namespace

zt_SystemDBMgt_class::zt_SystemDBMgt_class(const char* system_file_name, zt_SystemDBOptions options)
    : fSystemFileName(system_file_name != nullptr ? system_file_name : ""),
      fOptions(std::move(options)),
      fMade(sys::_access(fSystemFileName.c_str(), 0) != 0) {
  fIndexDataObj = std::make_unique<INDEX_DATA_OBJ>(fSystemFileName.c_str(), sizeof(SystemKey),
                                                   kSystemRecordSize);
  fReadOnly = fIndexDataObj->ReturnReadOnly() || !sys::may_write(fSystemFileName + ".sem");
  if (fIndexDataObj->ReturnValidObj() == 0)
    fError = fIndexDataObj->ReturnError();
  else if (!fReadOnly && fIndexDataObj->ReturnLockFileOpened() == 0)
    fError = kSysDbNoLockFile;
  else
    fError = OpenVersionRecord();
  if (fError != 0) {
    fValidObject = 0;
    return;
  }
  fBackConnect = std::make_unique<BackConnectFile>(BackConnectFile::OfInstallation());
  OpenChangeCounter();
}

void zt_SystemDBMgt_class::Tell(const std::string& line) const {
  if (fOptions.tell)
    fOptions.tell(line);
  else
    std::fprintf(stderr, "%s\n", line.c_str());
}

void zt_SystemDBMgt_class::OpenChangeCounter() {
  const std::string path = fSystemFileName + ".sem";
  fSemaphoreObj = fReadOnly ? std::make_unique<SEM_OBJ>(path.c_str())
                            : std::make_unique<SEM_OBJ>(path.c_str(), 'A', 1, 0);
  if (!fSemaphoreObj->ValidObj() && !fReadOnly) {
    fSemaphoreValue = -1;
    fValidObject = 0;
    fError = fSemaphoreObj->ReturnError();
    return;
  }
  fSemaphoreValue = CounterValue();
  InitSystemXrefTable();
  fError = 0;
  fLastModifyTime = 0;
  DBChanged(zt_DBModification_const);
}

// Where there is no counter yet that a reader could see, nobody has changed anything.
int zt_SystemDBMgt_class::CounterValue() const {
  return fSemaphoreObj->ValidObj() ? fSemaphoreObj->GetSemVal(0) : 0;
}

int zt_SystemDBMgt_class::ReadVersion(SYSTEM_VERSION_ENTRY& version) {
  SYSTEM_DB_RECORD record{};
  int size = kSystemRecordSize;
  const int status =
      fIndexDataObj->GetRec(kVersionLocation, reinterpret_cast<char*>(&record), size);
  version = record.uVersionEntry;
  return status;
}

// Writes the version record with the current version and the given status byte; everything else in
// it stays as it is.
int zt_SystemDBMgt_class::StoreVersion(char state) {
  SYSTEM_DB_RECORD record{};
  int size = kSystemRecordSize;
  const int status =
      fIndexDataObj->GetRec(kVersionLocation, reinterpret_cast<char*>(&record), size);
  if (status != 0 && status != kIndexNoSlot)
    return status;
  record.uVersionEntry.fVersion = kCurrentSysDBVersion;
  return fIndexDataObj->ReplaceRec(kVersionLocation, kVersionKey,
                                   reinterpret_cast<const char*>(&record), kSystemRecordSize,
                                   state);
}

int zt_SystemDBMgt_class::InitializeDB() {
  return fError = StoreVersion(kIndexSlotLive);
}

int zt_SystemDBMgt_class::OpenVersionRecord() {
  FileKind kind = FileKind::kForeign;
  if (const int status = KindOfDatabase(fSystemFileName, kind); status != 0)
    return status;
  if (kind == FileKind::kForeign)
    return kSysDbBadVersion;
  if (fReadOnly)
    return 0;
  ReportNote();
  if (kind == FileKind::kNew)
    return InitializeDB();
  return kind == FileKind::kOlder ? ConvertOlderFile() : 0;
}

// Under the writers' lock, so that of several processes that open the file one converts it.
int zt_SystemDBMgt_class::ConvertOlderFile() {
  Lock();
  if (fError != 0)
    return fError;
  fBuildingXrefTable = 1;  // there is no table yet for the walks to check
  SYSTEM_VERSION_ENTRY version{};
  int status = ReadVersion(version);
  if (status == 0 && version.fVersion == kPreviousSysDBVersion) {
    status = KeepOlderFile();
    if (status == 0)
      status = MarkOlderRecords();
    if (status == 0)
      status = StoreVersion(kSlotInOlderLayout);
  }
  if (status == 0)
    status = ConvertMarkedRecords();
  if (status == 0)
    status = fIndexDataObj->MarkRec(kVersionLocation, kIndexSlotLive);
  fBuildingXrefTable = 0;
  Unlock();
  return status;
}

// A whole copy beside the file, under a name that nothing has.
int zt_SystemDBMgt_class::KeepOlderFile() {
  const std::string kept = fSystemFileName + ".v3";
  for (int i = 0; i < kMaxKept; ++i) {
    const std::string name = i == 0 ? kept : kept + '.' + std::to_string(i);
    const int error = sys::CopyWholeFile(fSystemFileName, name, sys::Replace::kNo);
    if (error == EEXIST)
      continue;
    const std::string file = sys::native_path(fSystemFileName);
    if (error == 0)
      Tell(file + " is in the older layout and is converted; the old file is kept as " +
           sys::native_path(name));
    else
      Tell(file + " is in the older layout and stays so, since it cannot be kept as " +
           sys::native_path(name) + ": " + std::strerror(error));
    return error == 0 ? 0 : sys::FileStatusOf(error);
  }
  return sys::tFILE_ERRORS::cEXISTS;
}

int zt_SystemDBMgt_class::MarkOlderRecords() {
  zt_SystemInfo_class info;
  for (int status = GetFirstSystemRec(info); status == 0; status = GetNextSystemRec(info)) {
    if (fIndexDataObj->ReturnSlotState() == kSlotInOlderLayout)
      continue;
    if (status = fIndexDataObj->MarkRec(fCurrentLocation, kSlotInOlderLayout); status != 0)
      return status;
  }
  return WalkStatus();
}

// Each record is read in the current layout, as consoles of this version have always converted it,
// and written in place.
int zt_SystemDBMgt_class::ConvertMarkedRecords() {
  zt_SystemInfo_class info;
  for (int status = GetFirstSystemRec(info); status == 0; status = GetNextSystemRec(info)) {
    if (fIndexDataObj->ReturnSlotState() != kSlotInOlderLayout)
      continue;
    SystemKey key = kNoSystemKey;
    const V3_SYSTEM_INFO older = info.ReturnV3Struct(key);
    info = zt_SystemInfo_class(older, key);
    info.SetMonitorAlarms(1);
    info.SetIsZTAgent(1);
    const zt_SystemInfo_struct record = info.ReturnStruct(key);
    char key_bytes[sizeof key];
    std::memcpy(key_bytes, &key, sizeof key);
    // The mark goes last: what a killed process leaves of the record is converted once more, and
    // what a conversion takes over of it is the same in both halves.
    status = fIndexDataObj->ReplaceRec(fCurrentLocation, key_bytes,
                                       reinterpret_cast<const char*>(&record), kSystemRecordSize,
                                       kSlotInOlderLayout);
    if (status == 0)
      status = fIndexDataObj->MarkRec(fCurrentLocation, kIndexSlotLive);
    if (status != 0)
      return status;
  }
  return WalkStatus();
}
