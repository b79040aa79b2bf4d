// SPDX-License-Identifier: Apache-2.0
// Replies of a location broker, as bytes on a connection that ends behind them, and as a buffer.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "shared/dce/hublnk_client.h"
#include "tests/fuzz/require.h"

namespace {

// Runs a command against a peer that has already answered, in two pieces on wish.
template <typename Command>
void exchange(std::span<const std::uint8_t> reply, bool pieces, const Command& command) {
  int ends[2];
  fuzz::require(::socketpair(AF_UNIX, pieces ? SOCK_SEQPACKET : SOCK_STREAM, 0, ends) == 0);
  reply = reply.first(std::min<std::size_t>(reply.size(), 40000));
  const std::size_t middle = pieces ? reply.size() / 2 : 0;
  for (const auto piece : {reply.first(middle), reply.subspan(middle)})
    fuzz::require(piece.empty() || ::send(ends[1], piece.data(), piece.size(), MSG_NOSIGNAL) >= 0);
  ::shutdown(ends[1], SHUT_WR);
  command(ends[0]);
  ::close(ends[0]);
  ::close(ends[1]);
}

}  // namespace

// The first octet chooses the command and how its reply arrives.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0)
    return 0;
  const std::span reply(data + 1, size - 1);
  exchange(reply, (data[0] & 0x40) != 0, [command = data[0]](int fd) {
    const uuid_t type{};
    uuid_t object{};
    std::uint16_t major = 0, minor = 0;
    std::uint32_t status = 0;
    bool done = false, closed = false;
    switch (command % 6) {
      case 0:
        done =
            hublnk_Negotiate(fd, &major, &minor, &status, {}, command > 5 ? &closed : nullptr) != 0;
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
  std::vector<std::uint8_t> room(kHublnkBufferSize);
  HXMessage_t message{};
  message.fHxmbData = room.data();
  std::uint32_t status = 0;
  const bool sound = UnmarshallHublnkPacket(message, std::as_bytes(reply), &status) != 0;
  fuzz::require(sound == (status == 0) && (!sound || message.fHxmbLen < size));
  return 0;
}
