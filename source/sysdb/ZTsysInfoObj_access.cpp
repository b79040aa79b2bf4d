// SPDX-License-Identifier: Apache-2.0
// The facade over the process's one database manager.

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include "platform/sys/native_path.h"
#include "shared/general/SHcontrolObj.h"
#include "source/sysdb/ZTsysInfoObj.h"
#include "source/sysdb/ZTsysInfoObj_forward.h"

namespace {

constexpr char kDatabaseName[] = "ztdb";

std::unique_ptr<zt_SystemDBMgt_class> statSystemInfoObj;
int statUserCount = 0;

}  // namespace

std::string SystemDatabaseText(int status) {
  struct Text {
    int status;
    const char* text;
  };
  static constexpr Text kTexts[] = {
      {kIndexNotFound, "no such system"},
      {kSysDbNoKey, "the name does not resolve to an address"},
      {kSysDbNameUnknown, "the name does not resolve to an address"},
      {kSysDbNoMoreSystems, "it holds no system yet; add some with ztsys add"},
      {kSysDbBadVersion,
       "not a system database, damaged, or of an unknown version; go back to a backup"},
      {kSysDbNoLockFile, "its lock file (.lk) cannot be opened"},
      {sys::tFILE_ERRORS::cMISSING,
       "it, or its folder, does not exist; look at the data directory in the settings, or add "
       "systems with ztsys add"},
      {sys::tFILE_ERRORS::cLOCKED, "another process holds the lock; try again later"},
      {sys::tFILE_ERRORS::cDEVICE,
       "the device reports an error (look into the system's log, and go back to a backup)"},
  };
  for (const Text& text : kTexts)
    if (text.status == status)
      return text.text;
  if (status <= sys::tFILE_ERRORS::cNOTOPEN)
    return sys::FileStatusText(status);
  return status < kIndexNotValid ? std::strerror(status) : "status " + std::to_string(status);
}

std::string CutDatabaseText(std::int64_t octets) {
  return "it ends within a record (" + std::to_string(octets) + " of " + std::to_string(kSlotSize) +
         " octets): a change was killed, or the file is cut and systems are missing; look at it "
         "with ztsys verify, and into a backup";
}

zt_SystemDBAccess_class::zt_SystemDBAccess_class(zt_SystemDBOptions options) {
  ++statUserCount;
  if (statSystemInfoObj == nullptr) {
    const char* directory = BASE_CONTROL_OBJ::GetDatabaseDirectory();
    const std::string path = std::string(directory != nullptr ? directory : "") + kDatabaseName;
    statSystemInfoObj = std::make_unique<zt_SystemDBMgt_class>(path.c_str(), std::move(options));
  }
  TakeState();
}

zt_SystemDBAccess_class::zt_SystemDBAccess_class(const char* system_file_name,
                                                 zt_SystemDBOptions options) {
  ++statUserCount;
  if (statUserCount == 1 || statSystemInfoObj == nullptr) {
    // The old one first: its files may be the new one's.
    statSystemInfoObj.reset();
    statSystemInfoObj =
        std::make_unique<zt_SystemDBMgt_class>(system_file_name, std::move(options));
  }
  TakeState();
}

zt_SystemDBAccess_class::~zt_SystemDBAccess_class() {
  statUserCount = std::max(statUserCount - 1, 0);
}

void zt_SystemDBAccess_class::TakeState() {
  fError = statSystemInfoObj->ReturnError();
  fValidObject = statSystemInfoObj->ValidObj();
}

const char* zt_SystemDBAccess_class::ReturnFileName() const {
  return statSystemInfoObj->ReturnFileName();
}

// What a look at the file tells beyond the status.
std::string zt_SystemDBAccess_class::TextOf(int status) const {
  struct stat about {};
  const bool there = sys::_stat(ReturnFileName(), &about) == 0;
  if (status == sys::tFILE_ERRORS::cACCESS && there)
    return S_ISREG(about.st_mode) ? "this user may not read it; look at its permissions"
                                  : "it is not a plain file";
  if (status == kSysDbNoMoreSystems && ValidObj() != 0 && statSystemInfoObj->ReturnMade())
    return "it did not exist, and an empty one is made; add systems with ztsys add";
  if (status == kSysDbNoMoreSystems && about.st_size % kSlotSize != 0)
    return CutDatabaseText(about.st_size % kSlotSize);
  return SystemDatabaseText(status);
}

std::string zt_SystemDBAccess_class::ReturnTrouble(int status) const {
  std::string file = sys::native_path(ReturnFileName());
  // Among errno values that are no file status there are only those of the change counter.
  if (ValidObj() == 0 && status > sys::tFILE_ERRORS::cNOTOPEN && status < kIndexNotValid)
    file += ".sem";
  return file + ": " + TextOf(status);
}

std::int64_t zt_SystemDBAccess_class::ReturnTail() const {
  SlotFile& file = statSystemInfoObj->File();
  sys::tFILE_STAMP stamp;
  std::uint32_t end = 0;
  if (file.GetStamp(stamp) != 0 || stamp.length % kSlotSize == 0 || file.End(end) != 0)
    return 0;
  // A slot that is being written in this moment is whole in the next.
  SlotWalk walk(file, end);
  while (walk.Next() != nullptr) {
  }
  return walk.tail();
}

zt_SystemDBMgt_class& zt_SystemDBAccess_class::Manager() {
  return *statSystemInfoObj;
}

int zt_SystemDBAccess_class::GetSystemRec(SystemKey key, zt_SystemInfo_class& info) {
  return Forward([&](zt_SystemDBMgt_class& db) { return db.GetSystemRec(key, info); });
}

int zt_SystemDBAccess_class::GetFirstSystemRec(zt_SystemInfo_class& info) {
  return Forward([&](zt_SystemDBMgt_class& db) { return db.GetFirstSystemRec(info); });
}

int zt_SystemDBAccess_class::GetNextSystemRec(zt_SystemInfo_class& info) {
  return Forward([&](zt_SystemDBMgt_class& db) { return db.GetNextSystemRec(info); });
}

int zt_SystemDBAccess_class::PutSystemRec(const zt_SystemInfo_class& info) {
  return Forward([&](zt_SystemDBMgt_class& db) { return db.PutSystemRec(info); });
}

int zt_SystemDBAccess_class::DeleteSystemRec(SystemKey key) {
  return Forward([&](zt_SystemDBMgt_class& db) { return db.DeleteSystemRec(key); });
}

void zt_SystemDBAccess_class::Lock() {
  Forward([](zt_SystemDBMgt_class& db) { db.Lock(); });
}

void zt_SystemDBAccess_class::Unlock() {
  Forward([](zt_SystemDBMgt_class& db) { db.Unlock(); });
}

void zt_SystemDBAccess_class::TranslateSysInfoError(int& error) const {
  constexpr int kFirstIndexError = 1001;
  constexpr int kLastIndexError = 1006;
  constexpr int kFirstIndexMessage = 24;
  constexpr int kOtherMessages = 3000;
  if (error < 1)
    return;
  if (error >= kFirstIndexError && error <= kLastIndexError) {
    error += kFirstIndexMessage - kFirstIndexError;
    return;
  }
  switch (error) {
    case 2000:
      error = 1;
      return;
    case 2001:
      error = 2;
      return;
    case 2003:
    case 2008:
      error = 3;
      return;
    case 2005:
      error = 5;
      return;
    case 2006:
      error = 6;
      return;
    default:
      if (error <= std::numeric_limits<int>::max() - kOtherMessages)
        error += kOtherMessages;
  }
}
