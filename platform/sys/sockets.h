// SPDX-License-Identifier: Apache-2.0
// The workstation's socket calls over POSIX sockets: the same names, its error numbers, IPv4 only.
//
// Every call that fails stores a number for WSAGetLastError. None can end the process with SIGPIPE,
// and interrupted system calls are resumed inside. A call that waits lets other jobs of its loop
// run (platform/sys/fiber.h). Always qualify the calls (sockets::connect).

#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/numbers/network_error.h"

// The C library may define these as macros too; callers write sockets::htons.
#undef htons
#undef ntohs
#undef htonl
#undef ntohl

namespace sockets {

using ::htons;
using ::ntohs;

using Socket = int;
inline constexpr Socket kInvalidSocket = -1;

// What inet_addr gives for a text that is no address.
inline constexpr std::uint32_t kNoAddress = 0xFFFFFFFFU;

// The workstation's own limit of a connect: its handshake packets go unanswered for so long.
inline constexpr std::chrono::seconds kLongestConnect{21};

// A point in time at which a call gives up with WSAETIMEDOUT; none: it waits without limit.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

// The deadline that lies so many seconds ahead.
Deadline deadline_after(std::chrono::seconds limit);

// What a lookup found. Addresses are in network byte order, in the resolver's order, at least one.
struct HostEntry {
  std::string h_name;  // official name
  std::vector<std::uint32_t> h_addr_list;
};

struct ServiceEntry {
  std::uint16_t s_port = 0;  // network byte order
};

// version: low byte major, high byte minor. 0, or WSAVERNOTSUPPORTED for a major version other
// than 1 and 2. POSIX sockets need no start-up; nothing else depends on the call.
int WSAStartup(std::uint16_t version);

// The number of this job's (outside fibers, this thread's) last failed call; 0 when none has
// failed.
int WSAGetLastError();

// The number that the workstation has for an errno value; WSAEINVAL for one that it lacks.
int workstation_error(int posix_error);

// The local host name into a buffer of `size` bytes, terminated. 0, or -1 (WSAEFAULT when it does
// not fit).
int gethostname(char* name, int size);

// First IPv4 addresses of a name or dotted text, through the C library's resolver; reentrant.
// Nothing: WSAHOST_NOT_FOUND, WSATRY_AGAIN, WSANO_RECOVERY or, for a name without IPv4 address,
// WSANO_DATA.
std::optional<HostEntry> gethostbyname(const char* name);

// Whether a name, or a literal, stands for addresses of another family only (IPv6).
bool has_other_family(const char* name);

// Whether a look-up in this process failed for want of a name server's answer. From then on names
// and addresses are looked up in the hosts file alone, so that nobody waits for it again.
bool name_server_silent();

// The name of an address (network byte order). Errors as for gethostbyname.
std::optional<HostEntry> gethostbyaddr(std::uint32_t address);

// The classic forms a.b.c.d, a.b.c, a.b and a with decimal, octal (0) and hexadecimal (0x) numbers,
// nothing before or behind them. Network byte order; kNoAddress for any other text.
std::uint32_t inet_addr(const char* text);

// Nothing (WSANO_DATA) for a service that the services data base lacks.
std::optional<ServiceEntry> getservbyname(const char* name, const char* protocol);

// A new socket, closed on exec; kInvalidSocket on failure.
Socket socket(int family, int type, int protocol);

// 0, or -1 with the error number: WSAECONNREFUSED, WSAETIMEDOUT after the smaller of `limit` and
// kLongestConnect, WSAEHOSTUNREACH, WSAENETUNREACH ... A socket that failed to connect is good for
// closesocket only.
int connect(Socket socket, const sockaddr_in& address,
            std::chrono::seconds limit = kLongestConnect);

// Sends all of the bytes. Their number, or -1.
int send(Socket socket, std::span<const std::byte> bytes, Deadline deadline = std::nullopt);

// Receives what has arrived, at least one byte and at most the buffer. The number of bytes, 0 when
// the peer has closed, or -1. For a limit over a whole reply, pass the same deadline to every call.
int recv(Socket socket, std::span<std::byte> buffer, Deadline deadline = std::nullopt);

// 0, or -1 (WSAENOTSOCK).
int closesocket(Socket socket);

}  // namespace sockets
