// SPDX-License-Identifier: Apache-2.0
// ztsys info: the database as a whole.

#include <cstdio>

#include "source/support/ZTprintable.h"
#include "tools/ztsys/database.h"

namespace ztsys {

Status RunInfo(const Arguments& arguments) {
  const auto db = OpenDatabase(arguments, Missing::kRefuse);
  if (db == nullptr)
    return kFailed;
  db->PrintGeneralInfo();
  std::printf("  File              : %s\n", printable(db->ReturnFileName()).c_str());
  std::printf("  Systems           : %d\n", db->GetSystemRecCount());
  return kDone;
}

}  // namespace ztsys
