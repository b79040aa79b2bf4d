// SPDX-License-Identifier: Apache-2.0
// ztsys rename: another name for a system. The name must belong to the same address, since the
// address is what identifies the system.

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "tools/ztsys/database.h"

namespace ztsys {

Status RunRename(const Arguments& arguments) {
  const std::string& name = arguments.operands[1];
  if (const std::string refusal = RefusalOf("name", name, kSystemNameSize); !refusal.empty())
    return FailUsage(refusal);
  const auto db = OpenDatabase(arguments, Missing::kRefuse);
  if (db == nullptr)
    return kFailed;

  // Names are resolved before the lock is taken: it must not be held while a name server is slow.
  zt_SystemInfo_class info;
  if (FindSystem(*db, arguments.operands[0], info) != kDone)
    return kFailed;
  const SystemKey key = info.ReturnSystemKey();
  const std::string before = NameAndAddress(info);
  const SystemKey named = db->ReturnSystemKey(name.c_str());
  if (named == kNoSystemKey)
    return Fail("'" + name + "' does not resolve to an address");
  if (named != key)
    return Fail("'" + name + "' is the name of " + AddressText(named) + ", not of " + before);

  const DatabaseLock lock(*db);
  if (lock.status() != 0)
    return FailDatabase(*db, "cannot lock", lock.status());
  int status = db->GetSystemRec(key, info);
  if (status == 0) {
    SystemKey same_key = key;
    zt_SystemInfo_struct record = info.ReturnStruct(same_key);
    std::fill(std::begin(record.fSystemName), std::end(record.fSystemName), '\0');
    name.copy(record.fSystemName, kSystemNameSize - 1);
    status = db->PutSystemRec(zt_SystemInfo_class(record, key));
  }
  if (status != 0)
    return FailDatabase(*db, "cannot rename " + before, status);
  std::printf("renamed %s to %s\n", before.c_str(), name.c_str());
  return kDone;
}

}  // namespace ztsys
