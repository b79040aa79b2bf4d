#include "platform/rpc/random_source.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/rpc/wire_bytes.h"

namespace rpc {

std::uint32_t RandomSource::next() {
  std::array<std::byte, 4> bytes;
  fill(bytes);
  return load32(bytes.data(), true);
}

uuid_t RandomSource::uuid() {
  std::array<std::byte, 16> bytes;
  fill(bytes);
  uuid_t uuid = load_uuid(bytes.data(), false);
  uuid.time_hi_and_version =
      static_cast<std::uint16_t>((uuid.time_hi_and_version & 0x0FFF) | 0x4000);
  uuid.clock_seq_hi_and_reserved =
      static_cast<std::uint8_t>((uuid.clock_seq_hi_and_reserved & 0x3F) | 0x80);
  return uuid;
}

void SystemRandom::fill(std::span<std::byte> bytes) {
  while (!bytes.empty()) {
    const ssize_t got = getrandom(bytes.data(), bytes.size(), 0);
    if (got > 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(got));
    } else if (errno != EINTR) {
      std::perror("getrandom");
      std::abort();
    }
  }
}

}  // namespace rpc
