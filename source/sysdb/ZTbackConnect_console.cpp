// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): the name of one
// system.

#include <cstring>

#include "source/sysdb/ZTbackConnect.h"

const char* BackConnectFile::NameOf(const char* system_name) {
  ForEach([&](const char* system, const char*) {
    return std::strncmp(system, system_name, kSystemNameSize) != 0;
  });
  return name_[0] != '\0' ? name_ : nullptr;
}
