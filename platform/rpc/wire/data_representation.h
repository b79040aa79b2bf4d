// SPDX-License-Identifier: Apache-2.0
// The data representation label of a packet (C706 14.1).

#pragma once

#include <cstdint>

namespace rpc {

struct DataRepresentation {
  bool little_endian = true;
  bool ebcdic = false;
  std::uint8_t floating_point = 0;  // 0 IEEE, 1 VAX, 2 Cray, 3 IBM

  friend bool operator==(const DataRepresentation&, const DataRepresentation&) = default;
};

}  // namespace rpc
