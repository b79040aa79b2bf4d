// SPDX-License-Identifier: Apache-2.0
// What a stub knows of its interface and operation; values that never change.

#pragma once

#include <cstdint>

#include "platform/rpc/names/uuid.h"

namespace rpc {

struct InterfaceSpec {
  uuid_t id;
  std::uint16_t major;
  std::uint16_t minor;
  const char* name;

  // The header's if_vers: major in the low, minor in the high half (C706 12.5.2.13).
  constexpr std::uint32_t version() const {
    return major | static_cast<std::uint32_t>(minor) << 16;
  }
};

struct OperationSpec {
  const InterfaceSpec* interface;
  std::uint16_t opnum;
  bool idempotent;
  const char* name;
};

}  // namespace rpc
