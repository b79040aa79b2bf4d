// SPDX-License-Identifier: Apache-2.0
// A system whose location broker is well and whose servers answer what an input says. It stands in
// for sockets and the call machine.
//
// The input is a list of replies, each taken by one call: an octet of flags (1 big-endian, 2
// EBCDIC, 4 the call fails in the way that the body's first octet chooses), two octets of length
// (low first), the body. A call without a reply fails.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace fuzz {

// `map`, where it is given, is the endpoint map's reply to every look-up, and its servers listen.
// The input is not copied.
void script_replies(const std::uint8_t* data, std::size_t size, std::vector<std::byte> map = {});

}  // namespace fuzz
