// SPDX-License-Identifier: Apache-2.0
// The joiner fed with arbitrary packets and times. The input is a row of fragments: flags, number,
// length and serial in six bytes, the bodies are made of the number, so that a body joined in the
// wrong order shows.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "platform/rpc/wire/fragments.h"
#include "tests/fuzz/require.h"

namespace {

using rpc::FragmentJoiner;

constexpr std::size_t kBodyLimit = 40'000;
constexpr std::uint16_t kWindowKilobytes = 4;
constexpr std::size_t kStep = 6;

// Every byte of a body in order comes from a fragment number that is not less than the one before.
bool ascending(std::span<const std::byte> body) {
  return std::is_sorted(body.begin(), body.end());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FragmentJoiner::Limits limits;
  limits.body = kBodyLimit;
  limits.window_kilobytes = kWindowKilobytes;
  FragmentJoiner joiner(limits);
  rpc::Time now{std::chrono::hours(1)};
  bool small_numbers = true;
  for (; size >= kStep; data += kStep, size -= kStep) {
    rpc::Packet packet;
    packet.header.flags1 = data[0];
    packet.header.fragment = static_cast<std::uint16_t>(data[1] | data[2] << 8);
    packet.header.serial = data[5];
    const std::size_t length = static_cast<std::size_t>(data[3] | (data[4] & 0x0F) << 8);
    const std::vector<std::byte> body(length, static_cast<std::byte>(packet.header.fragment));
    packet.body = body;
    small_numbers = small_numbers && packet.header.fragment < 256 &&
                    (packet.header.flags1 & rpc::kFlagFragment) != 0;
    now += std::chrono::milliseconds(data[5]);

    const auto result = joiner.accept(packet, now);
    fuzz::require(joiner.body().size() <= kBodyLimit);
    fuzz::require(joiner.fack().selective.size() <= 17);
    fuzz::require((result == FragmentJoiner::Result::complete) ? joiner.complete() : true);
    fuzz::require(!joiner.complete() || !joiner.wakeup());
    if (small_numbers)
      fuzz::require(ascending(joiner.body()));
    joiner.on_time(now);
  }
  if (joiner.complete())
    fuzz::require(joiner.take_body().size() <= kBodyLimit && !joiner.complete());
  return 0;
}
