// SPDX-License-Identifier: Apache-2.0
#include "source/support/ZTglobal.h"

#include <array>

#include "platform/rpc/rpc.h"
#include "platform/sys/sockets.h"

uuid_t uuid_nil{};
std::uint32_t zt_com_timeout = kDefaultComTimeout;

namespace {

constexpr std::uint16_t kSocketVersion = 0x0101;
// Levels 0 to 9, in seconds; the runtime waits as long for a server.
constexpr std::array<int, kNoComTimeout> kSecondsOfLevel = {1, 2, 4, 8, 15, 30, 60, 120, 240, 480};

}  // namespace

void zt_globalInit() {
  sockets::WSAStartup(kSocketVersion);
  DCEinit();
}

void DCEinit() {
  UuidCreateNil(&uuid_nil);
  zt_com_timeout = kDefaultComTimeout;
}

std::optional<std::chrono::seconds> zt_timeout_limit(std::uint32_t level) {
  if (level >= kSecondsOfLevel.size())
    return std::nullopt;
  return std::chrono::seconds(kSecondsOfLevel[level]);
}
