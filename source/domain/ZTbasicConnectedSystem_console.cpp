// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): which collector a
// system has.

#include <string_view>

#include "source/domain/ZTbasicConnectedSystem.h"

int BASIC_CONNECTED_SYSTEM_OBJ::IsTAMBO() const {
  return objServerInfo && std::string_view(objServerInfo->ReturnCollector()).starts_with("TAMBO");
}
