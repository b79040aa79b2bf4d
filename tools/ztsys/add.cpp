// SPDX-License-Identifier: Apache-2.0
// ztsys add: new systems, by names that resolve to their addresses, by the addresses themselves, or
// by a name and its address.

#include <cstdio>
#include <cstring>

#include "platform/sys/sockets.h"
#include "tools/ztsys/database.h"
#include "tools/ztsys/fields.h"
#include "tools/ztsys/new_system.h"

namespace ztsys {

Status AddressOf(const std::string& name, const std::optional<std::string>& address, SystemKey& key,
                 std::string& why) {
  const std::string& text = address ? *address : name;
  why.clear();
  if (const auto parsed = ParseAddress(text)) {
    key = *parsed;
  } else if (address || LooksLikeAddress(text)) {
    why = "'" + text + "' is no address: four numbers from 0 to 255 with dots between, without " +
          "leading zeros";
    return kUsage;
  } else {
    std::string copy = text;
    if (ARPANameToSystemKey(copy.data(), key) != 0 || key == kNoSystemKey) {
      why = RefusalOfUnresolved(text);
      return kFailed;
    }
  }
  why = RefusalOfAddress(key);
  return why.empty() ? kDone : kUsage;
}

std::string RefusalOfUnresolved(const std::string& name) {
  return "'" + name +
         (sockets::name_server_silent()
              ? "' is not in the hosts file, and the name server does not answer"
              : "' does not resolve to an address; --address, or the column address, gives it one");
}

zt_SystemInfo_struct NewRecord(const std::string& name, const std::string& group, int type) {
  zt_SystemInfo_struct record{};
  name.copy(record.fSystemName, kSystemNameSize - 1);
  group.copy(record.fGroupName, kGroupNameSize - 1);
  record.fSystemType = static_cast<std::int16_t>(type);
  return record;
}

namespace {

Status CheckWords(const Arguments& arguments) {
  for (const std::string& name : arguments.operands)
    if (const std::string refusal = RefusalOf("name", name, kSystemNameSize); !refusal.empty())
      return FailUsage(refusal);
  const std::string group = arguments.group.value_or("");
  if (const std::string refusal = RefusalOf("group", group, kGroupNameSize); !refusal.empty())
    return FailUsage(refusal);
  if (arguments.type && !ParseType(*arguments.type))
    return FailUsage(RefusalOfType(*arguments.type));
  if (arguments.address && arguments.operands.size() != 1)
    return FailUsage("--address is the address of one name");
  return kDone;
}

Status AddOne(Change& change, const zt_SystemInfo_class& info) {
  zt_SystemInfo_class present;
  const int found = change.db().GetSystemRec(info.ReturnSystemKey(), present);
  if (found == 0)
    return Fail(NameAndAddress(present) + " is in " + change.path() + " already", kExists);
  if (found != kIndexNotFound)
    return change.Fail("cannot read", found);
  if (const int status = change.db().PutSystemRec(info); status != 0)
    return change.Fail("cannot add " + NameAndAddress(info), status);
  std::printf("added %s\n", NameAndAddress(info).c_str());
  return kDone;
}

}  // namespace

Status RunAdd(const Arguments& arguments) {
  if (const Status status = CheckWords(arguments); status != kDone)
    return status;
  std::string group = arguments.group.value_or("");
  if (group == kNone)
    group.clear();
  const int type = arguments.type ? *ParseType(*arguments.type) : 0;
  // Names are resolved before the lock is taken: it must not be held while a name server is slow.
  Outcome outcome;
  std::vector<zt_SystemInfo_class> systems;
  for (const std::string& name : arguments.operands) {
    SystemKey key = kNoSystemKey;
    std::string why;
    const Status status = AddressOf(name, arguments.address, key, why);
    if (status == kDone)
      systems.emplace_back(NewRecord(name, group, type), key);
    else
      outcome.Add(status == kUsage ? FailUsage(why) : Fail(why));
  }
  if (systems.empty())
    return outcome.status();
  Status status = kDone;
  const auto change = Change::Begin(arguments, Missing::kCreate, status);
  if (change == nullptr)
    return status;
  for (const zt_SystemInfo_class& info : systems)
    outcome.Add(AddOne(*change, info));
  return outcome.status();
}

}  // namespace ztsys
