// SPDX-License-Identifier: Apache-2.0
// ztsys show and alarms: reports on single systems.

#include <cstdio>

#include "source/support/ZTprintable.h"
#include "tools/ztsys/database.h"
#include "tools/ztsys/description.h"
#include "tools/ztsys/fields.h"
#include "tools/ztsys/system_store.h"

namespace ztsys {

namespace {

// The systems that the words name, or all. Words that name none, or several, are reported.
Status Collect(const Arguments& arguments, NameLookups& lookups, SystemStore& systems) {
  const auto take = [&](const zt_SystemInfo_class& info) { systems.Add(info); };
  SystemReader reader;
  if (const Status status = OpenReader(arguments, reader); status != kDone)
    return status;
  Outcome outcome;
  outcome.Add(arguments.operands.empty() ? ForEachSystem(reader, take)
                                         : FindSystems(reader, arguments.operands, lookups, take));
  outcome.Add(ReportTail(reader.path(), reader.tail()));
  return outcome.status();
}

HostNames HostNamesOf(NameLookups& lookups, const SystemStore& systems) {
  std::vector<SystemKey> keys;
  for (std::size_t i = 0; i < systems.size(); ++i)
    keys.push_back(systems[i].ReturnSystemKey());
  return lookups.NamesOf(std::move(keys));
}

// The name that the report shows beside the stored one: without an answer, none.
std::string NameIn(const HostNames& hosts, const zt_SystemInfo_class& info) {
  const auto at = hosts.find(info.ReturnSystemKey());
  return at == hosts.end() ? "" : at->second;
}

void Describe(const zt_SystemInfo_class& info, const std::string& host,
              const BackConnectNames& back_connect) {
  const auto name = back_connect.find(info.ReturnSystemName());
  info.PrintSystemInfo(host, name == back_connect.end() ? nullptr : name->second.c_str());
  const std::string group = printable(info.ReturnGroupName());
  std::printf("    Group           : %s\n", group.empty() ? "<none>" : group.c_str());
  if (info.ReturnSystemType() == 0)
    std::printf("    Type            : <none>\n");
  else
    std::printf("    Type            : %s (%s)\n", TypeText(info.ReturnSystemType()).c_str(),
                info.ReturnSystemTypeName());
}

}  // namespace

Status RunShow(const Arguments& arguments) {
  SystemStore systems;
  NameLookups lookups(arguments.numeric);
  const Status status = Collect(arguments, lookups, systems);
  const HostNames hosts = arguments.json ? HostNames() : HostNamesOf(lookups, systems);
  const BackConnectNames back_connect = ReadBackConnectNames();
  for (std::size_t i = 0; i < systems.size(); ++i) {
    const zt_SystemInfo_class info = systems[i];
    if (arguments.json)
      std::printf("%s\n", JsonOf(info, back_connect).c_str());
    else if (arguments.brief)
      info.PrintSystemShortInfo(NameIn(hosts, info));
    else
      Describe(info, NameIn(hosts, info), back_connect);
  }
  return status;
}

Status RunAlarms(const Arguments& arguments) {
  SystemStore systems;
  NameLookups lookups(arguments.numeric);
  const Status status = Collect(arguments, lookups, systems);
  const HostNames hosts = HostNamesOf(lookups, systems);
  for (std::size_t i = 0; i < systems.size(); ++i) {
    const zt_SystemInfo_class info = systems[i];
    info.PrintSystemShortInfo(NameIn(hosts, info));
    info.PrintAlarmStates();
  }
  return status;
}

}  // namespace ztsys
