// SPDX-License-Identifier: Apache-2.0
// Opening a database: the version record, the change counter, and files in the older layout.
//
// A conversion may be interrupted at any write and is finished by the next opening; the reasoning
// is in docs/formats/system-database.md. In short: before the version record is rewritten, every
// slot in the older layout gets a status byte of its own; the version record is written with that
// byte too; each slot loses it in the write that converts it, and the version record last.

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/sys/prtzt_file.h"
#include "shared/general/SHcontrolObj.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

constexpr char BACK_CONNECT_XREF_FILE_NAME[] = "ztsysxref";
constexpr char kVersionKey[sizeof(SystemKey)] = {0, 0, 0, 0};

// The status byte of a slot that the conversion has still to do.
constexpr char kSlotInOlderLayout = 0x33;

}  // namespace

zt_SystemDBMgt_class::zt_SystemDBMgt_class(const char* system_file_name)
    : fSystemFileName(system_file_name != nullptr ? system_file_name : "") {
  fIndexDataObj = std::make_unique<INDEX_DATA_OBJ>(fSystemFileName.c_str(), sizeof(SystemKey),
                                                   kSystemRecordSize);
  if (fIndexDataObj->ReturnValidObj() == 0)
    fError = fIndexDataObj->ReturnError();
  else if (fIndexDataObj->ReturnLockFileOpened() == 0)
    fError = kSysDbNoLockFile;
  else
    fError = OpenVersionRecord();
  if (fError != 0) {
    fValidObject = 0;
    return;
  }
  const char* directory = BASE_CONTROL_OBJ::GetDatabaseDirectory();
  fBackConnectXRefFileName =
      std::string(directory != nullptr ? directory : "") + BACK_CONNECT_XREF_FILE_NAME;
  OpenChangeCounter();
}

void zt_SystemDBMgt_class::OpenChangeCounter() {
  fSemaphoreObj = std::make_unique<SEM_OBJ>((fSystemFileName + ".sem").c_str(), 'A', 1, 0);
  if (!fSemaphoreObj->ValidObj()) {
    fSemaphoreValue = -1;
    fValidObject = 0;
    fError = fSemaphoreObj->ReturnError();
    return;
  }
  fSemaphoreValue = fSemaphoreObj->GetSemVal(0);
  InitSystemXrefTable();
  fError = 0;
  fLastModifyTime = 0;
  DBChanged(zt_DBModification_const);
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
  SYSTEM_VERSION_ENTRY version{};
  int status = ReadVersion(version);
  if (status == kIndexNoSlot) {
    if (!IsUnfinishedNewFile())
      return kSysDbBadVersion;
    if (status = InitializeDB(); status == 0)
      status = ReadVersion(version);
  }
  if (status != 0)
    return status;
  // A deleted version record would be the next insert's place.
  if (fIndexDataObj->ReturnSlotState() == kIndexSlotDeleted)
    return kSysDbBadVersion;
  if (version.fVersion == kCurrentSysDBVersion &&
      fIndexDataObj->ReturnSlotState() != kSlotInOlderLayout)
    return 0;
  if (version.fVersion == kCurrentSysDBVersion || version.fVersion == kPreviousSysDBVersion)
    return ConvertOlderFile();
  return kSysDbBadVersion;
}

// Whether a file without a whole slot is ours: empty, or the start of the version record of a new
// file whose writer did not get further. Anything else is not touched.
bool zt_SystemDBMgt_class::IsUnfinishedNewFile() const {
  std::array<char, 1 + sizeof kVersionKey + kSystemRecordSize> expected{};
  expected[1 + sizeof kVersionKey] = kCurrentSysDBVersion;
  std::array<char, expected.size()> bytes{};
  std::uint32_t count = 0;
  sys::tBINFILE file(nullptr, 1);
  file.SetName(fSystemFileName.c_str());
  if (file.OpenAlways(sys::tFILEDEFS::cREAD, 0, sys::tFILEDEFS::cALL_READWRITE) != 0)
    return false;
  file.Read(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &count);
  return std::equal(bytes.begin(), bytes.begin() + count, expected.begin());
}

// Under the writers' lock, so that of several processes that open the file one converts it.
int zt_SystemDBMgt_class::ConvertOlderFile() {
  if (const int status = fIndexDataObj->Lock(); status != 0)
    return status;
  fBuildingXrefTable = 1;  // there is no table yet for the walks to check
  SYSTEM_VERSION_ENTRY version{};
  int status = ReadVersion(version);
  if (status == 0 && version.fVersion == kPreviousSysDBVersion) {
    status = MarkOlderRecords();
    if (status == 0)
      status = StoreVersion(kSlotInOlderLayout);
  }
  if (status == 0)
    status = ConvertMarkedRecords();
  if (status == 0)
    status = fIndexDataObj->MarkRec(kVersionLocation, kIndexSlotLive);
  fBuildingXrefTable = 0;
  fIndexDataObj->Unlock();
  return status;
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

// A walk that a read failure cut short must not count as one that saw every record.
int zt_SystemDBMgt_class::WalkStatus() const {
  const int status = fIndexDataObj->ReturnReadStatus();
  return status == sys::tFILE_ERRORS::cEOF ? 0 : status;
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
    status = fIndexDataObj->ReplaceRec(fCurrentLocation, key_bytes,
                                       reinterpret_cast<const char*>(&record), kSystemRecordSize);
    if (status != 0)
      return status;
  }
  return WalkStatus();
}
