// SPDX-License-Identifier: Apache-2.0
// What the client remembers of one server from call to call (C706 chapter 9, activities): the
// secret identity of its thread of calls, the next call's number, what the server told about
// itself, and the reply that it still keeps for us. A value without I/O.

#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/rpc/names/random_source.h"
#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/stub/interface.h"
#include "platform/rpc/wire/datagram.h"
#include "platform/rpc/wire/pdu.h"

namespace rpc {

// Constant for the life of a process; servers tell by it whether a client has been started anew.
struct ClientIdentity {
  uuid_t address_space{};
  std::uint32_t boot_time = 0;  // not 0

  static ClientIdentity make(RandomSource& random);
  static const ClientIdentity& of_this_process();
};

class Activity {
 public:
  // `server` is where calls go at first, `first_call` the number of the first one.
  Activity(const SocketAddress& server, RandomSource& random, std::uint32_t first_call = 0);

  const SocketAddress& server() const { return server_; }
  const uuid_t& id() const { return id_; }

  // The number of a call that begins now. Its request acknowledges the reply before it.
  std::uint32_t begin_call();
  std::uint16_t next_serial() { return serial_++; }
  std::uint16_t& serial() { return serial_; }

  // Something of this activity came from the server: it may be asked with pings.
  bool heard() const { return heard_; }
  void set_heard() { heard_ = true; }

  // The server has asked who we are, or has run what it may not run before it asks. Until then it
  // does not run an operation that must not run twice.
  bool asked() const { return asked_; }
  void set_asked() { asked_ = true; }

  // The way to the server: datagrams larger than every receiver takes vanished on it; the largest
  // part of a request that arrived; replies in larger ones came.
  bool narrow() const { return narrow_; }
  void set_narrow() { narrow_ = true; }
  std::size_t passed() const { return passed_; }
  void set_passed(std::size_t size) { passed_ = size; }
  bool large_came() const { return large_came_; }
  void set_large_came() { large_came_ = true; }

  std::uint32_t server_boot() const { return server_boot_; }
  std::uint16_t activity_hint() const { return activity_hint_; }
  // What the server's last reply for this interface carried; hints of other interfaces would make
  // it answer that it does not know the interface.
  std::uint16_t interface_hint(const InterfaceSpec& interface) const;
  void learn_boot(std::uint32_t server_boot);
  void learn_activity_hint(std::uint16_t hint) { activity_hint_ = hint; }
  void learn_interface_hint(const InterfaceSpec& interface, std::uint16_t hint);

  // The server has been started anew: a new identity, nothing known but the way to it.
  void forget(RandomSource& random);

  // The server keeps the reply of this call until the next call or an ack.
  void owe_ack(const PacketHeader& call, const SocketAddress& server);
  bool owes_ack() const { return owed_.has_value(); }
  // The ack, once; nothing when none is owed.
  std::optional<OutgoingDatagram> take_ack();

 private:
  struct Hint {
    uuid_t interface_id;
    std::uint32_t version;
    std::uint16_t hint;
  };
  struct Owed {
    PacketHeader call;
    SocketAddress server;
  };

  SocketAddress server_;
  uuid_t id_;
  std::uint32_t sequence_ = 0;
  std::uint16_t serial_ = 0;
  std::uint32_t server_boot_ = 0;
  std::uint16_t activity_hint_ = kNoHint;
  bool heard_ = false;
  bool asked_ = false;
  bool narrow_ = false;
  std::size_t passed_ = 0;
  bool large_came_ = false;
  std::vector<Hint> hints_;
  std::optional<Owed> owed_;
};

}  // namespace rpc
