// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/client/client_call.h"

#include <algorithm>
#include <utility>

#include "platform/rpc/rpc.h"
#include "platform/rpc/wire/status.h"

namespace rpc {
namespace {

constexpr std::uint32_t kCancelId = 1;
// Packets of our own that wait to be taken; a caller that takes them after every input never has
// more than one or two.
constexpr std::size_t kMostWaiting = 64;
// After so many "no such call" in a row the server has lost what it had acknowledged.
constexpr unsigned kNocallsUntilRestart = 3;
// Requests repeated to a server that was never heard before pings take turns with them.
constexpr unsigned kRequestsBeforePing = 2;
// Servers pad replies: up to this much behind the last parameter is taken, whatever its size.
constexpr std::size_t kMostPadding = 7;

}  // namespace

ClientCall::ClientCall(Activity& activity, const ClientIdentity& identity, RandomSource& random,
                       const CallRequest& request, Time now, std::vector<std::byte> buffer)
    : activity_(activity),
      identity_(identity),
      random_(random),
      request_(request),
      silence_(request.silence ? request.silence : silence_of_level(request.timeout_level)),
      started_(now) {
  begin(now, std::move(buffer));
}

void ClientCall::begin(Time now, std::vector<std::byte> buffer) {
  sequence_ = activity_.begin_call();
  peer_ = activity_.server();
  const bool narrow = activity_.narrow();
  sender_.start(request_.body, LastFragment::answered,
                narrow ? std::min(request_.path_limit, kLeastMaxFragment) : request_.path_limit,
                activity_.passed());
  FragmentJoiner::Limits limits;
  limits.body = request_.reply_limit + kMostPadding;
  limits.window_kilobytes = request_.window_kilobytes;
  limits.max_fragment = narrow ? kLeastMaxFragment : request_.max_fragment;
  limits.large_came = activity_.large_came();
  joiner_.start(limits, std::move(buffer));
  if (silence_)
    deadline_ = now + *silence_;
}

// The server was started anew and has not run this call: once more, as to a server never heard.
void ClientCall::begin_again(Time now) {
  begun_again_ = true;
  activity_.forget(random_);
  outbox_.clear();
  acknowledged_ = entered_ = pinged_ = asking_ = working_ = question_overdue_ = false;
  first_working_.reset();
  nocalls_ = tries_ = 0;
  next_try_.reset();
  begin(now, joiner_.take_buffer());
}

// Large datagrams vanish on the way. No server can have the whole of this request, so that it goes
// again as the activity's next call.
void ClientCall::begin_narrow(Time now) {
  activity_.set_narrow();
  outbox_.clear();
  nocalls_ = 0;
  const std::optional<Time> deadline = deadline_;
  begin(now, joiner_.take_buffer());
  deadline_ = deadline;
}

// --- Packets

std::uint8_t ClientCall::idempotent_flag() const {
  return request_.operation->idempotent ? kFlagIdempotent : std::uint8_t{0};
}

PacketHeader ClientCall::header(PacketType type) const {
  const InterfaceSpec& interface = *request_.operation->interface;
  PacketHeader header;
  header.type = type;
  header.object = request_.object;
  header.interface_id = interface.id;
  header.interface_version = interface.version();
  header.activity = activity_.id();
  header.server_boot = activity_.server_boot();
  header.sequence = sequence_;
  header.opnum = request_.operation->opnum;
  header.interface_hint = activity_.interface_hint(interface);
  header.activity_hint = activity_.activity_hint();
  return header;
}

std::optional<OutgoingDatagram> ClientCall::next_datagram(Time now) {
  if (const auto waiting = outbox_.next())
    return waiting;
  if (done_)
    return std::nullopt;
  const auto fragment = sender_.next(now, activity_.serial());
  if (!fragment)
    return std::nullopt;
  PacketHeader request = header(PacketType::request);
  request.flags1 = static_cast<std::uint8_t>(fragment->flags | idempotent_flag());
  request.fragment = fragment->fragment;
  request.serial = fragment->serial;
  OutgoingDatagram datagram{peer_, {}, fragment->body};
  encode_header(request, fragment->body.size(), datagram.header);
  if (!asking_ && sender_.all_sent())
    start_asking(now);
  return datagram;
}

void ClientCall::send(PacketHeader header, const SocketAddress& to, std::vector<std::byte> body) {
  if (outbox_.waiting() >= kMostWaiting)
    return;
  header.serial = activity_.next_serial();
  outbox_.put(to, header, std::move(body));
}

void ClientCall::send_ping() {
  pinged_ = true;
  PacketHeader ping = header(PacketType::ping);
  ping.flags1 = idempotent_flag();
  send(ping, peer_);
}

void ClientCall::send_response_fack() {
  PacketHeader fack = header(PacketType::fack);
  fack.fragment = joiner_.fack_fragment();
  send(fack, peer_, encode_fack(joiner_.fack(), fack.representation.little_endian));
}

// --- The clock

// A server never heard may answer nothing but the third try, the first ping, which therefore must
// fit into the shortest level; a server that is known to live answers every one.
Duration ClientCall::cut(Duration wait) const {
  const bool before_first_ping = !activity_.heard() && tries_ <= kRequestsBeforePing;
  return silence_ ? std::min(wait, *silence_ / (before_first_ping ? 4 : 2)) : wait;
}

void ClientCall::plan_next_try(Duration wait, Time now) {
  const Duration whole = cut(wait);
  Time next = now + whole + whole * (random_.next() % (kSpreadPercent + 1)) / 100;
  if (deadline_ && silence_) {
    const Time last_useful = *deadline_ - std::min(kTimeForAnswer, *silence_ / 4);
    if (next > last_useful)
      next = last_useful;
    if (next < now + std::min(whole, *silence_ / 8)) {
      next_try_.reset();
      return;
    }
  }
  next_try_ = next;
}

// The request is out; its answer is asked for on the doubling clock.
void ClientCall::start_asking(Time now) {
  asking_ = true;
  working_ = false;
  tries_ = 0;
  wait_ = kFirstRepeat;
  plan_next_try(wait_, now);
}

Duration ClientCall::working_wait(Time now) const {
  const Duration age = now - started_;
  if (age < kYoungCall)
    return kYoungWorkingPing;
  return age < kGrownCall ? kGrownWorkingPing : kOldWorkingPing;
}

// The operation runs: pings only, and seldom.
void ClientCall::start_waiting(Time now) {
  asking_ = working_ = true;
  tries_ = 0;
  wait_ = kFirstWorkingRepeat / 2;
  plan_next_try(working_wait(now), now);
}

void ClientCall::ask_again(Time now) {
  ++tries_;
  const bool turn_of_ping = tries_ > kRequestsBeforePing && (tries_ - kRequestsBeforePing) % 2 == 1;
  if (working_ || acknowledged_ || activity_.heard() || turn_of_ping)
    send_ping();
  else
    sender_.resend_oldest();
  wait_ = std::min(wait_ * 2, kLongestRepeat);
  plan_next_try(wait_, now);
}

void ClientCall::on_time(Time now) {
  if (done_)
    return;
  const bool silent = deadline_ && *deadline_ <= now;
  if (silent || (request_.longest && started_ + *request_.longest <= now)) {
    give_up(silent);
    return;
  }
  if (!sender_.all_sent() && sender_.on_time(now) && sender_.large_vanish()) {
    begin_narrow(now);
    return;
  }
  if (joiner_.on_time(now)) {
    if (joiner_.narrowed())
      activity_.set_narrow();
    send_response_fack();
  }
  if (next_try_ && *next_try_ <= now && !joiner_.receiving())
    ask_again(now);
}

std::optional<Time> ClientCall::wakeup() const {
  if (done_)
    return std::nullopt;
  std::optional<Time> earliest = deadline_;
  const auto consider = [&earliest](const std::optional<Time>& time) {
    if (time && (!earliest || *time < *earliest))
      earliest = time;
  };
  if (request_.longest)
    consider(started_ + *request_.longest);
  if (!sender_.all_sent())
    consider(sender_.wakeup());
  consider(joiner_.wakeup());
  if (!joiner_.receiving())
    consider(next_try_);
  return earliest;
}

// --- What comes in

bool ClientCall::ours(const PacketHeader& header) const {
  return header.activity == activity_.id() && header.sequence == sequence_;
}

const ClientCall::Handler ClientCall::kHandlers[] = {
    nullptr,  // request: of call-backs only
    nullptr,  // ping: only clients send it
    &ClientCall::on_response,
    &ClientCall::on_fault,
    &ClientCall::on_working,
    &ClientCall::on_nocall,
    &ClientCall::on_reject,
    nullptr,  // ack: only clients send it
    nullptr,  // cancel: likewise
    &ClientCall::on_fack,
    nullptr,  // cancel_ack: nobody waits for it
};

void ClientCall::receive(std::span<const std::byte> datagram, const SocketAddress& source,
                         Time now) {
  if (done_)
    return;
  const auto packet = decode_packet(datagram);
  if (!packet) {
    count_verifier(datagram);
    return;
  }
  const Arrival arrival{*packet, source, now};
  const PacketType type = arrival.header().type;
  if (type == PacketType::request) {
    on_call_back(arrival);
    return;
  }
  const Handler handler = kHandlers[static_cast<std::size_t>(type)];
  if (handler == nullptr || !ours(arrival.header()))
    return;
  peer_ = source;
  received_ = true;
  if (type != PacketType::reject) {
    if (server_restarted(arrival.header())) {
      entered_ = entered_ || type == PacketType::response || type == PacketType::fault;
      on_restarted_server(RPC_S_CALL_FAILED, now);
      return;
    }
    learn(arrival.header());
  }
  (this->*handler)(arrival);
}

// Whether the operation may have been run, as far as this call can know: the server showed it, or
// something was sent more than once or asked for, so that an earlier copy may have been served
// before the server was started anew.
bool ClientCall::may_have_run() const {
  if (request_.operation->idempotent || !sender_.all_sent())
    return false;
  return acknowledged_ || entered_ || pinged_ || sender_.repeated();
}

void ClientCall::on_restarted_server(std::uint32_t status_if_not_run, Time now) {
  const bool ran = may_have_run();
  if (!ran && !begun_again_) {
    begin_again(now);
    return;
  }
  activity_.forget(random_);
  restarted_ = true;
  end(ran ? RPC_S_CALL_FAILED : status_if_not_run, FailureKind::communication);
}

// A packet of a server other than the one that this activity has learned to know.
bool ClientCall::server_restarted(const PacketHeader& header) const {
  return activity_.server_boot() != 0 && header.server_boot != 0 &&
         header.server_boot != activity_.server_boot();
}

// What a packet of this call tells about the server. The hints of a reject mean nothing.
void ClientCall::learn(const PacketHeader& header) {
  activity_.set_heard();
  activity_.learn_boot(header.server_boot);
  activity_.learn_activity_hint(header.activity_hint);
  if (header.type != PacketType::response && header.type != PacketType::fault)
    return;
  activity_.learn_interface_hint(*request_.operation->interface, header.interface_hint);
  if (!request_.operation->idempotent)
    activity_.set_asked();
}

void ClientCall::count_verifier(std::span<const std::byte> datagram) {
  const auto header = decode_header(datagram);
  if (header && header->authentication != 0 && ours(*header))
    ++verifiers_dropped_;
}

void ClientCall::sign_of_life(Time now) {
  nocalls_ = 0;
  deadline_.reset();
  if (silence_)
    deadline_ = now + *silence_;
  if (asking_ && !next_try_)
    plan_next_try(wait_, now);
}

void ClientCall::on_call_back(const Arrival& arrival) {
  const Time now = arrival.now;
  const RunningCall running{activity_.id(), sequence_, activity_.server_boot()};
  CallBackAnswer answer = answer_call_back(arrival.packet, running, identity_);
  // Counted apart, so that a flood of strangers' requests cannot crowd out our server's question.
  if (!(answer.known ? call_backs_ : strangers_).allow(now))
    return;
  send(answer.header, arrival.source, std::move(answer.body));
  if (!answer.known)
    return;
  received_ = entered_ = true;
  activity_.set_heard();
  activity_.set_asked();
  // From here on a server that was started anew can tell our repeats from its own calls, so that
  // none of them runs there a second time.
  activity_.learn_boot(answer.server_boot);
  if (++call_backs_heard_ <= kCallBacksOfACall)
    sign_of_life(now);
  if (asking_ && !working_)
    start_asking(now);
}

void ClientCall::on_response(const Arrival& arrival) {
  const Time now = arrival.now;
  acknowledged_ = entered_ = true;
  sender_.acknowledge_all();
  const bool fragmented = (arrival.header().flags1 & kFlagFragment) != 0;
  const FragmentJoiner::Result result = joiner_.accept(arrival.packet, now);
  if (joiner_.large_came())
    activity_.set_large_came();
  // A server that can send nothing but what is here already must not hold the call for ever.
  if (result == FragmentJoiner::Result::accepted)
    sign_of_life(now);
  if (joiner_.fack_due())
    send_response_fack();
  if (result == FragmentJoiner::Result::complete) {
    representation_ = arrival.header().representation;
    if (fragmented || !request_.operation->idempotent)
      activity_.owe_ack(header(PacketType::ack), peer_);
    end(0, FailureKind::communication);
  } else if (result == FragmentJoiner::Result::too_long) {
    // The ack makes the server drop the rest; a cancel would come too late for the operation.
    send(header(PacketType::ack), peer_);
    end(RPC_X_BAD_STUB_DATA, FailureKind::local);
  } else if (!joiner_.receiving()) {
    start_waiting(now);
  }
}

void ClientCall::on_working(const Arrival& arrival) {
  acknowledged_ = entered_ = true;
  // A server may forget an idempotent request that it runs and ask for it again.
  if (!request_.operation->idempotent)
    sender_.acknowledge_all();
  if (!first_working_)
    first_working_ = arrival.now;
  question_overdue_ = arrival.now - *first_working_ >= kQuestionOverdue;
  sign_of_life(arrival.now);
  start_waiting(arrival.now);
}

void ClientCall::on_nocall(const Arrival& arrival) {
  const Time now = arrival.now;
  const auto fack = decode_fack(arrival.packet.body, arrival.little_endian());
  if (fack && sender_.acknowledge(arrival.header().fragment, fack, now))
    sign_of_life(now);
  // The first of a row counts as a sign of life, the others do not; waiting without limit is for
  // servers that work, not for one that does not know the call.
  if (nocalls_++ == 0)
    deadline_ = now + silence_.value_or(std::chrono::seconds(kLevelSeconds.back()));
  // An operation that must not run twice is never sent again after the server said that it runs.
  const bool must_not_repeat = acknowledged_ && !request_.operation->idempotent;
  if (must_not_repeat || now < nocall_served_until_) {
    if (!next_try_)
      plan_next_try(wait_, now);
    return;
  }
  working_ = acknowledged_ = false;
  if (nocalls_ >= kNocallsUntilRestart && !fack)
    sender_.restart();
  else
    sender_.resend_unacknowledged();
  // The network may still hold answers to earlier pings; each of them must not bring a request.
  wait_ = std::clamp(wait_, kFirstRepeat, kLongestRepeat);
  nocall_served_until_ = now + wait_ / 2;
  plan_next_try(wait_, now);
}

void ClientCall::on_fack(const Arrival& arrival) {
  const Time now = arrival.now;
  const auto fack = decode_fack(arrival.packet.body, arrival.little_endian());
  if (!sender_.acknowledge(arrival.header().fragment, fack, now))
    return;
  activity_.set_passed(sender_.passed());
  sign_of_life(now);
  if (sender_.all_sent() && !working_)
    start_asking(now);
}

void ClientCall::on_fault(const Arrival& arrival) {
  const auto number = decode_status_body(arrival.packet.body, arrival.little_endian());
  if (!request_.operation->idempotent)
    activity_.owe_ack(header(PacketType::ack), peer_);
  answer_number_ = number.value_or(nca::kUnspecifiedFault);
  end(from_fault(answer_number_), FailureKind::fault);
}

void ClientCall::on_reject(const Arrival& arrival) {
  const auto number = decode_status_body(arrival.packet.body, arrival.little_endian())
                          .value_or(nca::kUnspecifiedReject);
  // A server that was started anew can refuse only its own copy of the request.
  if (number == nca::kWrongBootTime || server_restarted(arrival.header()))
    on_restarted_server(from_reject(number), arrival.now);
  else
    end(from_reject(number), FailureKind::communication);
  answer_number_ = done_ ? number : 0;
}

void ClientCall::unreachable(std::span<const std::byte> quoted, const SocketAddress& destination,
                             Time now) {
  if (done_ || destination != peer_)
    return;
  // Routers may quote less than a header; then only the address tells whose packet it was.
  const auto sent = decode_header(quoted);
  if (sent && !ours(*sent))
    return;
  if (!received_) {
    end(RPC_S_SERVER_UNAVAILABLE, FailureKind::communication);
    return;
  }
  if (asking_ && (!next_try_ || *next_try_ > now + wait_))
    plan_next_try(wait_, now);
}

// --- The end

// What the server took it may not run before it has asked who we are.
bool ClientCall::waits_for_question() const {
  return question_overdue_ && !activity_.asked() && !request_.operation->idempotent;
}

void ClientCall::give_up(bool silent) {
  PacketHeader cancel = header(PacketType::cancel);
  send(cancel, peer_, encode_cancel_body(kCancelId, cancel.representation.little_endian));
  if (sender_.large_missing() || joiner_.receiving())
    activity_.set_narrow();
  question_lost_ = silent && waits_for_question();
  if (question_lost_)
    end(RPC_S_CALL_FAILED_DNE, FailureKind::communication);
  else
    end(received_ ? RPC_S_CALL_FAILED : RPC_S_SERVER_UNAVAILABLE, FailureKind::communication);
}

void ClientCall::end(std::uint32_t status, FailureKind kind) {
  done_ = true;
  status_ = status;
  kind_ = kind;
  next_try_.reset();
  deadline_.reset();
}

}  // namespace rpc
