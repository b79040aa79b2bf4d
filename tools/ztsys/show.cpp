// SPDX-License-Identifier: Apache-2.0
// ztsys show: one system's long or short report.

#include "tools/ztsys/database.h"

namespace ztsys {

Status RunShow(const Arguments& arguments) {
  const auto db = OpenDatabase(arguments, Missing::kRefuse);
  if (db == nullptr)
    return kFailed;
  zt_SystemInfo_class info;
  if (FindSystem(*db, arguments.operands[0], info) != kDone)
    return kFailed;
  if (arguments.brief)
    info.PrintSystemShortInfo();
  else
    info.PrintSystemInfo();
  return kDone;
}

}  // namespace ztsys
