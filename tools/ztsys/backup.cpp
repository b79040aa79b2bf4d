// SPDX-License-Identifier: Apache-2.0
// ztsys backup: a whole copy of the database.

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "platform/sys/native_path.h"
#include "platform/sys/whole_file.h"
#include "source/support/ZTprintable.h"
#include "tools/ztsys/database.h"

namespace ztsys {

namespace {

// Without a lock file that may be opened, a copy is of one instant if nobody has written meanwhile.
constexpr int kTries = 5;

bool SameStamp(SystemReader& reader, const sys::tFILE_STAMP& before) {
  sys::tFILE_STAMP now;
  return reader.GetStamp(now) == 0 && now == before;
}

// Copies the database as of one instant: no writer works meanwhile, as far as this user may hold
// them off.
Status Copy(const Arguments& arguments, const std::string& to) {
  SystemReader reader;
  if (const Status status = OpenReader(arguments, reader); status != kDone)
    return status;
  LockPatience patience{std::chrono::seconds(arguments.wait), {}};
  patience.notice = [](const std::string& file, long holder) {
    Tell("waiting for the lock " + file +
         (holder != 0 ? ", which process " + std::to_string(holder) + " holds" : ""));
  };
  const int locked = reader.LockOutWriters(patience);
  if (locked == sys::tFILE_ERRORS::cLOCKED)
    return FailDatabase(reader.path(), "cannot lock", locked);
  for (int i = 0; i < kTries; ++i) {
    sys::tFILE_STAMP before;
    reader.GetStamp(before);
    const int error = sys::CopyWholeFile(reader.path(), to, sys::Replace::kYes);
    if (error != 0)
      return error == EIO
                 ? FailDatabase(reader.path(), "cannot copy", sys::tFILE_ERRORS::cDEVICE)
                 : Fail(sys::native_path(to) + ": cannot be written: " + std::strerror(error));
    // A copy that a change went into is replaced by the next try.
    if (!SameStamp(reader, before))
      continue;
    std::printf("copied %s to %s\n", printable(reader.path()).c_str(),
                printable(sys::native_path(to)).c_str());
    return ReportTail(reader.path(), before.length % kSlotSize);
  }
  return Fail(reader.path() + ": changes all the time, and its lock may not be taken by this user");
}

}  // namespace

Status RunBackup(const Arguments& arguments) {
  const std::string& to = arguments.operands[0];
  // A copy that is renamed over the database would take it away from those who have it open.
  std::error_code none;
  if (std::filesystem::equivalent(DatabasePath(arguments), sys::native_path(to), none))
    return FailUsage(sys::native_path(to) + " is the database itself");
  // Nor over a device or a pipe, which everybody else would lose.
  struct stat about {};
  if (stat(sys::native_path(to).c_str(), &about) == 0 && !S_ISREG(about.st_mode))
    return Fail(sys::native_path(to) +
                ": cannot be written: not a plain file; name a file to copy to");
  return Copy(arguments, to);
}

}  // namespace ztsys
