// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/names/network_address.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <memory>

#include "platform/rpc/rpc.h"
#include "platform/sys/fiber.h"

namespace rpc {
namespace {

constexpr std::size_t kLongestHostName = 253;  // RFC 1035 section 2.3.4

bool host_name_character(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '-' || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

// Characters of a host name, and not only the digits and points of a dotted address that is none.
bool may_be_host_name(const std::string& text) {
  return text.size() <= kLongestHostName &&
         std::all_of(text.begin(), text.end(), host_name_character) &&
         text.find_first_not_of("0123456789.") != std::string::npos;
}

}  // namespace

std::optional<std::uint16_t> parse_port(const std::string& text) {
  std::uint16_t port = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, port);
  if (error != std::errc() || stop != end || port == 0)
    return std::nullopt;
  return port;
}

ResolvedHost resolve_host(const std::string& text) {
  if (text.empty())
    return {RPC_S_OK, INADDR_LOOPBACK};
  in_addr dotted{};
  if (inet_pton(AF_INET, text.c_str(), &dotted) == 1 && text.find('\0') == std::string::npos)
    return {RPC_S_OK, ntohl(dotted.s_addr)};
  if (!may_be_host_name(text))
    return {RPC_S_INVALID_NET_ADDR, 0};

  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  int failure = 0;
  sys::run_beside([&] { failure = getaddrinfo(text.c_str(), nullptr, &hints, &found); });
  if (failure != 0 || found == nullptr)
    return {RPC_S_SERVER_UNAVAILABLE, 0};
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> guard(found, freeaddrinfo);
  const auto* address = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
  return {RPC_S_OK, ntohl(address->sin_addr.s_addr)};
}

}  // namespace rpc
