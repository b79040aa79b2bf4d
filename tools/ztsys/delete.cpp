// SPDX-License-Identifier: Apache-2.0
// ztsys delete: asks on a terminal, unless told not to.

#include <unistd.h>

#include <cstdio>

#include "source/support/ZTprintable.h"
#include "tools/ztsys/database.h"

namespace ztsys {

namespace {

// Whether the user says yes, where there is a user to ask.
bool Confirmed(const std::string& question) {
  if (isatty(STDIN_FILENO) == 0)
    return true;
  std::fprintf(stderr, "%s [y/N] ", printable(question).c_str());
  const int answer = std::getchar();
  return answer == 'y' || answer == 'Y';
}

}  // namespace

Status RunDelete(const Arguments& arguments) {
  const auto db = OpenDatabase(arguments, Missing::kRefuse);
  if (db == nullptr)
    return kFailed;
  zt_SystemInfo_class info;
  if (FindSystem(*db, arguments.operands[0], info) != kDone)
    return kFailed;
  const std::string system = NameAndAddress(info);
  if (!arguments.yes && !Confirmed("Delete " + system + " from " + db->ReturnFileName() + "?"))
    return Fail("nothing is deleted");

  const DatabaseLock lock(*db);
  if (lock.status() != 0)
    return FailDatabase(*db, "cannot lock", lock.status());
  if (const int status = db->DeleteSystemRec(info.ReturnSystemKey()); status != 0)
    return FailDatabase(*db, "cannot delete " + system, status);
  std::printf("deleted %s\n", system.c_str());
  return kDone;
}

}  // namespace ztsys
