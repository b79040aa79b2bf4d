// SPDX-License-Identifier: Apache-2.0
// Where random bits come from: the system's generator in programs, a seeded one in simulations.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/rpc/names/uuid.h"

namespace rpc {

class RandomSource {
 public:
  virtual ~RandomSource() = default;
  virtual void fill(std::span<std::byte> bytes) = 0;

  std::uint32_t next();
  // A version 4 UUID (RFC 4122 section 4.4): 122 random bits.
  uuid_t uuid();
};

// The system's generator. Blocks only before the system has gathered any entropy at boot; a system
// without the call ends the process, since activities are secrets and must not be guessable.
class SystemRandom : public RandomSource {
 public:
  void fill(std::span<std::byte> bytes) override;

 private:
  void refill();

  // Bits fetched ahead, so that the spread of a wait costs no system call. Each is used once.
  std::array<std::byte, 256> ahead_{};
  std::size_t used_ = ahead_.size();
};

}  // namespace rpc
