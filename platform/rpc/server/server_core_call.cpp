// SPDX-License-Identifier: Apache-2.0
// One call of an activity, from its first request packet to the acknowledged answer, and the
// call-back before it.

#include <algorithm>
#include <utility>

#include "platform/rpc/server/server_core.h"
#include "platform/rpc/wire/conversation.h"
#include "platform/rpc/wire/wire_bytes.h"

namespace rpc::server {
namespace {

// An answer in one packet is repeated unasked after a second, doubling: later than the client's
// own repeats, which are the usual cure.
constexpr Duration kFirstAnswerRepeat = std::chrono::seconds(1);
// A client that neither acknowledges nor asks for so long hears nothing more unasked. The answer is
// kept as long as the client is known, because its pings may be further apart than that.
constexpr Duration kAnswerRepeated = std::chrono::seconds(30);
// The part of a request that a silent client left behind; longer than any of its repeats.
constexpr Duration kPartKept = std::chrono::seconds(60);
// The question is small and the client waits for it, so it is repeated steadily.
constexpr Duration kCallBackRepeat = std::chrono::seconds(1);
// A client's repeats are at least 250 ms apart; what is closer is a copy that the network made.
constexpr Duration kLeastAnswerGap = std::chrono::milliseconds(50);

}  // namespace

void ServerCore::begin_call(Activity& activity, const PacketHeader& request, Interface& interface,
                            const OperationSpec& operation) {
  activity.state = CallState::receiving;
  activity.request = request;
  activity.interface = &interface;
  activity.operation = &operation;
  FragmentJoiner::Limits limits;
  limits.body = options_.largest_request;
  limits.window_kilobytes = options_.window_kilobytes;
  limits.max_fragment =
      static_cast<std::uint32_t>(std::max(options_.fragment_size, kLeastMaxFragment));
  activity.joiner.start(limits);
}

// Forgets everything of the call but that it was there.
void ServerCore::release_call(Activity& activity) {
  if (activity.state == CallState::running || activity.state == CallState::abandoned ||
      activity.state == CallState::denied)
    activities_.end_call(activity);
  end_call_back(activity);
  activities_.end_sending(activity);
  activities_.release_bytes(activity);
  activity.held_back.reset();
  activity.joiner = FragmentJoiner();
  activity.in_parameters = {};
  activity.sender = FragmentSender();
  activity.answer = {};
  activity.answer_clock.stop();
  activity.keep_until.reset();
  if (activity.state != CallState::none && activity.state != CallState::unremembered)
    activity.state = CallState::finished;
}

void ServerCore::take_request_packet(const Arrival& arrival, Activity& activity) {
  activity.keep_until = arrival.now + kept(kPartKept);
  const std::size_t size = arrival.packet.body.size();
  if (!activities_.make_room(size, activity)) {
    ++statistics_.packets_dropped;
    return;
  }
  switch (activity.joiner.accept(arrival.packet, arrival.now)) {
    case FragmentJoiner::Result::too_long:
      send_reject(activity.request, activity.peer, nca::kRemoteNoMemory);
      release_call(activity);
      return;
    case FragmentJoiner::Result::dropped:
      ++statistics_.packets_dropped;
      break;
    case FragmentJoiner::Result::duplicate:
      note_repeat(activity);
      break;
    case FragmentJoiner::Result::accepted:
    case FragmentJoiner::Result::complete:
      activities_.hold(activity, size);
      break;
  }
  if (activity.joiner.fack_due())
    send_request_fack(activity);
  if (activity.joiner.complete())
    request_complete(activity, arrival.now);
}

void ServerCore::request_complete(Activity& activity, Time now) {
  activity.in_parameters = activity.joiner.take_body();
  activity.keep_until.reset();
  if (activity.known || activity.idempotent()) {
    hand_out(activity);
    return;
  }
  ask_who(activity, now);
}

void ServerCore::ask_who(Activity& activity, Time now) {
  activity.state = CallState::calling_back;
  activity.call_back = options_.call_back;
  uuid_t id = options_.call_back_activity;
  id.time_low += ++call_backs_begun_;
  activities_.begin_call_back(activity, id);
  activity.call_back_deadline = now + options_.call_back_limit;
  activity.call_back_clock.start(now, kCallBackRepeat);
  tell(CoreEvent::Kind::call_back_began, activity.peer);
  call_back(activity);
}

void ServerCore::hand_out(Activity& activity) {
  activity.state = CallState::running;
  activity.has_run = true;
  activity.number = ++last_call_;
  activities_.begin_call(activity);
  ++statistics_.calls_handed_out;
  calls_.push_back({activity.number, activity.interface, activity.operation,
                    CallInfo{activity.id, activity.request.object, activity.peer, activity.owner(),
                             nullptr, std::nullopt},
                    std::move(activity.in_parameters), activity.request.representation,
                    options_.little_endian});
  activity.in_parameters = {};
  activities_.release_bytes(activity);
}

void ServerCore::complete(CallNumber number, Outcome outcome, Time now) {
  Activity* const activity = activities_.of_call(number);
  if (activity == nullptr)
    return;
  activities_.end_call(*activity);
  if (activity->state == CallState::abandoned)
    return;
  // A sign of life names a process. A context of one that was never asked would not outlive a
  // pause.
  if (outcome.leaves_context && !activity->known &&
      activities_.make_room(outcome.reply.size(), *activity)) {
    activities_.hold(*activity, outcome.reply.size());
    activity->held_back = std::move(outcome);
    ask_who(*activity, now);
  } else {
    answer(*activity, std::move(outcome), now);
  }
  activities_.schedule(*activity);
}

bool ServerCore::running(CallNumber number) const {
  const Activity* const activity = activities_.of_call(number);
  return activity != nullptr && activity->state == CallState::running;
}

void ServerCore::deny(CallNumber number) {
  if (Activity* const activity = activities_.of_call(number))
    activity->state = CallState::denied;
}

void ServerCore::admit(CallNumber number) {
  Activity* const activity = activities_.of_call(number);
  if (activity != nullptr && activity->state == CallState::denied)
    activity->state = CallState::running;
}

void ServerCore::abandon(CallNumber number) {
  Activity* const activity = activities_.of_call(number);
  if (activity == nullptr)
    return;
  activity->state = CallState::abandoned;
  activities_.schedule(*activity);
}

void ServerCore::answer(Activity& activity, Outcome outcome, Time now) {
  const bool rejected = outcome.kind == Outcome::Kind::reject;
  if (activity.maybe() || (rejected && !activity.wants_rejects())) {
    activity.state = CallState::finished;
    return;
  }
  if (!activities_.make_room(outcome.reply.size(), activity))
    outcome = Outcome::fault(nca::kRemoteNoMemory);
  const bool reply = outcome.kind == Outcome::Kind::reply;
  activity.answer_type =
      reply ? PacketType::response
            : (outcome.kind == Outcome::Kind::fault ? PacketType::fault : PacketType::reject);
  activity.answer =
      reply ? std::move(outcome.reply) : encode_status_body(outcome.status, options_.little_endian);
  activity.repeats = 0;
  start_sending(activity);
  activity.state = CallState::answering;

  // What runs again harmlessly is not kept, unless it took more than one packet to ask or tell.
  const bool asked_in_one = (activity.request.flags1 & kFlagFragment) == 0;
  if (activity.idempotent() && activity.sender.single() && asked_in_one) {
    send_for(activity, activity.answer_type, std::move(activity.answer));
    release_call(activity);
    activity.state = CallState::unremembered;
    return;
  }
  activity.answer_header = header_for(activity.request, activity.answer_type);
  activities_.begin_sending(activity);
  activity.last_answer_sent = now;
  if (reply)
    activities_.hold(activity, activity.answer.size());
  activity.keep_until = now + kept(kAnswerRepeated);
  // What the client need not acknowledge is not repeated unasked.
  if (reply && activity.sender.single() && !activity.idempotent())
    activity.answer_clock.start(now, kFirstAnswerRepeat);
}

void ServerCore::start_sending(Activity& activity) {
  std::size_t largest = options_.fragment_size;
  if (options_.path_limit && kHeaderSize + activity.answer.size() > kLeastMaxFragment)
    largest = std::min(largest, options_.path_limit(activity.peer));
  activity.sender.start(activity.answer, LastFragment::acknowledged, largest, activity.passed);
  activity.sender.send_whole();
}

// What passed before may vanish now: a large packet that repeats do not bring through is cut as for
// a client never heard.
void ServerCore::repeat_answer(Activity& activity) {
  const bool large = kHeaderSize + activity.answer.size() > kLeastMaxFragment;
  if (!large || !activity.sender.single() || ++activity.repeats <= kRepeatsOfLarge) {
    activity.sender.resend_oldest();
    return;
  }
  activity.passed = 0;
  start_sending(activity);
}

void ServerCore::answer_again(Activity& activity, Time now) {
  if (now - activity.last_answer_sent < kLeastAnswerGap)
    return;
  activity.last_answer_sent = now;
  activity.keep_until = now + kept(kAnswerRepeated);
  repeat_answer(activity);
  activities_.begin_sending(activity);
}

void ServerCore::on_fack(const Arrival& arrival, Activity* of_packet) {
  Activity& activity = *of_packet;
  if (activity.state != CallState::answering) {
    ++statistics_.packets_dropped;
    return;
  }
  const Time now = arrival.now;
  activity.sender.acknowledge(arrival.header().fragment,
                              decode_fack(arrival.packet.body, arrival.little_endian()), now);
  activity.passed = activity.sender.passed();
  if (activity.sender.complete()) {
    release_call(activity);
    return;
  }
  activity.keep_until = now + kept(kAnswerRepeated);
  activities_.begin_sending(activity);
}

void ServerCore::look_at(Activity& activity, Time now) {
  if (activity.keep_until && *activity.keep_until <= now) {
    activity.keep_until.reset();
    if (activity.state == CallState::answering) {
      if (!activity.idempotent())
        tell(CoreEvent::Kind::violation, activity.peer, "an answer was never acknowledged");
      return;
    }
    // The rest may come yet, and finds a server that wants the whole again.
    release_call(activity);
    activity.state = CallState::unremembered;
    return;
  }
  switch (activity.state) {
    case CallState::receiving:
      if (activity.joiner.on_time(now))
        send_request_fack(activity);
      break;
    case CallState::calling_back:
      if (activity.call_back_deadline && *activity.call_back_deadline <= now) {
        fail_call_back(activity, now);
      } else if (activity.call_back_clock.due(now)) {
        activity.call_back_clock.start(now, kCallBackRepeat);
        call_back(activity);
      }
      break;
    case CallState::answering:
      if (!activity.keep_until)
        break;
      if (activity.answer_clock.due(now)) {
        activity.answer_clock.back_off(now);
        repeat_answer(activity);
      }
      if (activity.sender.on_time(now) || activity.sender.single())
        activities_.begin_sending(activity);
      break;
    case CallState::none:
    case CallState::running:
    case CallState::abandoned:
    case CallState::denied:
    case CallState::finished:
    case CallState::unremembered:
      break;
  }
}

void ServerCore::send_request_fack(Activity& activity) {
  PacketHeader header = header_for(activity.request, PacketType::fack);
  header.fragment = activity.joiner.fack_fragment();
  send(header, activity.peer, encode_fack(activity.joiner.fack(), options_.little_endian));
}

// who_are_you and who_are_you2 take the same: the activity in question and our boot time.
void ServerCore::call_back(Activity& activity) {
  PacketHeader header;
  header.type = PacketType::request;
  header.flags1 = kFlagIdempotent;
  header.representation.little_endian = options_.little_endian;
  header.interface_id = conversation::kOfClients;
  header.interface_version = conversation::kOfClientsMajor;
  header.activity = activity.call_back_id;
  header.opnum = activity.call_back == CallBack::who_are_you ? conversation::kWhoAreYou
                                                             : conversation::kWhoAreYou2;
  header.serial = serial_++;
  std::vector<std::byte> body(20);
  store_uuid(body.data(), activity.id, options_.little_endian);
  store32(body.data() + 16, options_.boot_time, options_.little_endian);
  ++statistics_.packets_sent;
  outbox_.put(activity.peer, header, std::move(body), true);
}

void ServerCore::on_call_back_answer(const Arrival& arrival, Activity& activity) {
  const Packet& packet = arrival.packet;
  const Time now = arrival.now;
  const bool little = arrival.little_endian();
  const bool second = activity.call_back == CallBack::who_are_you2;
  if (packet.header.type == PacketType::reject && second &&
      decode_status_body(packet.body, little) == nca::kOperationRange) {
    activity.call_back = CallBack::who_are_you;
    activity.call_back_clock.start(now, kCallBackRepeat);
    call_back(activity);
    return;
  }
  if (packet.header.type == PacketType::reject || packet.header.type == PacketType::fault) {
    fail_call_back(activity, now);
    return;
  }
  // Sequence number, for who_are_you2 the client's address space, status.
  const std::size_t status_at = second ? 20 : 4;
  if (packet.header.type != PacketType::response || packet.body.size() < status_at + 4) {
    ++statistics_.packets_dropped;
    return;
  }
  const std::uint32_t sequence = load32(packet.body.data(), little);
  const std::uint32_t status = load32(packet.body.data() + status_at, little);
  activity.last_heard = now;
  if (status != 0) {
    fail_call_back(activity, now);
    return;
  }
  end_call_back(activity);
  activity.known = true;
  if (second)
    activity.client = load_uuid(packet.body.data() + 4, little);
  const bool current = sequence == activity.request.sequence;
  tell(current ? CoreEvent::Kind::call_back_confirmed : CoreEvent::Kind::call_back_stale,
       activity.peer);
  if (current) {
    if (activity.held_back)
      answer_held_back(activity, now);
    else
      hand_out(activity);
    return;
  }
  // The client is in another call: this request is a stale copy. Its next ones are taken.
  release_call(activity);
}

void ServerCore::end_call_back(Activity& activity) {
  if (activity.call_back_deadline)
    activities_.end_call_back(activity);
  activity.call_back_deadline.reset();
  activity.call_back_clock.stop();
}

void ServerCore::answer_held_back(Activity& activity, Time now) {
  activities_.release_bytes(activity);
  Outcome outcome = std::move(*activity.held_back);
  activity.held_back.reset();
  answer(activity, std::move(outcome), now);
}

// Nothing of the activity is believed: the client does not know it, or is not there. A client that
// was told "working" meanwhile must hear of it, so the reject is kept like an answer.
void ServerCore::fail_call_back(Activity& activity, Time now) {
  tell(CoreEvent::Kind::call_back_failed, activity.peer, {}, nca::kWhoAreYouFailed);
  end_call_back(activity);
  if (activity.held_back)
    return answer_held_back(activity, now);
  activities_.release_bytes(activity);
  activity.in_parameters = {};
  answer(activity, Outcome::reject(nca::kWhoAreYouFailed), now);
}

}  // namespace rpc::server
