// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/wire/path_limit.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "platform/rpc/wire/pdu.h"

namespace rpc {
namespace {

constexpr std::size_t kIpAndUdpHeaders = 28;
// Larger fragments gain little and make every loss dearer.
constexpr std::size_t kLargestFragment = 8192;
// A little more than what every path takes is not worth the trial.
constexpr std::size_t kLeastLargeFragment = 2 * kLeastMaxFragment;

}  // namespace

// The route's MTU, which the kernel tells of connected sockets only.
std::size_t path_limit_to(const SocketAddress& host) {
  const int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (probe < 0)
    return kLeastMaxFragment;
  const sockaddr_in address = to_sockaddr(host);
  int mtu = 0;
  socklen_t size = sizeof mtu;
  const bool known =
      connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      getsockopt(probe, IPPROTO_IP, IP_MTU, &mtu, &size) == 0 &&
      mtu > static_cast<int>(kIpAndUdpHeaders);
  close(probe);
  if (!known)
    return kLeastMaxFragment;
  const std::size_t limit = static_cast<std::size_t>(mtu) - kIpAndUdpHeaders;
  return std::min(limit, limit < kLeastLargeFragment ? kLeastMaxFragment : kLargestFragment);
}

}  // namespace rpc
