// SPDX-License-Identifier: Apache-2.0
// ztsys alarms: the grid of alarm states of one system or of all.

#include "tools/ztsys/database.h"

namespace ztsys {

namespace {

void PrintAlarms(const zt_SystemInfo_class& info) {
  info.PrintSystemShortInfo();
  info.PrintAlarmStates();
}

}  // namespace

Status RunAlarms(const Arguments& arguments) {
  const auto db = OpenDatabase(arguments, Missing::kRefuse);
  if (db == nullptr)
    return kFailed;
  zt_SystemInfo_class info;
  if (!arguments.operands.empty()) {
    if (FindSystem(*db, arguments.operands[0], info) != kDone)
      return kFailed;
    PrintAlarms(info);
    return kDone;
  }
  int status = db->GetFirstSystemRec(info);
  for (; status == 0; status = db->GetNextSystemRec(info))
    PrintAlarms(info);
  return status == kSysDbNoMoreSystems ? kDone : FailDatabase(*db, "cannot read", status);
}

}  // namespace ztsys
