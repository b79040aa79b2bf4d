// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): the location
// broker's commands for servers.

#include <initializer_list>

#include "platform/rpc/rpc.h"
#include "shared/dce/hublnk_exchange.h"

namespace {

// A command whose reply is its status, and an object identifier where one is wanted.
unsigned char server_command(sockets::Socket fd, HublnkCommand command, const uuid_t* serverType,
                             std::initializer_list<const char*> texts, uuid_t* serverObjId,
                             std::uint32_t* status) {
  *status = 0;
  Exchange exchange(command);
  if (serverType != nullptr) {
    char* text = nullptr;
    *status = UuidToStringA(serverType, &text);
    if (*status != 0)
      return 0;
    exchange.add(text);
    RpcStringFreeA(&text);
  }
  for (const char* text : texts)
    exchange.add(text);
  if (!exchange.run(fd, {}, status))
    return 0;
  if (!exchange.replied()) {
    *status = kHublnkNoReply;
    return 1;
  }
  *status = exchange.reply().fHxmbErr;
  if (*status == 0 && serverObjId != nullptr)
    *status = UuidFromStringA(exchange.first_item().c_str(), serverObjId);
  return 1;
}

}  // namespace

unsigned char hublnk_Open(const char* hostName, sockets::Socket* fd, std::uint32_t* status) {
  *status = 0;
  *fd = sockets::kInvalidSocket;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = sockets::inet_addr(hostName);
  if (address.sin_addr.s_addr == sockets::kNoAddress) {
    const auto host = sockets::gethostbyname(hostName);
    if (!host) {
      *status = last_socket_error();
      return 0;
    }
    address.sin_addr.s_addr = host->h_addr_list.front();
  }
  address.sin_port = hublnk_Port();
  return hublnk_OpenAt(address, {}, fd, status);
}

unsigned char hublnk_Shutdown(sockets::Socket fd, std::uint32_t* status) {
  return server_command(fd, kHublnkShutdown, nullptr, {}, nullptr, status);
}

unsigned char hublnk_RegisterServer(sockets::Socket fd, uuid_t serverType, const char* serverName,
                                    const char* serverPath, uuid_t* serverObjId,
                                    std::uint32_t* status) {
  return server_command(fd, kHublnkRegisterServer, &serverType, {serverName, serverPath},
                        serverObjId, status);
}

unsigned char hublnk_UnregisterServer(sockets::Socket fd, uuid_t serverType, const char* serverName,
                                      std::uint32_t* status) {
  return server_command(fd, kHublnkUnregisterServer, &serverType, {serverName}, nullptr, status);
}

unsigned char hublnk_ActivateServer(sockets::Socket fd, uuid_t serverType, const char* serverName,
                                    uuid_t* serverObjId, std::uint32_t* status) {
  return server_command(fd, kHublnkActivateServer, &serverType, {serverName}, serverObjId, status);
}

unsigned char hublnk_DeactivateServer(sockets::Socket fd, uuid_t serverType, const char* serverName,
                                      std::uint32_t* status) {
  return server_command(fd, kHublnkDeactivateServer, &serverType, {serverName}, nullptr, status);
}

unsigned char hublnk_LookupServer(sockets::Socket, uuid_t, std::uint32_t*, std::uint32_t,
                                  std::uint32_t*, hublnk_sServerDescriptor*,
                                  std::uint32_t* status) {
  *status = kHublnkLookupNotSupported;
  return 0;
}
