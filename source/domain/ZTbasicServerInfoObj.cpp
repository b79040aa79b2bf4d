// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTbasicServerInfoObj.h"

#include <cstring>

BASIC_SERVER_INFO_OBJ::BASIC_SERVER_INFO_OBJ(const char* system_name, SystemKey system_key)
    : objSystemKey(system_key) {
  if (system_name != nullptr)
    std::strncpy(objSystemID, system_name, sizeof objSystemID - 1);
}
