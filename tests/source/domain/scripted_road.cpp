// SPDX-License-Identifier: Apache-2.0
// The road to the scripted agent: the probe's listener, the location broker and the endpoint query.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "platform/sys/sockets.h"
#include "scripted_agent.h"
#include "shared/dce/hublnk_client.h"
#include "shared/dce/ncs2dce.h"

ScriptedAgent agent;

namespace {

// A socket on a loopback address; port 0: any, and the one it got.
int loopback_socket(SystemKey key, bool listening, int* port) {
  const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = static_cast<std::uint32_t>(key);
  address.sin_port = sockets::htons(static_cast<std::uint16_t>(*port));
  socklen_t size = sizeof address;
  EXPECT_EQ(0, ::bind(descriptor, reinterpret_cast<sockaddr*>(&address), size));
  EXPECT_EQ(0, ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size));
  EXPECT_TRUE(!listening || ::listen(descriptor, 64) == 0);
  *port = sockets::ntohs(address.sin_port);
  return descriptor;
}

// Takes the connections of earlier probes off the queue, which would be full some day. They are
// reset, so that they leave no port in use.
void drop_connections(int listener) {
  const linger reset{1, 0};
  for (int each = ::accept(listener, nullptr, nullptr); each >= 0;
       each = ::accept(listener, nullptr, nullptr)) {
    ::setsockopt(each, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    ::close(each);
  }
}

int listening_port() {
  static int port = 0;
  static const int listener = loopback_socket(kLoopback, true, &port);
  EXPECT_GE(listener, 0);
  drop_connections(listener);
  return port;
}

}  // namespace

void listen_on(SystemKey key) {
  int port = listening_port();
  EXPECT_GE(loopback_socket(key, true, &port), 0);
}

int refusing_port() {
  int port = 0;
  ::close(loopback_socket(kLoopback, false, &port));
  return port;
}

// --- Location broker.

std::uint16_t hublnk_Port() {
  const int port = agent.probe_port != 0 ? agent.probe_port : listening_port();
  return sockets::htons(static_cast<std::uint16_t>(port));
}

unsigned char hublnk_OpenAt(const sockaddr_in& address, const hublnk_Limits&, sockets::Socket* fd,
                            std::uint32_t* status) {
  *fd = sockets::socket(AF_INET, SOCK_STREAM, 0);
  *status = 0;
  if (sockets::connect(*fd, address) == 0)
    return 1;
  *status = static_cast<std::uint32_t>(sockets::WSAGetLastError());
  sockets::closesocket(*fd);
  return 0;
}

unsigned char hublnk_Close(sockets::Socket& fd, std::uint32_t* status) {
  sockets::closesocket(fd);
  *status = 0;
  return 1;
}

unsigned char hublnk_Negotiate(sockets::Socket, std::uint16_t* major, std::uint16_t* minor,
                               std::uint32_t* status, const hublnk_Limits&, bool*) {
  *major = agent.major;
  *minor = 0;
  *status = agent.broker_status;
  return *status == 0;
}

// --- Endpoint query.

void ptc_rpc_ep_lookup(RPC_BINDING_HANDLE, const rpc_if_id_t* interface_id, const uuid_t*,
                       ptc_RpcClientContextStruct* list, std::uint32_t* size,
                       error_status_t* status, ptc_LookupLosses* losses, const ptc_LookupOptions&) {
  *status = agent.lookup_status;
  *losses = agent.losses;
  if (*status != 0)
    return;
  const auto& servers =
      interface_id->uuid == zt_v2_ag_v2_0_c_ifspec->id ? agent.alarm_servers : agent.servers;
  *size = static_cast<std::uint32_t>(std::min<std::size_t>(*size, servers.size()));
  for (std::uint32_t i = 0; i < *size; ++i) {
    list[i] = {};
    RpcStringBindingComposeA(nullptr, "ncadg_ip_udp", "127.0.0.1",
                             std::to_string(servers[i].port).c_str(), nullptr,
                             &list[i].fStringBinding);
    RpcBindingFromStringBindingA(list[i].fStringBinding, &list[i].fBindingHandle);
    ++agent.records_held;
  }
}

void ptc_rpc_clnt_ctx_free(ptc_RpcClientContextStruct* list, std::uint32_t size,
                           error_status_t* status) {
  for (std::uint32_t i = 0; i < size; ++i) {
    *status = RpcBindingFree(&list[i].fBindingHandle);
    *status = RpcStringFreeA(&list[i].fStringBinding);
    --agent.records_held;
  }
}
