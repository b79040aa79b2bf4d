// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTbasicConnectedSystem.h"

#include <string_view>

BASIC_CONNECTED_SYSTEM_OBJ::BASIC_CONNECTED_SYSTEM_OBJ(SystemKey system_key,
                                                       const char* system_name,
                                                       SystemKey server_key)
    : objSystemKey(system_key), objServerKey(server_key), objSystemID(system_name) {}
