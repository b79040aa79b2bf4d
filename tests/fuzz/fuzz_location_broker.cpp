// SPDX-License-Identifier: Apache-2.0
// Replies of a location broker, as bytes on a connection that ends behind them.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "shared/dce/hublnk_client.h"
#include "tests/fuzz/require.h"

namespace {

// Runs a command against a peer that has already answered.
template <typename Command>
void exchange(const std::uint8_t* data, std::size_t size, const Command& command) {
  int ends[2];
  fuzz::require(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  const std::size_t most = std::min<std::size_t>(size, 40000);
  fuzz::require(most == 0 || ::send(ends[1], data, most, MSG_NOSIGNAL) >= 0);
  ::shutdown(ends[1], SHUT_WR);
  command(ends[0]);
  ::close(ends[0]);
  ::close(ends[1]);
}

}  // namespace

// The first octet chooses the command.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  exchange(data + 1, size - 1, [command = data[0] % 6](int fd) {
    const uuid_t type{};
    uuid_t object{};
    std::uint16_t major = 0, minor = 0;
    std::uint32_t status = 0;
    bool done = false;
    switch (command) {
      case 0:
        done = hublnk_Negotiate(fd, &major, &minor, &status) != 0;
        break;
      case 1:
        done = hublnk_ActivateServer(fd, type, "server", &object, &status) != 0;
        break;
      case 2:
        done = hublnk_RegisterServer(fd, type, "server", "/path", &object, &status) != 0;
        break;
      case 3:
        done = hublnk_UnregisterServer(fd, type, "server", &status) != 0;
        break;
      case 4:
        done = hublnk_DeactivateServer(fd, type, "server", &status) != 0;
        break;
      default:
        done = hublnk_Shutdown(fd, &status) != 0;
        break;
    }
    fuzz::require(done || status != 0);  // a failure always has its status
  });
  return 0;
}
