// SPDX-License-Identifier: Apache-2.0
// Replies of a location broker, as bytes on a connection that ends behind them.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "shared/dce/hublnk_client.h"

namespace {

// Runs a command against a peer that has already answered.
template <typename Command>
void exchange(const std::uint8_t* data, std::size_t size, const Command& command) {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
    std::abort();
  const std::size_t most = std::min<std::size_t>(size, 40000);
  if (most != 0 && ::send(ends[1], data, most, MSG_NOSIGNAL) < 0)
    std::abort();
  ::shutdown(ends[1], SHUT_WR);
  command(ends[0]);
  ::close(ends[0]);
  ::close(ends[1]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  exchange(data, size, [](int fd) {
    std::uint16_t major = 0, minor = 0;
    std::uint32_t status = 0;
    const bool done = hublnk_Negotiate(fd, &major, &minor, &status) != 0;
    if (!done && status == 0)
      std::abort();  // a failure always has its status
  });
  exchange(data, size, [](int fd) {
    uuid_t object{};
    std::uint32_t status = 0;
    hublnk_ActivateServer(fd, uuid_t{}, "server", &object, &status);
  });
  return 0;
}
