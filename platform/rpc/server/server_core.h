// SPDX-License-Identifier: Apache-2.0
// The server's side of connectionless calls as a state machine: datagrams and the time go in, calls
// that are ready to run, datagrams and the next wake-up come out. No socket, no clock, no thread,
// and no operation is run here; who owns the core runs it and says how it ended, at once or later
// (pings are answered with "working" meanwhile). C706 chapters 9 and 10 are the model.
//
// What it guarantees: an operation that is not idempotent is handed out at most once per activity
// and sequence number while the activity is remembered, and with call-backs also afterwards.
// Memory is bounded by the options; whatever a datagram says, nothing is believed but its length.

#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/names/uuid.h"
#include "platform/rpc/server/activity_table.h"
#include "platform/rpc/server/exported_interface.h"
#include "platform/rpc/stub/interface.h"
#include "platform/rpc/wire/data_representation.h"
#include "platform/rpc/wire/datagram.h"
#include "platform/rpc/wire/pdu.h"
#include "platform/rpc/wire/time_constants.h"

namespace rpc::server {

// What happens in a core and shows neither in a call nor in what its packets say.
struct CoreEvent {
  enum class Kind {
    violation,            // the client breaks the protocol; `detail` says how
    rejected,             // a call was rejected with `status` before it was handed out
    call_back_began,      // the client is asked who it is
    call_back_confirmed,  // and has said so
    call_back_stale,      // the client says that it is in another call
    call_back_failed,     // it does not know the call, or has not answered
    cancelled,            // a call was ended by its client
    repeated,             // a request came again, of the operation `detail`
  };
  Kind kind;
  SocketAddress peer;
  std::string_view detail = {};
  std::uint32_t status = 0;
  bool damaged = false;  // the datagram that led to it was changed by the host's receive_faults
};

struct CoreOptions {
  bool little_endian = true;    // byte order of everything that this server sends
  std::uint32_t boot_time = 0;  // start of the server; not 0 on the wire, see EndpointOptions
  CallBack call_back = CallBack::who_are_you2;
  // The activity of the server's own call-backs. Must be unguessable on a real network.
  uuid_t call_back_activity{};
  // The hint of the first interface (the next have the numbers after it) and of the first activity.
  std::uint16_t first_interface_hint = 0;
  std::uint16_t first_activity_hint = 0;
  // Whether a repeated request of a running call is answered with "working", or with nothing as
  // some servers do; a ping always is answered.
  bool working_on_repeat = true;
  // Whether "nocall" tells which fragments of the request are here.
  bool nocall_with_fack = true;
  // The largest datagram that we send, header included, to a client that takes it, and that we
  // announce when it is more than the least.
  std::size_t fragment_size = kLeastMaxFragment;
  // The largest one that the way to a client carries whole. Asked for answers of more than the
  // least; may be empty.
  std::function<std::size_t(const SocketAddress&)> path_limit = {};
  std::uint16_t window_kilobytes = 32;            // what our acknowledgements offer
  std::size_t largest_request = 4 * 1024 * 1024;  // a longer request is rejected
  // Bounds of the activity table: how many, and the sum of the bodies that it holds. At either the
  // longest silent idle activity gives way; when none is idle, requests are rejected as "too busy".
  std::size_t max_activities = 1024;
  std::size_t max_bytes = 64 * 1024 * 1024;
  // A client that is not heard for so long is forgotten.
  std::chrono::seconds client_silence{600};
  std::chrono::seconds call_back_limit{30};  // for the question who the client is
  // The objects that calls may name; a call of any other is one of an unknown interface. The nil
  // object is always known.
  std::vector<uuid_t> objects = {};
  std::function<void(const CoreEvent&)> on_event = {};  // may be empty
};

// A call whose request is complete and whose operation is to be run now.
struct ReadyCall {
  CallNumber number = 0;
  Interface* interface = nullptr;
  const OperationSpec* operation = nullptr;
  CallInfo info;
  std::vector<std::byte> request;
  DataRepresentation representation;  // of the request
  bool reply_little_endian = true;
};

class ServerCore {
 public:
  // The interfaces are not owned and must outlive the core. Where two have the same identifier and
  // major version, the first is used.
  ServerCore(const CoreOptions& options, std::vector<Interface*> interfaces);
  ServerCore(const ServerCore&) = delete;
  ServerCore& operator=(const ServerCore&) = delete;

  // A datagram that has come in. `now` never goes back between calls of the core.
  void receive(std::span<const std::byte> datagram, const SocketAddress& source, Time now);
  // Does what is due; harmless when nothing is.
  void on_time(Time now);
  // When on_time() must be called, unless something else happens first.
  std::optional<Time> wakeup() const { return activities_.wakeup(); }
  // The next datagram to send, or nothing. To be called until it gives nothing, after an input or
  // several that came together.
  std::optional<OutgoingDatagram> next_datagram(Time now);

  // The end of a call that was handed out. A number that is not running (any more) is ignored, so a
  // late answer to a forgotten client does no harm.
  void complete(CallNumber number, Outcome outcome, Time now);
  // The call is never answered: from now on nothing is sent for it, not even to pings.
  void abandon(CallNumber number);
  // Pings of the call are answered with "no call", as if its request were not here, until it is
  // admitted.
  void deny(CallNumber number);
  void admit(CallNumber number);
  // Whether the call still waits for its end: it was not cancelled, and its client not forgotten.
  bool running(CallNumber number) const;

  // What has come out since the last call of each; the caller owns it.
  std::vector<ReadyCall> take_calls() { return std::exchange(calls_, {}); }
  // Activities that were forgotten after long silence, or to make room, after they had run a call.
  std::vector<uuid_t> take_gone_clients() { return activities_.take_gone(); }

  struct Statistics {
    std::size_t activities = 0;
    std::size_t bytes_held = 0;  // request and reply bodies
    std::uint64_t packets_received = 0;
    std::uint64_t packets_dropped = 0;  // malformed, stale or foreign
    std::uint64_t packets_sent = 0;
    std::uint64_t calls_handed_out = 0;
    std::uint64_t duplicate_requests = 0;
  };
  Statistics statistics() const;
  const CoreOptions& options() const { return options_; }

 private:
  // What becomes of a packet, by its type: who handles it, and whether it must belong to a call
  // that is known, in the life of the server that the client means. `activity` is that of the
  // packet, or null.
  struct PacketRule {
    void (ServerCore::*handler)(const Arrival& arrival, Activity* activity) = nullptr;
    bool of_known_call = false;
  };
  static const PacketRule kPacketRules[];

  void on_request(const Arrival& arrival, Activity* activity);
  void on_ping(const Arrival& arrival, Activity* activity);
  void on_ack(const Arrival& arrival, Activity* activity);
  void on_cancel(const Arrival& arrival, Activity* activity);
  void on_fack(const Arrival& arrival, Activity* activity);
  void on_still_here(const Arrival& arrival);
  void on_call_back_answer(const Arrival& arrival, Activity& activity);
  void note_repeat(const Activity& activity);
  void on_repeated_request(Activity& activity, Time now);
  void on_new_call(const Arrival& arrival, Activity* activity);
  void on_undecodable(std::span<const std::byte> datagram, const SocketAddress& source);
  void look_for_violations(const Arrival& arrival, std::size_t datagram_size);
  void tell(CoreEvent::Kind kind, const SocketAddress& peer, std::string_view detail = {},
            std::uint32_t status = 0) const;

  static void hear(Activity& activity, const Arrival& arrival);
  bool other_life(const PacketHeader& header) const;
  bool of_current_call(const PacketHeader& header, const Activity* activity) const;
  Interface* find_interface(const PacketHeader& request) const;
  bool knows_object(const uuid_t& object) const;
  Activity* make_activity(const uuid_t& id, Time now);

  void begin_call(Activity& activity, const PacketHeader& request, Interface& interface,
                  const OperationSpec& operation);
  void release_call(Activity& activity);
  void take_request_packet(const Arrival& arrival, Activity& activity);
  void request_complete(Activity& activity, Time now);
  void hand_out(Activity& activity);
  void answer(Activity& activity, Outcome outcome, Time now);
  void start_sending(Activity& activity);
  void repeat_answer(Activity& activity);
  void answer_again(Activity& activity, Time now);
  void look_at(Activity& activity, Time now);
  // How long a client may leave something unfinished: no longer than it is remembered.
  Duration kept(Duration longest) const {
    return std::min<Duration>(longest, options_.client_silence);
  }

  void ask_who(Activity& activity, Time now);
  void call_back(Activity& activity);
  void end_call_back(Activity& activity);
  void fail_call_back(Activity& activity, Time now);
  void answer_held_back(Activity& activity, Time now);

  void send_request_fack(Activity& activity);
  void send_for(Activity& activity, PacketType type, std::vector<std::byte> body = {});
  void send_reject(const PacketHeader& request, const SocketAddress& destination,
                   std::uint32_t status);
  void send(PacketHeader header, const SocketAddress& destination,
            std::vector<std::byte> body = {});
  PacketHeader header_for(const PacketHeader& request, PacketType type) const;

  CoreOptions options_;
  std::vector<Interface*> interfaces_;
  ActivityTable activities_;
  CallNumber last_call_ = 0;
  std::uint32_t call_backs_begun_ = 0;
  std::uint16_t next_activity_hint_;
  std::uint16_t serial_ = 0;
  Outbox outbox_;
  std::vector<ReadyCall> calls_;
  Statistics statistics_;
};

}  // namespace rpc::server
