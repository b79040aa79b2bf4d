// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): socket strings.

#include "platform/sys/sockets.h"
#include "shared/general/SHsysNameConv.h"

void SystemKeyToSocketString(SystemKey key, char* output) {
  ptc_KeyConversion_struct conversion;
  conversion.Int = static_cast<std::uint32_t>(key);
  SHformatSystemKey(conversion, output, myTrue);
}

int GetSocketString(const char* host_name, char* output) {
  const auto entry = sockets::gethostbyname(host_name);
  if (!entry || static_cast<SystemKey>(entry->h_addr_list.front()) == kNoSystemKey)
    return -2;
  SystemKeyToSocketString(static_cast<SystemKey>(entry->h_addr_list.front()), output);
  return 0;
}

int GetLocalSocketString(char* output) {
  char name[kHostNameSize];
  if (sockets::gethostname(name, sizeof(name)) < 0)
    return -1;
  return GetSocketString(name, output);
}
