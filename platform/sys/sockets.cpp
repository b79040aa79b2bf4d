// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/sockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <nss.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>

#include "platform/sys/fiber.h"
#include "platform/sys/network_files.h"

namespace sockets {
namespace {

sys::FiberLocal<int> last_error;

std::atomic<bool> silent_name_server = false;
// A failure that took so long is a time-out; a name server that is there and fails says so sooner.
constexpr std::chrono::milliseconds kSilence{1000};

int fail(int error_number) {
  *last_error = error_number;
  return -1;
}

int fail_posix() {
  return fail(workstation_error(errno));
}

struct ErrorPair {
  int posix;
  int workstation;
};

constexpr ErrorPair kErrors[] = {
    {EINTR, WSAEINTR},
    {EBADF, WSAENOTSOCK},
    {ENOTSOCK, WSAENOTSOCK},
    {EACCES, WSAEACCES},
    {EPERM, WSAEACCES},
    {EFAULT, WSAEFAULT},
    {EMFILE, WSAEMFILE},
    {ENFILE, WSAEMFILE},
    {EAGAIN, WSAEWOULDBLOCK},
    {EALREADY, WSAEALREADY},
    {EMSGSIZE, WSAEMSGSIZE},
    {EPROTONOSUPPORT, WSAEPROTONOSUPPORT},
    {EAFNOSUPPORT, WSAEAFNOSUPPORT},
    {EADDRINUSE, WSAEADDRINUSE},
    {EADDRNOTAVAIL, WSAEADDRNOTAVAIL},
    {ENETDOWN, WSAENETDOWN},
    {ENETUNREACH, WSAENETUNREACH},
    {ENETRESET, WSAENETRESET},
    {ECONNABORTED, WSAECONNABORTED},
    {ECONNRESET, WSAECONNRESET},
    {EPIPE, WSAECONNRESET},
    {ENOBUFS, WSAENOBUFS},
    {ENOMEM, WSAENOBUFS},
    {EISCONN, WSAEISCONN},
    {ENOTCONN, WSAENOTCONN},
    {ESHUTDOWN, WSAESHUTDOWN},
    {ETIMEDOUT, WSAETIMEDOUT},
    {ECONNREFUSED, WSAECONNREFUSED},
    {EHOSTDOWN, WSAEHOSTDOWN},
    {EHOSTUNREACH, WSAEHOSTUNREACH},
};

// Waits until the socket is ready for the events. 0, or -1 with the error number stored.
int wait_for(Socket socket, short events, const Deadline& deadline) {
  const int ready = sys::wait_ready(socket, events, deadline);
  if (ready > 0)
    return 0;
  return ready == 0 ? fail(WSAETIMEDOUT) : fail_posix();
}

// The result of a connect that was begun without waiting.
int finish_connect(Socket socket, const Deadline& deadline) {
  if (wait_for(socket, POLLOUT, deadline) < 0)
    return -1;
  int error = 0;
  socklen_t size = sizeof(error);
  if (::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) < 0)
    return fail_posix();
  return error == 0 ? 0 : fail(workstation_error(error));
}

int resolver_error(int h_error) {
  switch (h_error) {
    case HOST_NOT_FOUND:
      return WSAHOST_NOT_FOUND;
    case TRY_AGAIN:
      return WSATRY_AGAIN;
    case NO_DATA:
      return WSANO_DATA;
    default:
      return WSANO_RECOVERY;
  }
}

// Runs a reentrant lookup of the C library with a buffer that grows as the lookup asks, to a limit
// that no honest entry reaches. lookup(entry, buffer, size, result, h_error) gives 0 or ERANGE.
template <typename Lookup>
std::optional<HostEntry> look_up_host(Lookup lookup) {
  constexpr std::size_t kLargestEntry = 256 * 1024;
  std::vector<char> buffer(2048);
  hostent entry{};
  hostent* found = nullptr;
  int h_error = NO_RECOVERY;
  sys::run_beside([&] {
    const auto begin = std::chrono::steady_clock::now();
    while (lookup(&entry, buffer.data(), buffer.size(), &found, &h_error) == ERANGE &&
           buffer.size() < kLargestEntry)
      buffer.resize(buffer.size() * 2);
    // Told here, so that no look-up that waits for this one begins before.
    if (found == nullptr && h_error == TRY_AGAIN &&
        std::chrono::steady_clock::now() - begin >= kSilence && !silent_name_server.exchange(true))
      ::__nss_configure_lookup("hosts", "files");
  });
  if (found == nullptr) {
    fail(resolver_error(h_error));
    return std::nullopt;
  }

  HostEntry result;
  result.h_name = found->h_name == nullptr ? "" : found->h_name;
  for (char** address = found->h_addr_list; address != nullptr && *address != nullptr; ++address) {
    std::uint32_t octets = 0;
    std::memcpy(&octets, *address,
                std::min<std::size_t>(sizeof(octets), static_cast<std::size_t>(found->h_length)));
    result.h_addr_list.push_back(octets);
  }
  if (result.h_addr_list.empty()) {
    fail(WSANO_DATA);
    return std::nullopt;
  }
  return result;
}

// One number of a dotted text, by C's rules for the base; takes its characters off the text.
std::optional<std::uint32_t> take_number(std::string_view& text) {
  unsigned base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  } else if (text.starts_with('0')) {
    base = 8;
  }
  std::uint64_t number = 0;
  std::size_t digits = 0;
  for (; digits < text.size(); ++digits) {
    const auto c = static_cast<unsigned char>(text[digits]);
    if (std::isxdigit(c) == 0)
      break;
    const unsigned digit = std::isdigit(c) != 0 ? static_cast<unsigned>(c - '0')
                                                : static_cast<unsigned>(std::tolower(c) - 'a' + 10);
    if (digit >= base)
      return std::nullopt;
    number = number * base + digit;
    if (number > 0xFFFFFFFFU)
      return std::nullopt;
  }
  if (digits == 0)
    return std::nullopt;
  text.remove_prefix(digits);
  return static_cast<std::uint32_t>(number);
}

}  // namespace

Deadline deadline_after(std::chrono::seconds limit) {
  return std::chrono::steady_clock::now() + limit;
}

int WSAStartup(std::uint16_t version) {
  const int major = version & 0xFF;
  return major == 1 || major == 2 ? 0 : WSAVERNOTSUPPORTED;
}

int WSAGetLastError() {
  return *last_error;
}

int workstation_error(int posix_error) {
  const auto* const found =
      std::find_if(std::begin(kErrors), std::end(kErrors),
                   [posix_error](const ErrorPair& pair) { return pair.posix == posix_error; });
  return found == std::end(kErrors) ? WSAEINVAL : found->workstation;
}

int gethostname(char* name, int size) {
  char local[256] = {};
  if (name == nullptr || size <= 0 || ::gethostname(local, sizeof(local) - 1) < 0)
    return fail(WSAEFAULT);
  const std::size_t length = std::strlen(local);
  if (length >= static_cast<std::size_t>(size))
    return fail(WSAEFAULT);
  std::memcpy(name, local, length + 1);
  return 0;
}

std::optional<HostEntry> gethostbyname(const char* name) {
  constexpr std::size_t kLongestName = 255;
  if (name == nullptr || *name == '\0' || std::strlen(name) > kLongestName) {
    fail(WSAHOST_NOT_FOUND);
    return std::nullopt;
  }
  if (const auto known = sys::NetworkFiles::of_this_system().host_named(name))
    return HostEntry{known->name, {known->address}};
  return look_up_host(
      [name](hostent* entry, char* buffer, std::size_t size, hostent** found, int* h_error) {
        return ::gethostbyname2_r(name, AF_INET, entry, buffer, size, found, h_error);
      });
}

std::optional<HostEntry> gethostbyaddr(std::uint32_t address) {
  if (const auto known = sys::NetworkFiles::of_this_system().host_at(address))
    return HostEntry{known->name, {known->address}};
  return look_up_host(
      [address](hostent* entry, char* buffer, std::size_t size, hostent** found, int* h_error) {
        return ::gethostbyaddr_r(&address, sizeof(address), AF_INET, entry, buffer, size, found,
                                 h_error);
      });
}

bool has_other_family(const char* name) {
  in6_addr literal{};
  std::string text = name != nullptr ? name : "";
  if (text.starts_with('[') && text.ends_with(']'))
    text = text.substr(1, text.size() - 2);
  text.resize(std::min(text.size(), text.find('%')));
  if (::inet_pton(AF_INET6, text.c_str(), &literal) == 1)
    return true;
  addrinfo wanted{};
  wanted.ai_family = AF_INET6;
  addrinfo* found = nullptr;
  int failed = EAI_NONAME;
  if (!text.empty())
    sys::run_beside([&] { failed = ::getaddrinfo(text.c_str(), nullptr, &wanted, &found); });
  if (failed != 0)
    return false;
  ::freeaddrinfo(found);
  return true;
}

bool name_server_silent() {
  return silent_name_server;
}

std::uint32_t inet_addr(const char* text) {
  std::string_view rest = text == nullptr ? std::string_view{} : std::string_view{text};
  std::uint32_t leading = 0;  // the octets before the last number
  for (int octets = 0; octets < 4; ++octets) {
    const std::optional<std::uint32_t> number = take_number(rest);
    if (!number)
      return kNoAddress;
    if (rest.empty()) {
      // The last number fills all the bytes that are left.
      const int bits = 8 * (4 - octets);
      if (bits < 32 && (*number >> bits) != 0)
        return kNoAddress;
      return ::htonl(leading | *number);
    }
    if (*number > 255 || rest.front() != '.')
      return kNoAddress;
    leading |= octets < 3 ? *number << (24 - 8 * octets) : 0;
    rest.remove_prefix(1);
  }
  return kNoAddress;
}

std::optional<ServiceEntry> getservbyname(const char* name, const char* protocol) {
  constexpr std::size_t kLargestEntry = 64 * 1024;
  if (const auto port = sys::NetworkFiles::of_this_system().port_of(name, protocol)) {
    if (*port == 0)
      fail(WSANO_DATA);
    return *port == 0 ? std::nullopt : std::optional(ServiceEntry{htons(*port)});
  }
  std::vector<char> buffer(1024);
  servent entry{};
  servent* found = nullptr;
  while (::getservbyname_r(name, protocol, &entry, buffer.data(), buffer.size(), &found) ==
             ERANGE &&
         buffer.size() < kLargestEntry)
    buffer.resize(buffer.size() * 2);
  if (found == nullptr) {
    fail(WSANO_DATA);
    return std::nullopt;
  }
  return ServiceEntry{static_cast<std::uint16_t>(found->s_port)};
}

Socket socket(int family, int type, int protocol) {
  const Socket made = ::socket(family, type | SOCK_CLOEXEC, protocol);
  return made >= 0 ? made : fail_posix();
}

int connect(Socket socket, const sockaddr_in& address, std::chrono::seconds limit) {
  const Deadline deadline = deadline_after(std::min(limit, kLongestConnect));
  const int flags = ::fcntl(socket, F_GETFL);
  if (flags < 0 || ::fcntl(socket, F_SETFL, flags | O_NONBLOCK) < 0)
    return fail_posix();

  int result = ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  // An interrupted connect goes on by itself, like one that would have waited.
  if (result < 0 && (errno == EINPROGRESS || errno == EINTR))
    result = finish_connect(socket, deadline);
  else if (result < 0)
    result = fail_posix();

  if (::fcntl(socket, F_SETFL, flags) < 0 && result == 0)
    return fail_posix();
  return result;
}

int send(Socket socket, std::span<const std::byte> bytes, Deadline deadline) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const std::size_t rest = std::min<std::size_t>(bytes.size() - sent, INT_MAX - sent);
    const ssize_t count = ::send(socket, bytes.data() + sent, rest, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count >= 0) {
      sent += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      if (wait_for(socket, POLLOUT, deadline) < 0)
        return -1;
    } else if (errno != EINTR) {
      return fail_posix();
    }
  }
  return static_cast<int>(sent);
}

int recv(Socket socket, std::span<std::byte> buffer, Deadline deadline) {
  for (;;) {
    const ssize_t count =
        ::recv(socket, buffer.data(), std::min<std::size_t>(buffer.size(), INT_MAX), MSG_DONTWAIT);
    if (count >= 0)
      return static_cast<int>(count);
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      if (wait_for(socket, POLLIN, deadline) < 0)
        return -1;
    } else if (errno != EINTR) {
      return fail_posix();
    }
  }
}

int closesocket(Socket socket) {
  // Linux releases the descriptor even when close reports an interruption.
  return ::close(socket) == 0 || errno == EINTR ? 0 : fail_posix();
}

}  // namespace sockets
