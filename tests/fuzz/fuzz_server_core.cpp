// SPDX-License-Identifier: Apache-2.0
// A server core fed with arbitrary datagrams, times and call endings. The input is a row of steps:
// one byte that says what happens, then what it needs. Packets that are to get far take the header
// of the last good one and change fields of it.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <vector>

#include "platform/rpc/server/management_interface.h"
#include "platform/rpc/server/server_core.h"
#include "platform/rpc/wire/pdu.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/steps.h"
#include "tests/support/echo_interface.h"

namespace {

using namespace rpc;
using namespace rpc::server;

constexpr std::size_t kMaxBytes = 64 * 1024;
constexpr std::size_t kMaxActivities = 8;
constexpr std::size_t kLongestReply = 20'000;

PacketHeader composed(fuzz::Steps& steps) {
  PacketHeader header;
  header.type = static_cast<PacketType>(steps.octet() % 11);
  header.flags1 = steps.octet();
  header.representation.little_endian = steps.octet() % 2 == 0;
  header.interface_id = kEchoSpec.id;
  header.interface_version = kEchoSpec.version();
  header.activity.time_low = steps.octet() % 16;
  header.sequence = steps.octet() % 4;
  header.opnum = steps.octet() % 3;
  header.fragment = static_cast<std::uint16_t>(steps.octet() - 4);
  header.serial = steps.octet();
  return header;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Steps steps(data, size);
  const std::uint8_t settings = steps.octet();
  CoreOptions options;
  options.boot_time = 7;
  options.little_endian = (settings & 1) != 0;
  options.call_back = static_cast<CallBack>((settings >> 1 & 3) % 3);
  options.working_on_repeat = (settings & 8) != 0;
  options.max_activities = kMaxActivities;
  options.max_bytes = kMaxBytes;
  options.largest_request = kMaxBytes / 2;
  EchoInterface echo;
  ManagementInterface management({&echo});
  ServerCore core(options, {&echo, &management});

  std::vector<CallNumber> running;
  std::vector<std::byte> call_back;
  Time now{};
  std::uint64_t received = 0;
  while (steps.more()) {
    const std::uint8_t step = steps.octet();
    const SocketAddress source{0x7F000001, static_cast<std::uint16_t>(40'000 + steps.octet() % 4)};
    switch (step % 6) {
      case 0:
        core.receive(steps.bytes(steps.octet() * 8U), source, now);
        ++received;
        break;
      case 1: {
        const PacketHeader header = composed(steps);
        const std::size_t length = steps.octet() * 4U;
        core.receive(encode_packet(header, steps.bytes(length)), source, now);
        ++received;
        break;
      }
      case 2:
        now += std::chrono::milliseconds(steps.octet() * 40);
        core.on_time(now);
        break;
      case 3:
        if (!running.empty()) {
          Outcome outcome;
          const std::uint8_t kind = steps.octet();
          outcome.kind = static_cast<Outcome::Kind>(kind % 3);
          outcome.leaves_context = kind >= 192;
          outcome.reply.resize(steps.octet() * kLongestReply / 255);
          core.complete(running.back(), std::move(outcome), now);
          running.pop_back();
        }
        break;
      case 4:
        if (!running.empty())
          core.abandon(running.front());
        break;
      case 5:
        if (!call_back.empty()) {
          auto packet = *decode_packet(call_back);
          packet.header.type = static_cast<PacketType>(steps.octet() % 11);
          core.receive(encode_packet(packet.header, steps.bytes(24)), source, now);
          ++received;
        }
        break;
    }
    for (const ReadyCall& call : core.take_calls())
      running.push_back(call.number);
    // What came together may be answered together.
    while (const auto sent = step >= 192 ? std::nullopt : core.next_datagram(now)) {
      const std::vector<std::byte> bytes = sent->bytes();
      fuzz::require(decode_packet(bytes).has_value() && bytes.size() <= kLeastMaxFragment);
      if (sent->call_back)
        call_back = bytes;
    }
    core.take_gone_clients();
    const auto statistics = core.statistics();
    fuzz::require(statistics.activities <= kMaxActivities);
    fuzz::require(statistics.bytes_held <= kMaxBytes);
    fuzz::require(statistics.packets_received == received);
    fuzz::require(statistics.calls_handed_out <= received);
  }

  // Left alone, a core comes to rest and forgets everybody: no clock runs for ever.
  for (const CallNumber number : running)
    core.complete(number, {}, now);
  for (int turn = 0; core.wakeup(); ++turn) {
    fuzz::require(turn < 10'000);
    now = std::max(now, *core.wakeup());
    core.on_time(now);
    for (const ReadyCall& call : core.take_calls())
      core.complete(call.number, {}, now);
    while (core.next_datagram(now)) {
    }
  }
  fuzz::require(core.statistics().activities == 0 && core.statistics().bytes_held == 0);
  return 0;
}
