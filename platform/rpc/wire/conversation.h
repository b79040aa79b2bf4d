// SPDX-License-Identifier: Apache-2.0
// The two conversation interfaces (C706 appendix P). Servers ask clients who they are; clients that
// hold a server's contexts tell it that they live.

#pragma once

#include <cstdint>

#include "platform/rpc/names/uuid.h"

namespace rpc::conversation {

inline constexpr uuid_t kOfClients = {0x333a2276, 0x0000, 0x0000,
                                      0x0d,       0x00,   {0x00, 0x80, 0x9c, 0x00, 0x00, 0x00}};
inline constexpr std::uint16_t kOfClientsMajor = 3;
inline constexpr std::uint16_t kWhoAreYou = 0;
inline constexpr std::uint16_t kWhoAreYou2 = 1;
inline constexpr std::uint16_t kAreYouThere = 2;

inline constexpr uuid_t kOfServers = {0x4a967f14, 0x3000, 0x0000,
                                      0x0d,       0x00,   {0x01, 0x28, 0x82, 0x00, 0x00, 0x00}};
inline constexpr std::uint32_t kOfServersVersion = 1;
// A maybe call with the client's address space UUID.
inline constexpr std::uint16_t kStillHere = 0;

}  // namespace rpc::conversation
