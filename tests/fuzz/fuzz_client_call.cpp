// SPDX-License-Identifier: Apache-2.0
// The client's call machine fed with arbitrary datagrams and times. The input is a row of steps:
// one byte that says what happens, then what it needs. Composed packets carry the running call's
// secret activity, so that they get past the first check.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "platform/rpc/client/client_call.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/steps.h"

namespace {

using namespace rpc;

constexpr InterfaceSpec kInterface = {{1, 2, 3, 4, 5, {6, 7, 8, 9, 10, 11}}, 2, 0, "fuzz"};
constexpr uuid_t kConversation = {0x333a2276, 0, 0, 0x0d, 0, {0, 0x80, 0x9c, 0, 0, 0}};
constexpr std::size_t kReplyLimit = 20'000;
// Of one input; each brings at most the window's fragments.
constexpr std::size_t kMostPacketsOfAStep = 300;

class FixedRandom : public RandomSource {
 public:
  void fill(std::span<std::byte> bytes) override {
    for (std::byte& each : bytes)
      each = static_cast<std::byte>(state_ = static_cast<std::uint8_t>(state_ * 29 + 7));
  }

 private:
  std::uint8_t state_ = 1;
};

std::vector<std::byte> composed(fuzz::Steps& steps, const Activity& activity,
                                std::uint32_t sequence) {
  PacketHeader header;
  header.type = static_cast<PacketType>(steps.octet() % 11);
  header.flags1 = steps.octet();
  header.fragment = static_cast<std::uint16_t>(steps.octet() - 2);
  header.serial = steps.octet();
  const std::uint8_t other = steps.octet();
  header.representation = {(other & 1) == 0, (other & 2) != 0, 0};
  header.activity = activity.id();
  header.sequence = sequence + ((other & 4) != 0 ? 1 : 0);
  header.server_boot = other >> 4 & 3;
  header.interface_id = kInterface.id;
  if (header.type == PacketType::request) {
    header.interface_id = kConversation;
    header.interface_version = 3;
    header.opnum = header.flags1 % 4;
  }
  std::size_t length = steps.octet();
  if ((other & 0x80) != 0) {
    const std::vector<std::byte> body(length * 6, static_cast<std::byte>(other));
    return encode_packet(header, body);
  }
  if (header.type == PacketType::request && (other & 8) != 0) {
    std::vector<std::byte> carrier = encode_packet(header, {});  // its activity, as a body
    const std::span<const std::byte> body = std::span(carrier).subspan(40, 20);
    return encode_packet(header, body);
  }
  return encode_packet(header, steps.bytes(length));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Steps steps(data, size);
  FixedRandom random;
  const SocketAddress server{0x7F000001, 1000};
  Activity activity(server, random);
  const ClientIdentity identity = ClientIdentity::make(random);
  Time now{std::chrono::hours(1)};

  for (std::uint32_t number = 0; number < 3 && steps.more(); ++number) {
    const std::uint8_t kind = steps.octet();
    const OperationSpec operation = {&kInterface, 1, (kind & 1) != 0, "operation"};
    const std::vector<std::byte> body((kind & 2) != 0 ? 60'000 : 40, std::byte{kind});
    CallRequest request;
    request.operation = &operation;
    request.body = body;
    request.timeout_level = (kind >> 2) % 11;
    request.reply_limit = kReplyLimit;
    ClientCall call(activity, identity, random, request, now);
    std::uint32_t sequence = 0;
    const auto drain = [&] {
      std::size_t packets = 0;
      while (const auto sent = call.next_datagram(now)) {
        fuzz::require(++packets <= kMostPacketsOfAStep);
        const auto header = decode_header(sent->header);
        fuzz::require(header.has_value());
        if (header->activity == activity.id())
          sequence = header->sequence;
      }
    };
    drain();
    while (!call.done() && steps.more()) {
      const std::uint8_t step = steps.octet();
      switch (step % 4) {
        case 0:
          now += std::chrono::milliseconds(steps.octet() * 16);
          break;
        case 1: {
          const auto wakeup = call.wakeup();
          if (wakeup)
            now = std::max(now, *wakeup);
          break;
        }
        case 2:
          call.receive(composed(steps, activity, sequence),
                       {server.host, static_cast<std::uint16_t>(1000 + step / 128)}, now);
          break;
        default:
          if (step < 0xF0)
            call.receive(steps.bytes(steps.octet()), server, now);
          else
            call.unreachable(steps.bytes(steps.octet()), call.peer(), now);
          break;
      }
      call.on_time(now);
      drain();
      fuzz::require(call.done() || call.wakeup().has_value());
      fuzz::require(call.done() || *call.wakeup() > now);
    }
    if (call.done() && call.status() == 0)
      fuzz::require(call.take_reply().size() <= kReplyLimit);
  }
  return 0;
}
