// SPDX-License-Identifier: Apache-2.0
// One call from the client's side as a state machine without I/O (C706 chapter 9, CL_CLIENT):
// datagrams and the time go in, datagrams to send, the next wake-up and at last the outcome come
// out. The activity outlives the call; everything else is this call's.
//
// Asking again. What is missing is asked for on a doubling clock: the request as long as the server
// was never heard in this activity (some servers cannot bear a ping of an activity that they do not
// know), pings afterwards, since only a ping brings a sign of life while the operation runs. While
// fragments of a long request wait for their acknowledgement, the sender's own clock repeats them;
// while fragments of a response are missing, the joiner's clock repeats the acknowledgement.
//
// Every call ends: with a reply, a fault or a reject, or when no sign of life came for as long as
// the level allows, or when its whole time is over where it has one. Only "working" is one however
// often it comes; an acknowledgement is one when it acknowledges something new, a fragment when it
// is new, "no such call" the first time.

#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/rpc/client/activity.h"
#include "platform/rpc/client/call_back.h"
#include "platform/rpc/exception.h"
#include "platform/rpc/names/random_source.h"
#include "platform/rpc/stub/interface.h"
#include "platform/rpc/wire/datagram.h"
#include "platform/rpc/wire/fragments.h"
#include "platform/rpc/wire/pdu.h"
#include "platform/rpc/wire/time_constants.h"

namespace rpc {

// What a call is to do; the spans and pointers must outlive it.
struct CallRequest {
  const OperationSpec* operation = nullptr;
  uuid_t object{};
  std::span<const std::byte> body;
  unsigned timeout_level = 5;
  std::optional<Duration> silence = std::nullopt;  // in place of the level's
  std::optional<Duration> longest = std::nullopt;  // the call's end, whatever the server says
  std::size_t reply_limit = 0;                     // largest legal body of the reply
  std::size_t path_limit = kLeastMaxFragment;      // largest datagram to send
  std::uint32_t max_fragment = kLeastMaxFragment;  // largest datagram that we announce
  std::uint16_t window_kilobytes = 64;             // what the socket's buffer surely holds
};

class ClientCall {
 public:
  // Takes the activity's next number. The activity must outlive the call and carries no other call
  // meanwhile. `buffer` lends its memory to the reply, so that calls in a row need not allocate.
  ClientCall(Activity& activity, const ClientIdentity& identity, RandomSource& random,
             const CallRequest& request, Time now, std::vector<std::byte> buffer = {});
  ClientCall(const ClientCall&) = delete;
  ClientCall& operator=(const ClientCall&) = delete;

  // A datagram that came to the call's socket. Whatever is not of this call is dropped.
  void receive(std::span<const std::byte> datagram, const SocketAddress& source, Time now);
  // The network says that a datagram did not reach its destination: port, host or network
  // unreachable. `quoted` is as much of that datagram as the network gave back; an error that tells
  // of an earlier call's packet is ignored.
  void unreachable(std::span<const std::byte> quoted, const SocketAddress& destination, Time now);
  // Does what is due.
  void on_time(Time now);

  // The next datagram to send, or nothing. To be called until it gives nothing, after every input
  // and after the call is done as well.
  std::optional<OutgoingDatagram> next_datagram(Time now);

  // When on_time is to be called at the latest. Nothing when the call is done, or when only a
  // packet can move it.
  std::optional<Time> wakeup() const;

  bool done() const { return done_; }
  // The workstation's number; 0 for a reply.
  std::uint32_t status() const { return status_; }
  FailureKind kind() const { return kind_; }
  // It ended in silence, after the server had said again and again that it works and its question
  // who we are had never come: it did not run the operation. The status is 1727.
  bool question_lost() const { return question_lost_; }
  // It ended because the server was started anew.
  bool restarted() const { return restarted_; }
  // Packets of this call that carried an authentication verifier, and were dropped: whoever sent
  // them speaks a protocol that we do not.
  unsigned verifiers_dropped() const { return verifiers_dropped_; }
  // The number of the fault or reject that ended the call, as it came; 0 when neither did.
  std::uint32_t answer_number() const { return answer_number_; }
  // The reply's body, once, when the call is done with status 0.
  std::vector<std::byte> take_reply() { return joiner_.take_body(); }
  // Of the reply.
  DataRepresentation representation() const { return representation_; }
  // A reply in fragments has begun to come in.
  bool receiving() const { return joiner_.receiving(); }
  // Where the call's packets go now: the source of the last packet of this call.
  const SocketAddress& peer() const { return peer_; }

 private:
  // What becomes of a packet of this call, by its type.
  using Handler = void (ClientCall::*)(const Arrival& arrival);
  static const Handler kHandlers[];

  void begin(Time now, std::vector<std::byte> buffer);
  PacketHeader header(PacketType type) const;
  std::uint8_t idempotent_flag() const;

  bool ours(const PacketHeader& header) const;
  bool server_restarted(const PacketHeader& header) const;
  void on_restarted_server(std::uint32_t status_if_not_run, Time now);
  void learn(const PacketHeader& header);
  void sign_of_life(Time now);
  void count_verifier(std::span<const std::byte> datagram);
  void on_call_back(const Arrival& arrival);
  void on_response(const Arrival& arrival);
  void on_fault(const Arrival& arrival);
  void on_working(const Arrival& arrival);
  void on_nocall(const Arrival& arrival);
  void on_reject(const Arrival& arrival);
  void on_fack(const Arrival& arrival);
  void begin_again(Time now);
  void begin_narrow(Time now);

  void ask_again(Time now);
  void start_asking(Time now);
  void start_waiting(Time now);
  void plan_next_try(Duration wait, Time now);
  Duration cut(Duration wait) const;
  Duration working_wait(Time now) const;

  void send_ping();
  void send_response_fack();
  void send(PacketHeader header, const SocketAddress& to, std::vector<std::byte> body = {});
  void give_up(bool silent);
  void end(std::uint32_t status, FailureKind kind);
  bool may_have_run() const;
  bool waits_for_question() const;

  Activity& activity_;
  const ClientIdentity& identity_;
  RandomSource& random_;
  const CallRequest request_;
  const std::optional<Duration> silence_;  // nothing: no limit
  const Time started_;

  std::uint32_t sequence_ = 0;
  SocketAddress peer_;
  FragmentSender sender_;
  FragmentJoiner joiner_;
  Outbox outbox_;  // of everything but the request

  // --- What the server has shown of this call.
  bool received_ = false;      // a valid packet of the call
  bool acknowledged_ = false;  // it has the whole request
  bool entered_ = false;       // it is about to run the operation or has run it
  bool pinged_ = false;
  std::optional<Time> first_working_;
  bool question_overdue_ = false;
  bool begun_again_ = false;  // the one new start after a server's restart was used

  // --- The clock of asking again.
  std::optional<Time> deadline_;  // of silence
  std::optional<Time> next_try_;
  Duration wait_{};
  unsigned tries_ = 0;
  bool asking_ = false;   // the last fragment was sent once and the clock runs
  bool working_ = false;  // the server said that the operation runs; only pings are sent
  unsigned nocalls_ = 0;  // in a row
  Time nocall_served_until_{};
  unsigned call_backs_heard_ = 0;
  CallBackLimiter call_backs_;
  CallBackLimiter strangers_;

  bool done_ = false;
  bool question_lost_ = false;
  bool restarted_ = false;
  unsigned verifiers_dropped_ = 0;
  std::uint32_t status_ = 0;
  std::uint32_t answer_number_ = 0;
  FailureKind kind_ = FailureKind::communication;
  DataRepresentation representation_;
};

}  // namespace rpc
