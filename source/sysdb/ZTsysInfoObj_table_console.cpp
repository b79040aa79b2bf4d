// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): places in the
// table.

#include <cstring>

#include "source/sysdb/ZTsysInfoObj.h"

int zt_SystemDBMgt_class::GetSystemRecCount() {
  if (fSystemRecCount < 0)
    InitSystemXrefTable();
  return fSystemRecCount;
}

int zt_SystemDBMgt_class::SearchXrefTable(SystemKey key) {
  OrderXrefTable();
  return IndexOf(key);
}

int zt_SystemDBMgt_class::SearchXrefTable(const char* system_name) {
  if (system_name == nullptr)
    return -1;
  OrderXrefTable();
  for (int index = 1; index <= fSystemRecCount; ++index) {
    const SYSTEM_XREF_ENTRY& entry = fSystemXrefTable[static_cast<std::size_t>(index)];
    if (entry.ReturnSystemName() != nullptr &&
        std::strcmp(entry.ReturnSystemName(), system_name) == 0)
      return entry.fLocation == -1 ? -1 : index;
  }
  return -1;
}
