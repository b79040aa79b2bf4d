// SPDX-License-Identifier: Apache-2.0
#include "source/support/ZTglobal.h"

#include "platform/rpc/rpc.h"
#include "platform/sys/sockets.h"

uuid_t uuid_nil{};
std::uint32_t zt_com_timeout = kDefaultComTimeout;

namespace {

constexpr std::uint16_t kSocketVersion = 0x0101;

}  // namespace

void zt_globalInit() {
  sockets::WSAStartup(kSocketVersion);
  DCEinit();
}

void DCEinit() {
  UuidCreateNil(&uuid_nil);
  zt_com_timeout = kDefaultComTimeout;
}
