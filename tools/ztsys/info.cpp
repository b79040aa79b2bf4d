// SPDX-License-Identifier: Apache-2.0
// ztsys info: the database as a whole.

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/sys/native_path.h"
#include "source/support/ZTprintable.h"
#include "tools/ztsys/database.h"

namespace ztsys {

namespace {

struct Counts {
  long slots = 0;
  long holes = 0;
  long systems = 0;
  std::string version = "none";
};

Status Count(SystemReader& reader, Counts& counts) {
  for (const char* slot = reader.NextSlot(); slot != nullptr; slot = reader.NextSlot()) {
    ++counts.slots;
    if (reader.location() == kVersionLocation) {
      std::int32_t version = 0;
      std::memcpy(&version, slot + 1 + sizeof(SystemKey), sizeof version);
      counts.version = std::to_string(version);
    } else if (slot[0] == kIndexSlotDeleted) {
      ++counts.holes;
    } else {
      ++counts.systems;
    }
  }
  return reader.status() == kSysDbNoMoreSystems
             ? kDone
             : FailDatabase(reader.path(), "cannot read", reader.status());
}

std::string TimeText(std::time_t time) {
  char text[80] = "";
  std::tm local{};
  if (localtime_r(&time, &local) != nullptr)
    std::strftime(text, sizeof text, "%a, %x at %X", &local);
  return text;
}

// What this user may do, and what keeps him from changing anything.
std::string Rights(const std::string& path) {
  for (const char* companion : {"", ".lk", ".sem"})
    if (!sys::may_write(path + companion))
      return "read; changes need write permission for " + path + companion;
  return "read and change";
}

}  // namespace

Status RunInfo(const Arguments& arguments) {
  SystemReader reader;
  if (const Status status = OpenReader(arguments, reader); status != kDone)
    return status;
  Counts counts;
  const Status status = Count(reader, counts);
  struct stat about {};
  stat(reader.path().c_str(), &about);
  std::printf("\n  System DB Version : %s\n", counts.version.c_str());
  std::printf("  File              : %s\n", printable(reader.path()).c_str());
  std::printf("  Systems           : %ld\n", counts.systems);
  std::printf("  Slots             : %ld, %ld of them holes\n", counts.slots, counts.holes);
  std::printf("  Size              : %lld octets\n", static_cast<long long>(about.st_size));
  std::printf("  Last change       : %s\n", TimeText(about.st_mtime).c_str());
  std::printf("  You may           : %s\n", printable(Rights(reader.path())).c_str());
  return status != kDone ? status : ReportTail(reader.path(), reader.tail());
}

}  // namespace ztsys
