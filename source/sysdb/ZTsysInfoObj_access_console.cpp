// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): the facade's keys
// and names, and its filters.

#include <cstring>
#include <string>

#include "shared/general/SHsysNameConv.h"
#include "source/sysdb/ZTsysInfoObj.h"
#include "source/sysdb/ZTsysInfoObj_fields.h"
#include "source/sysdb/ZTsysInfoObj_forward.h"

namespace {

// A name of at most 256 characters without its trailing blanks.
std::string Trimmed(const char* name) {
  std::string text(name, strnlen(name, kSystemNameSize - 1));
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

}  // namespace

SystemKey zt_SystemDBAccess_class::ReturnSystemKey(const char* system_name) {
  if (system_name == nullptr) {
    fError = kSysDbNameUnknown;
    return kNoSystemKey;
  }
  const std::string name = Trimmed(system_name);
  if (!name.empty() && name == fSavedSystemName)
    return fSavedSystemKey;
  StoreText(fSavedSystemName, name);
  fSavedSystemKey = ReturnSystemKey(name.c_str(), fError);
  return fSavedSystemKey;
}

SystemKey zt_SystemDBAccess_class::ReturnSystemKey(const char* system_name, int& error) {
  error = 0;
  SystemKey key = kNoSystemKey;
  // The conversion trims its argument in place.
  std::string name = system_name != nullptr ? Trimmed(system_name) : std::string();
  if (ARPANameToSystemKey(name.data(), key) == 0 && key != kNoSystemKey)
    return key;
  error = kSysDbNameUnknown;
  return kNoSystemKey;
}

const char* zt_SystemDBAccess_class::ReturnSystemName(SystemKey key) {
  return Forward([&](zt_SystemDBMgt_class& db) { return db.ReturnSystemName(key); });
}

const char* zt_SystemDBAccess_class::ReturnGroupName(SystemKey key) {
  return Forward([&](zt_SystemDBMgt_class& db) { return db.ReturnGroupName(key); });
}

const char* zt_SystemDBAccess_class::ReturnBackConnectName(SystemKey key) {
  return Forward([&](zt_SystemDBMgt_class& db) { return db.ReturnBackConnectName(key); });
}

int zt_SystemDBAccess_class::GetSystemRec(const char* name, zt_SystemInfo_class& info) {
  return Forward([&](zt_SystemDBMgt_class& db) { return db.GetSystemRec(name, info); });
}

int zt_SystemDBAccess_class::PositionAtSystem(SystemKey key) {
  return Forward([&](zt_SystemDBMgt_class& db) { return db.PositionAtSystem(key); });
}

int zt_SystemDBAccess_class::GetSystemRecCount() {
  return Forward([](zt_SystemDBMgt_class& db) { return db.GetSystemRecCount(); });
}

unsigned char zt_SystemDBAccess_class::DBChanged(zt_SystemDBMgt_class::zt_ModLevel_enum mod_level) {
  return Forward([&](zt_SystemDBMgt_class& db) { return db.DBChanged(mod_level); });
}

void zt_SystemDBAccess_class::PrintGeneralInfo() {
  Forward([](zt_SystemDBMgt_class& db) { db.PrintGeneralInfo(); });
}

int zt_SystemDBAccess_class::SetFilter(FILTER_TYPE type, const char* text) {
  if (type < GLOBAL_ID || type > ALARM_MONITOR_STATUS)
    return 0;
  fFilters.fFiltersSet = 1;
  switch (type) {
    case GLOBAL_ID:
      StoreText(fFilters.fSystemNameFilter, text != nullptr ? text : "");
      return 0;
    case SYSTEM_TYPE:
    case ALARM_MGR_ERROR:
    case ALARM_MONITOR_STATUS:
      return -1;
    default:
      return 0;
  }
}

int zt_SystemDBAccess_class::SetFilter(FILTER_TYPE type, int number) {
  if (type < GLOBAL_ID || type > ALARM_MONITOR_STATUS)
    return 0;
  fFilters.fFiltersSet = 1;
  switch (type) {
    case GLOBAL_ID:
      return -1;
    case SYSTEM_TYPE:
      fFilters.fSystemTypeFilter = number;
      return 0;
    case ALARM_MGR_ERROR:
      fFilters.fAlarmMgrErrorFilter = 1;
      return 0;
    case ALARM_MONITOR_STATUS:
      fFilters.fAlarmMgrStatusFilter = number;
      return 0;
    default:
      return 0;
  }
}
