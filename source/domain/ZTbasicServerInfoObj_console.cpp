// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): what is known of a
// server before it is asked.

#include <cstring>

#include "source/domain/ZTbasicServerInfoObj.h"

BASIC_SERVER_INFO_OBJ::BASIC_SERVER_INFO_OBJ(const char* system_name, SystemKey system_key)
    : objSystemKey(system_key) {
  if (system_name != nullptr)
    std::strncpy(objSystemID, system_name, sizeof objSystemID - 1);
}
