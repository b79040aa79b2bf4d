// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/names/random_source.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "platform/rpc/wire/wire_bytes.h"

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
  for (std::byte& each : bytes) {
    if (used_ == ahead_.size())
      refill();
    each = std::exchange(ahead_[used_++], std::byte{0});
  }
}

// Up to 256 bytes come whole or not at all once the system has its seed.
void SystemRandom::refill() {
  ssize_t got;
  do {
    got = getrandom(ahead_.data(), ahead_.size(), 0);
  } while (got < 0 && errno == EINTR);
  if (got != static_cast<ssize_t>(ahead_.size())) {
    std::perror("getrandom");
    std::abort();
  }
  used_ = 0;
}

}  // namespace rpc
