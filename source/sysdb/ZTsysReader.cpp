// SPDX-License-Identifier: Apache-2.0
#include "source/sysdb/ZTsysReader.h"

#include <array>
#include <cstring>

using sys::tFILE_ERRORS;

int KindOfDatabase(const std::string& path, FileKind& kind) {
  std::array<char, kSlotSize> start{};
  std::uint32_t length = 0;
  sys::tBINFILE file(nullptr, 1);
  file.SetName(path.c_str());
  int status = file.OpenExisting(sys::tFILEDEFS::cREAD);
  if (status == 0)
    status = file.Read(start.data(), kSlotSize, &length);
  if (status != 0 && status != tFILE_ERRORS::cEOF)
    return status;
  kind = KindOfFile({start.data(), length});
  return 0;
}

int SystemReader::Open(const std::string& path) {
  path_ = path;
  int status = file_.OpenReadOnly(path, kSlotSize);
  if (status == 0)
    status = KindOfDatabase(path, kind_);
  if (status != 0)
    return status;
  Rewind();
  return kind_ == FileKind::kForeign ? int{kSysDbBadVersion} : 0;
}

const char* SystemReader::NextSlot() {
  return walk_->Next();
}

int SystemReader::status() const {
  return walk_->status() == tFILE_ERRORS::cEOF ? int{kSysDbNoMoreSystems} : walk_->status();
}

int SystemReader::Next(zt_SystemInfo_class& info) {
  for (const char* slot = walk_->Next(); slot != nullptr; slot = walk_->Next()) {
    if (slot[0] == kIndexSlotDeleted || location() == kVersionLocation)
      continue;
    zt_SystemInfo_struct record;
    std::memcpy(&record, slot + 1 + sizeof(SystemKey), sizeof record);
    info = zt_SystemInfo_class(record, ConvertSystemKey(slot + 1));
    return 0;
  }
  return status();
}
