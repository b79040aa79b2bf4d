// SPDX-License-Identifier: Apache-2.0
// One pass over a system database for those that only read: it makes no file, writes nothing, waits
// for no lock, and reads a file in the older layout through the present one.

#pragma once

#include <optional>
#include <string>

#include "shared/general/SHslotFile.h"
#include "source/sysdb/ZTsysRecords.h"

// What the file is; 0, or the file library's status.
int KindOfDatabase(const std::string& path, FileKind& kind);

class SystemReader {
 public:
  // 0; the file library's status; kSysDbBadVersion for a file that is no system database.
  int Open(const std::string& path);

  // The next system in file order. 2002 at the end; the file library's status when a read fails,
  // and nothing behind that place has been seen.
  int Next(zt_SystemInfo_class& info);
  // The same for whoever looks at every slot, the first one included: null where Next ends.
  const char* NextSlot();
  std::int32_t location() const { return static_cast<std::int32_t>(walk_->location()); }
  // Why there is no further slot: 2002, or the file's status.
  int status() const;
  // Octets of a record that is not whole, seen behind the last one when the end was reached.
  std::uint32_t tail() const { return walk_->tail(); }
  // Keeps writers off until the reader is gone, if there is a lock file that this user may read.
  int LockOutWriters(const LockPatience& patience) { return file_.LockShared(patience); }
  // Starts again at the first slot.
  void Rewind() { walk_.emplace(file_); }

  FileKind kind() const { return kind_; }
  const std::string& path() const { return path_; }
  int GetStamp(sys::tFILE_STAMP& stamp) const { return file_.GetStamp(stamp); }

 private:
  std::string path_;
  SlotFile file_;
  std::optional<SlotWalk> walk_;
  FileKind kind_ = FileKind::kForeign;
};
