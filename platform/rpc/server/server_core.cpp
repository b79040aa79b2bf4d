// SPDX-License-Identifier: Apache-2.0
// The packets that come in, and those that go out. What a call does with them is in
// server_core_call.cpp.

#include "platform/rpc/server/server_core.h"

#include <algorithm>
#include <utility>

#include "platform/rpc/wire/conversation.h"
#include "platform/rpc/wire/wire_bytes.h"

namespace rpc::server {
namespace {

constexpr std::size_t kAuthenticationField = 78;
constexpr std::uint8_t kReservedFlags1 = 0x81;
constexpr std::uint8_t kReservedFlags2 = 0xFD;  // all but that a cancel is pending

// How far `a` is ahead of `b` among sequence numbers, which wrap at 32 bits.
std::int32_t ahead(std::uint32_t a, std::uint32_t b) {
  return static_cast<std::int32_t>(a - b);
}

std::string_view why_no_packet(std::span<const std::byte> datagram) {
  if (datagram.size() < kHeaderSize)
    return "it is shorter than a packet's header";
  return decode_header(datagram) ? "its length is more than what came"
                                 : "its version, type or number format is none of this protocol";
}

}  // namespace

ServerCore::ServerCore(const CoreOptions& options, std::vector<Interface*> interfaces)
    : options_(options),
      interfaces_(std::move(interfaces)),
      activities_({options.max_activities, options.max_bytes, options.client_silence}),
      next_activity_hint_(options.first_activity_hint) {}

const ServerCore::PacketRule ServerCore::kPacketRules[] = {
    {&ServerCore::on_request, false},
    {&ServerCore::on_ping, false},
    {},  // response: of call-backs only
    {},  // fault
    {},  // working
    {},  // nocall
    {},  // reject
    {&ServerCore::on_ack, true},
    {&ServerCore::on_cancel, true},
    {&ServerCore::on_fack, true},
    {},  // cancel_ack
};

// Whether the packet is meant for this server before or after its life.
bool ServerCore::other_life(const PacketHeader& header) const {
  return header.server_boot != 0 && header.server_boot != options_.boot_time;
}

bool ServerCore::of_current_call(const PacketHeader& header, const Activity* activity) const {
  return activity != nullptr && activity->state != CallState::none &&
         activity->request.sequence == header.sequence && !other_life(header);
}

void ServerCore::receive(std::span<const std::byte> datagram, const SocketAddress& source,
                         Time now) {
  ++statistics_.packets_received;
  on_time(now);
  const std::optional<Packet> packet = decode_packet(datagram);
  if (!packet) {
    ++statistics_.packets_dropped;
    on_undecodable(datagram, source);
    return;
  }
  const Arrival arrival{*packet, source, now};
  const PacketHeader& header = packet->header;
  look_for_violations(arrival, datagram.size());
  if (Activity* const asked = activities_.of_call_back(header.activity)) {
    on_call_back_answer(arrival, *asked);
    activities_.schedule(*asked);
    return;
  }
  const PacketRule& rule = kPacketRules[static_cast<std::size_t>(header.type)];
  Activity* const activity = activities_.find(header.activity);
  if (rule.handler == nullptr || (rule.of_known_call && !of_current_call(header, activity))) {
    ++statistics_.packets_dropped;
    return;
  }
  if (rule.of_known_call)
    hear(*activity, arrival);
  (this->*rule.handler)(arrival, activity);
  if (rule.of_known_call)
    activities_.schedule(*activity);
}

// Authentication is not spoken here, and a client that wants it must hear so.
void ServerCore::on_undecodable(std::span<const std::byte> datagram, const SocketAddress& source) {
  std::vector<std::byte> plain(datagram.begin(), datagram.end());
  if (plain.size() >= kHeaderSize)
    plain[kAuthenticationField] = std::byte{0};
  const std::optional<Packet> packet = decode_packet(plain);
  if (!packet)
    tell(CoreEvent::Kind::violation, source, why_no_packet(plain));
  else if (packet->header.type == PacketType::request && packet->header.fragment == 0)
    send_reject(packet->header, source, nca::kUnsupportedAuthentication);
}

void ServerCore::look_for_violations(const Arrival& arrival, std::size_t datagram_size) {
  const auto violation = [&](std::string_view detail) {
    tell(CoreEvent::Kind::violation, arrival.source, detail);
  };
  if (datagram_size > kHeaderSize + arrival.packet.body.size())
    violation("octets are left over behind the packet");
  if ((arrival.header().flags1 & kReservedFlags1) != 0 ||
      (arrival.header().flags2 & kReservedFlags2) != 0)
    violation("reserved flags are set");
  const bool fragment = (arrival.header().flags1 & kFlagFragment) != 0;
  if (!fragment && arrival.header().type == PacketType::request &&
      ((arrival.header().flags1 & kFlagLastFragment) != 0 || arrival.header().fragment != 0))
    violation("a request in one packet says that it is a fragment");
}

void ServerCore::tell(CoreEvent::Kind kind, const SocketAddress& peer, std::string_view detail,
                      std::uint32_t status) const {
  if (options_.on_event)
    options_.on_event({kind, peer, detail, status});
}

void ServerCore::hear(Activity& activity, const Arrival& arrival) {
  activity.peer = arrival.source;
  activity.last_heard = arrival.now;
}

// A client that holds our contexts and makes no calls. Nothing is answered and nothing is kept.
void ServerCore::on_still_here(const Arrival& arrival) {
  const std::span<const std::byte> body = arrival.packet.body;
  if (arrival.header().opnum == conversation::kStillHere && body.size() >= sizeof(uuid_t))
    activities_.hear_from(load_uuid(body.data(), arrival.little_endian()), arrival.now);
  else
    ++statistics_.packets_dropped;
}

void ServerCore::on_request(const Arrival& arrival, Activity* activity) {
  const PacketHeader& header = arrival.header();
  if (header.interface_id == conversation::kOfServers) {
    on_still_here(arrival);
    return;
  }
  if (other_life(header)) {
    if (header.fragment == 0)
      send_reject(header, arrival.source, nca::kWrongBootTime);
    return;
  }
  if (activity != nullptr && activity->state != CallState::none) {
    const std::int32_t newer = ahead(header.sequence, activity->request.sequence);
    if (newer < 0) {
      ++statistics_.packets_dropped;
      return;
    }
    hear(*activity, arrival);
    if (newer == 0 && activity->state != CallState::unremembered) {
      if (activity->state == CallState::receiving)
        take_request_packet(arrival, *activity);
      else
        on_repeated_request(*activity, arrival.now);
      activities_.schedule(*activity);
      return;
    }
    if (activity->state == CallState::running || activity->state == CallState::calling_back)
      tell(CoreEvent::Kind::violation, arrival.source,
           "a call begins while another of its activity runs");
    // Asked for again, its answer may have been too large for the way.
    if (newer == 0)
      activity->passed = 0;
    // A new call says that the last one's answer has arrived.
    release_call(*activity);
    activities_.schedule(*activity);
  }
  on_new_call(arrival, activity);
}

void ServerCore::on_new_call(const Arrival& arrival, Activity* activity) {
  const PacketHeader& header = arrival.header();
  const bool first = header.fragment == 0;
  Interface* const interface = knows_object(header.object) ? find_interface(header) : nullptr;
  const OperationSpec* const operation =
      interface == nullptr ? nullptr : interface->operation(header.opnum);
  if (operation == nullptr) {
    if (first)
      send_reject(header, arrival.source,
                  interface == nullptr ? nca::kUnknownInterface : nca::kOperationRange);
    return;
  }
  if (activity == nullptr)
    activity = make_activity(header.activity, arrival.now);
  if (activity == nullptr) {
    if (first)
      send_reject(header, arrival.source, nca::kServerTooBusy);
    return;
  }
  if ((header.flags1 & kFlagIdempotent) != 0 && !operation->idempotent)
    tell(CoreEvent::Kind::violation, arrival.source,
         "the request says that the operation is idempotent");
  hear(*activity, arrival);
  begin_call(*activity, header, *interface, *operation);
  take_request_packet(arrival, *activity);
  activities_.schedule(*activity);
}

void ServerCore::note_repeat(const Activity& activity) {
  ++statistics_.duplicate_requests;
  tell(CoreEvent::Kind::repeated, activity.peer, activity.operation->name);
}

void ServerCore::on_repeated_request(Activity& activity, Time now) {
  note_repeat(activity);
  if (activity.state == CallState::answering)
    answer_again(activity, now);
  else if ((activity.state == CallState::running || activity.state == CallState::calling_back) &&
           options_.working_on_repeat)
    send_for(activity, PacketType::working);
}

void ServerCore::on_ping(const Arrival& arrival, Activity* activity) {
  const PacketHeader& header = arrival.header();
  if (other_life(header)) {
    send_reject(header, arrival.source, nca::kWrongBootTime);
    return;
  }
  const std::int32_t newer = activity == nullptr || activity->state == CallState::none
                                 ? 1
                                 : ahead(header.sequence, activity->request.sequence);
  if (newer < 0) {
    ++statistics_.packets_dropped;
    return;
  }
  if (newer > 0 || activity->state == CallState::unremembered) {
    send(header_for(header, PacketType::nocall), arrival.source);
    return;
  }
  hear(*activity, arrival);
  switch (activity->state) {
    case CallState::receiving: {
      PacketHeader nocall = header_for(activity->request, PacketType::nocall);
      nocall.fragment = activity->joiner.fack_fragment();
      const bool tells = options_.nocall_with_fack && activity->joiner.receiving();
      send(nocall, arrival.source,
           tells ? encode_fack(activity->joiner.fack(), options_.little_endian)
                 : std::vector<std::byte>());
      break;
    }
    case CallState::denied:
      send_for(*activity, PacketType::nocall);
      break;
    case CallState::calling_back:
    case CallState::running:
      send_for(*activity, PacketType::working);
      break;
    case CallState::answering:
      answer_again(*activity, arrival.now);
      break;
    case CallState::none:
    case CallState::abandoned:
    case CallState::finished:
    case CallState::unremembered:
      break;
  }
  activities_.schedule(*activity);
}

void ServerCore::on_ack(const Arrival&, Activity* activity) {
  if (activity->state == CallState::answering)
    release_call(*activity);
  else
    ++statistics_.packets_dropped;
}

// Version 0, the cancel's number, and whether the call ends by it (C706 12.5.3.2): one that runs
// does, since it would have been answered if it were not late.
void ServerCore::on_cancel(const Arrival& arrival, Activity* activity) {
  const std::span<const std::byte> cancel = arrival.packet.body;
  if (cancel.size() < 8)
    tell(CoreEvent::Kind::violation, arrival.source, "a cancel packet is too short");
  if (cancel.size() < 8 || activity->state == CallState::abandoned) {
    ++statistics_.packets_dropped;
    return;
  }
  const bool ends = activity->state == CallState::running;
  std::vector<std::byte> body(9);
  store32(body.data() + 4, load32(cancel.data() + 4, arrival.little_endian()),
          options_.little_endian);
  body[8] = static_cast<std::byte>(ends ? 1 : 0);
  send_for(*activity, PacketType::cancel_ack, std::move(body));
  if (!ends)
    return;
  tell(CoreEvent::Kind::cancelled, arrival.source);
  complete(activity->number, Outcome::fault(nca::kCancelled), arrival.now);
}

bool ServerCore::knows_object(const uuid_t& object) const {
  return object == uuid_t{} || std::find(options_.objects.begin(), options_.objects.end(),
                                         object) != options_.objects.end();
}

// Same interface, same major version, a minor version that we have. A hint that names another of
// our interfaces is believed, as servers do that look nothing up.
Interface* ServerCore::find_interface(const PacketHeader& request) const {
  const auto serves = [&request](const Interface* interface) {
    const InterfaceSpec& spec = interface->spec();
    return spec.id == request.interface_id && spec.major == (request.interface_version & 0xFFFF) &&
           spec.minor >= request.interface_version >> 16;
  };
  const auto hinted =
      static_cast<std::uint16_t>(request.interface_hint - options_.first_interface_hint);
  if (request.interface_hint != kNoHint && hinted < interfaces_.size())
    return serves(interfaces_[hinted]) ? interfaces_[hinted] : nullptr;
  const auto found = std::find_if(interfaces_.begin(), interfaces_.end(), serves);
  return found == interfaces_.end() ? nullptr : *found;
}

Activity* ServerCore::make_activity(const uuid_t& id, Time now) {
  Activity* const activity = activities_.make(id, now);
  if (activity == nullptr)
    return nullptr;
  activity->hint = next_activity_hint_++;
  if (next_activity_hint_ == kNoHint)
    next_activity_hint_ = options_.first_activity_hint;
  activity->known = options_.call_back == CallBack::none;
  return activity;
}

void ServerCore::on_time(Time now) {
  while (Activity* const activity = activities_.next_due(now)) {
    look_at(*activity, now);
    activities_.schedule(*activity);
  }
}

ServerCore::Statistics ServerCore::statistics() const {
  Statistics result = statistics_;
  result.activities = activities_.size();
  result.bytes_held = activities_.bytes_held();
  return result;
}

PacketHeader ServerCore::header_for(const PacketHeader& request, PacketType type) const {
  PacketHeader header;
  header.type = type;
  header.representation.little_endian = options_.little_endian;
  header.object = request.object;
  header.interface_id = request.interface_id;
  header.activity = request.activity;
  header.server_boot = options_.boot_time;
  header.interface_version = request.interface_version;
  header.sequence = request.sequence;
  header.opnum = request.opnum;
  if (const Activity* const activity = activities_.find(request.activity))
    header.activity_hint = activity->hint;
  const auto found =
      std::find_if(interfaces_.begin(), interfaces_.end(), [&request](const Interface* interface) {
        return interface->spec().id == request.interface_id;
      });
  if (found != interfaces_.end())
    header.interface_hint =
        static_cast<std::uint16_t>(options_.first_interface_hint + (found - interfaces_.begin()));
  return header;
}

void ServerCore::send_for(Activity& activity, PacketType type, std::vector<std::byte> body) {
  send(header_for(activity.request, type), activity.peer, std::move(body));
}

// Answers are cut only when they are taken, so that a body cannot go while packets show it.
std::optional<OutgoingDatagram> ServerCore::next_datagram(Time now) {
  if (const auto waiting = outbox_.next())
    return waiting;
  while (Activity* const activity = activities_.sending()) {
    const auto packet = activity->sender.next(now, serial_);
    if (!packet) {
      activities_.end_sending(*activity);
      activities_.schedule(*activity);
      continue;
    }
    PacketHeader& header = activity->answer_header;
    header.flags1 = packet->flags;
    header.fragment = packet->fragment;
    header.serial = packet->serial;
    ++statistics_.packets_sent;
    OutgoingDatagram datagram{activity->peer, {}, packet->body};
    encode_header(header, packet->body.size(), datagram.header);
    return datagram;
  }
  return std::nullopt;
}

// A reject of a call of which nothing is kept.
void ServerCore::send_reject(const PacketHeader& request, const SocketAddress& destination,
                             std::uint32_t status) {
  if ((request.flags1 & (kFlagMaybe | kFlagBroadcast)) != 0)
    return;
  tell(CoreEvent::Kind::rejected, destination, {}, status);
  send(header_for(request, PacketType::reject), destination,
       encode_status_body(status, options_.little_endian));
}

void ServerCore::send(PacketHeader header, const SocketAddress& destination,
                      std::vector<std::byte> body) {
  ++statistics_.packets_sent;
  header.serial = serial_++;
  outbox_.put(destination, header, std::move(body));
}

}  // namespace rpc::server
