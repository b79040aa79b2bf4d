// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): records by name,
// and names by key.

#include "source/sysdb/ZTsysInfoObj.h"

int zt_SystemDBMgt_class::GetSystemInfo(const char* system_name, SystemKey& key) {
  CheckSystemXrefTable();
  int index = SearchXrefTable(system_name);
  fError = ReadAtIndex(index);
  if (fError == kIndexNotFound && CheckSystemXrefTable() != 0) {
    index = SearchXrefTable(system_name);
    fError = ReadAtIndex(index);
  }
  if (fError == 0)
    key = fSystemXrefTable[static_cast<std::size_t>(index)].fKey;
  return fError;
}

int zt_SystemDBMgt_class::GetSystemRec(const char* name, zt_SystemInfo_class& info) {
  SystemKey key = kNoSystemKey;
  if (GetSystemInfo(name, key) == 0)
    info = zt_SystemInfo_class(fSystemInfo, key);
  return fError;
}

const char* zt_SystemDBMgt_class::ReturnSystemName(SystemKey key) {
  fError = 0;
  int index = fXrefSynced == 1 ? IndexOf(key) : -1;
  if (index < 1 && CheckSystemXrefTable() != 0)
    index = IndexOf(key);
  if (index < 1)
    fError = fTableStatus;
  return index < 1 ? nullptr : fSystemXrefTable[static_cast<std::size_t>(index)].ReturnSystemName();
}

const char* zt_SystemDBMgt_class::ReturnGroupName(SystemKey key) {
  if (GetSystemInfo(key) != 0)
    return nullptr;
  // The field may come from a damaged file.
  fSystemInfo.fGroupName[kGroupNameSize - 1] = '\0';
  return fSystemInfo.fGroupName;
}

const char* zt_SystemDBMgt_class::ReturnBackConnectName(SystemKey key) {
  fError = 0;
  return GetSystemInfo(key) == 0 ? ReturnCurrentBackConnectName() : nullptr;
}

const char* zt_SystemDBMgt_class::ReturnCurrentBackConnectName() {
  const char* name = fBackConnect->NameOf(fSystemInfo.fSystemName);
  fError = fBackConnect->error();
  return name;
}
