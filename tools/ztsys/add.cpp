// SPDX-License-Identifier: Apache-2.0
// ztsys add: a new system, by a name that resolves to its address or by the address itself.

#include <cstdio>

#include "source/support/ZTsupport_procs.h"
#include "tools/ztsys/database.h"

namespace ztsys {

namespace {

// A type's number or code; 0 when it is neither.
int TypeOf(const std::string& text) {
  for (int type = 1; type <= ReturnSupportedSystemTypeCount(); ++type)
    if (text == std::to_string(type) ||
        ptc_strcasecmp(text.c_str(), ReturnSystemTypeCode(type)) == 0)
      return type;
  return 0;
}

std::string TypeChoices() {
  std::string text;
  for (int type = 1; type <= ReturnSupportedSystemTypeCount(); ++type)
    text += (type == 1 ? "" : ", ") + std::to_string(type) + " or " + ReturnSystemTypeCode(type);
  return text;
}

}  // namespace

Status RunAdd(const Arguments& arguments) {
  const std::string& name = arguments.operands[0];
  const std::string group = arguments.group.value_or("");
  if (const std::string refusal = RefusalOf("name", name, kSystemNameSize); !refusal.empty())
    return FailUsage(refusal);
  if (const std::string refusal = RefusalOf("group", group, kGroupNameSize); !refusal.empty())
    return FailUsage(refusal);
  const int type = arguments.type ? TypeOf(*arguments.type) : 0;
  if (arguments.type && type == 0)
    return FailUsage("unknown type '" + *arguments.type + "' (" + TypeChoices() + ')');

  const auto db = OpenDatabase(arguments, Missing::kCreate);
  if (db == nullptr)
    return kFailed;
  zt_SystemInfo_class info(name.c_str(), group.c_str());
  if (info.ReturnSystemKey() == kNoSystemKey)
    return Fail("'" + name + "' does not resolve to an address");
  if (info.ReturnSystemKey() == 0)
    return Fail("0.0.0.0 is no system's address");
  info.SetSystemType(type);

  const DatabaseLock lock(*db);
  if (lock.status() != 0)
    return FailDatabase(*db, "cannot lock", lock.status());
  zt_SystemInfo_class present;
  if (db->GetSystemRec(info.ReturnSystemKey(), present) == 0)
    return Fail(NameAndAddress(present) + " is in " + db->ReturnFileName() + " already");
  if (const int status = db->PutSystemRec(info); status != 0)
    return FailDatabase(*db, "cannot add '" + name + "'", status);
  std::printf("added %s\n", NameAndAddress(info).c_str());
  return kDone;
}

}  // namespace ztsys
