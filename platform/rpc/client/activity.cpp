// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/client/activity.h"

#include <algorithm>
#include <utility>

namespace rpc {

ClientIdentity ClientIdentity::make(RandomSource& random) {
  return {random.uuid(), random.next() | 1};
}

const ClientIdentity& ClientIdentity::of_this_process() {
  static const ClientIdentity identity = [] {
    SystemRandom random;
    return make(random);
  }();
  return identity;
}

Activity::Activity(const SocketAddress& server, RandomSource& random, std::uint32_t first_call)
    : server_(server), id_(random.uuid()), sequence_(first_call) {}

std::uint32_t Activity::begin_call() {
  owed_.reset();
  return sequence_++;
}

std::uint16_t Activity::interface_hint(const InterfaceSpec& interface) const {
  for (const Hint& each : hints_)
    if (each.interface_id == interface.id && each.version == interface.version())
      return each.hint;
  return kNoHint;
}

void Activity::learn_boot(std::uint32_t server_boot) {
  if (server_boot != 0)
    server_boot_ = server_boot;
}

void Activity::learn_interface_hint(const InterfaceSpec& interface, std::uint16_t hint) {
  for (Hint& each : hints_)
    if (each.interface_id == interface.id && each.version == interface.version()) {
      each.hint = hint;
      return;
    }
  hints_.push_back({interface.id, interface.version(), hint});
}

void Activity::forget(RandomSource& random) {
  Activity anew(server_, random);
  anew.serial_ = serial_;
  anew.narrow_ = narrow_;
  anew.passed_ = passed_;
  anew.large_came_ = large_came_;
  *this = std::move(anew);
}

void Activity::owe_ack(const PacketHeader& call, const SocketAddress& server) {
  owed_ = Owed{call, server};
}

std::optional<OutgoingDatagram> Activity::take_ack() {
  if (!owed_)
    return std::nullopt;
  PacketHeader header = owed_->call;
  header.type = PacketType::ack;
  header.flags1 = 0;
  header.fragment = 0;
  header.serial = next_serial();
  header.server_boot = server_boot_;
  OutgoingDatagram datagram{owed_->server, {}, {}};
  encode_header(header, 0, datagram.header);
  owed_.reset();
  return datagram;
}

}  // namespace rpc
