// SPDX-License-Identifier: Apache-2.0
// A context handle as it travels: 20 bytes, all zero is null (C706 14.3.11).

#pragma once

#include <cstdint>

#include "platform/rpc/names/uuid.h"

namespace rpc {

struct WireContext {
  std::uint32_t attributes = 0;
  uuid_t id{};

  bool null() const { return *this == WireContext{}; }
  friend bool operator==(const WireContext&, const WireContext&) = default;
};

}  // namespace rpc
