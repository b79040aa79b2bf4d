// SPDX-License-Identifier: Apache-2.0
// ztsys set, move, rename and delete: changes of systems that are there.

#include <unistd.h>

#include <cstdio>
#include <string>

#include "source/support/ZTprintable.h"
#include "tools/ztsys/database.h"
#include "tools/ztsys/fields.h"
#include "tools/ztsys/new_system.h"

namespace ztsys {

namespace {

// Finds the systems that the words name and gives each to `work`, under the lock, as it is then.
// Words that name none, or several, are reported.
template <typename Work>
Status ChangeEach(const Arguments& arguments, const std::vector<zt_SystemInfo_class>& systems,
                  Outcome outcome, Work work) {
  if (systems.empty())
    return outcome.status();
  Status status = kDone;
  const auto change = Change::Begin(arguments, Missing::kRefuse, status);
  if (change == nullptr)
    return status;
  for (const zt_SystemInfo_class& before : systems) {
    zt_SystemInfo_class info;
    const int found = change->db().GetSystemRec(before.ReturnSystemKey(), info);
    outcome.Add(found != 0 ? change->Fail("cannot change " + NameAndAddress(before), found)
                           : work(*change, info));
  }
  return outcome.status();
}

// The systems that the words name; all others are reported.
Status Collect(const Arguments& arguments, const std::vector<std::string>& words,
               std::vector<zt_SystemInfo_class>& systems) {
  SystemReader reader;
  if (const Status status = OpenReader(arguments, reader); status != kDone)
    return status;
  NameLookups lookups(false);
  return FindSystems(reader, words, lookups,
                     [&](const zt_SystemInfo_class& info) { systems.push_back(info); });
}

// Whether the user says yes, with a line of its own.
bool Confirmed(const std::string& question) {
  std::fprintf(stderr, "%s [y/N] ", printable(question).c_str());
  std::string answer;
  int c = std::getchar();
  for (; c != EOF && c != '\n'; c = std::getchar())
    answer += static_cast<char>(c);
  if (c == EOF)
    std::fputc('\n', stderr);
  return c == '\n' && (answer == "y" || answer == "yes");
}

}  // namespace

Status RunSet(const Arguments& arguments) {
  if (!arguments.group && !arguments.type && arguments.alarms.empty() && !arguments.clear_alarms)
    return FailUsage("nothing to set: --group, --type, --alarms or --clear-alarms");
  std::string group = arguments.group.value_or("");
  if (const std::string refusal = RefusalOf("group", group, kGroupNameSize); !refusal.empty())
    return FailUsage(refusal);
  if (group == kNone)
    group.clear();
  if (arguments.type && !ParseType(*arguments.type))
    return FailUsage(RefusalOfType(*arguments.type));
  std::vector<zt_SystemInfo_class> systems;
  Outcome outcome;
  outcome.Add(Collect(arguments, arguments.operands, systems));
  return ChangeEach(arguments, systems, outcome, [&](Change& change, zt_SystemInfo_class& info) {
    if (arguments.group)
      info.SetGroupName(group.c_str());
    if (arguments.type)
      info.SetSystemType(*ParseType(*arguments.type));
    if (!arguments.alarms.empty())
      info.SetMonitorAlarms(arguments.alarms == "on" ? 1 : 0);
    if (arguments.clear_alarms) {
      info.ResetAlarmStates();
      info.SetAlarmCount(0);
    }
    if (const int status = change.db().PutSystemRec(info); status != 0)
      return change.Fail("cannot change " + NameAndAddress(info), status);
    std::printf("changed %s\n", NameAndAddress(info).c_str());
    return kDone;
  });
}

Status RunMove(const Arguments& arguments) {
  const std::string& text = arguments.operands[1];
  SystemKey key = kNoSystemKey;
  if (std::string why; AddressOf("", text, key, why) != kDone)
    return FailUsage(why);
  std::vector<zt_SystemInfo_class> systems;
  Outcome outcome;
  outcome.Add(Collect(arguments, {arguments.operands[0]}, systems));
  return ChangeEach(arguments, systems, outcome, [&](Change& change, zt_SystemInfo_class& info) {
    zt_SystemInfo_class present;
    if (change.db().GetSystemRec(key, present) == 0)
      return Fail(NameAndAddress(present) + " is in " + change.path() + " already", kExists);
    const int status = change.db().Manager().MoveSystemRec(info.ReturnSystemKey(), key);
    if (status != 0)
      return change.Fail("cannot move " + NameAndAddress(info), status);
    std::printf("moved %s to %s\n", NameAndAddress(info).c_str(), text.c_str());
    return kDone;
  });
}

// The address is what identifies the system. A name need not resolve, here as with add --address,
// but one that is an address must be its own, or that address would find this system.
Status RunRename(const Arguments& arguments) {
  const std::string& name = arguments.operands[1];
  if (const std::string refusal = RefusalOf("name", name, kSystemNameSize); !refusal.empty())
    return FailUsage(refusal);
  std::vector<zt_SystemInfo_class> systems;
  if (const Status status = Collect(arguments, {arguments.operands[0]}, systems); status != kDone)
    return status;
  if (LooksLikeAddress(name) && ParseAddress(name) != systems[0].ReturnSystemKey())
    return Fail("'" + name + "' is not the address of " + NameAndAddress(systems[0]));
  return ChangeEach(arguments, systems, Outcome(), [&](Change& change, zt_SystemInfo_class& info) {
    if (const int status = change.db().PutSystemRec(WithName(info, name)); status != 0)
      return change.Fail("cannot rename " + NameAndAddress(info), status);
    std::printf("renamed %s to %s\n", NameAndAddress(info).c_str(), name.c_str());
    return kDone;
  });
}

Status RunDelete(const Arguments& arguments) {
  if (!arguments.yes && isatty(STDIN_FILENO) == 0)
    return FailUsage("standard input is no terminal to ask on: say --yes");
  std::vector<zt_SystemInfo_class> systems;
  Outcome outcome;
  outcome.Add(Collect(arguments, arguments.operands, systems));
  std::erase_if(systems, [&](const zt_SystemInfo_class& info) {
    const std::string system = NameAndAddress(info);
    if (arguments.yes || Confirmed("Delete " + system + " from " + DatabasePath(arguments) + "?"))
      return false;
    outcome.Add(Fail(system + " is not deleted"));
    return true;
  });
  return ChangeEach(arguments, systems, outcome, [&](Change& change, zt_SystemInfo_class& info) {
    if (const int status = change.db().DeleteSystemRec(info.ReturnSystemKey()); status != 0)
      return change.Fail("cannot delete " + NameAndAddress(info), status);
    std::printf("deleted %s\n", NameAndAddress(info).c_str());
    return kDone;
  });
}

}  // namespace ztsys
