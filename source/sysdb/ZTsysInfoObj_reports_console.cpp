// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): reports that look
// up the host name themselves.

#include <cstdio>
#include <string>

#include "source/support/ZTprintable.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

constexpr std::int32_t kReportHostNameSize = 255;

// The host name of a key; empty when it has none.
std::string HostNameOf(SystemKey key) {
  char name[kHostNameSize] = "";
  return SystemKeyToARPAName(key, name, kReportHostNameSize) == 0 ? printable(name) : "";
}

}  // namespace

void zt_SystemInfo_class::PrintSystemShortInfo() const {
  PrintSystemShortInfo(HostNameOf(fSystemKey));
}

void zt_SystemInfo_class::PrintSystemInfo() const {
  PrintSystemInfo(HostNameOf(fSystemKey), ReturnBackConnectName());
}

void zt_SystemDBMgt_class::PrintGeneralInfo() {
  SYSTEM_VERSION_ENTRY version{};
  if (ReadVersion(version) != 0)
    std::printf("\n  System DB Version : unknown\n");
  else
    std::printf("\n  System DB Version : %d\n", version.fVersion);
}
