// SPDX-License-Identifier: Apache-2.0
// The activity table and the packets that come in. What a call does with them is in
// server_core_call.cpp.

#include "platform/rpc/server/server_core.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/rpc/server/server_core_activity.h"
#include "platform/rpc/wire/wire_bytes.h"

namespace rpc::server {
namespace {

// How far `a` is ahead of `b` among sequence numbers, which wrap at 32 bits.
std::int32_t ahead(std::uint32_t a, std::uint32_t b) {
  return static_cast<std::int32_t>(a - b);
}

}  // namespace

// Activities are random; mixing both halves keeps it so for those that differ in one half only.
std::size_t ServerCore::UuidHash::operator()(const uuid_t& uuid) const noexcept {
  std::uint64_t halves[2];
  std::memcpy(halves, &uuid, sizeof halves);
  return (halves[0] ^ (halves[1] << 1)) * 0x9E3779B97F4A7C15U;
}

ServerCore::ServerCore(const CoreOptions& options, std::vector<Interface*> interfaces)
    : options_(options),
      interfaces_(std::move(interfaces)),
      next_activity_hint_(options.first_activity_hint) {}

ServerCore::~ServerCore() = default;

void ServerCore::receive(std::span<const std::byte> datagram, const SocketAddress& source,
                         Time now) {
  ++statistics_.packets_received;
  tick(now);
  const std::optional<Packet> packet = decode_packet(datagram);
  if (!packet) {
    ++statistics_.packets_dropped;
    return;
  }
  const PacketHeader& header = packet->header;
  const auto call_back = call_backs_.find(header.activity);
  if (call_back != call_backs_.end()) {
    Activity& activity = *call_back->second;
    on_call_back_answer(*packet, activity, now);
    reschedule(activity);
    return;
  }
  if (header.type == PacketType::request) {
    on_request(*packet, source, now);
    return;
  }
  if (header.type == PacketType::ping) {
    on_ping(*packet, source, now);
    return;
  }

  Activity* const activity = find_activity(header.activity);
  if (activity == nullptr || activity->state == CallState::none ||
      activity->request.sequence != header.sequence ||
      (header.server_boot != 0 && header.server_boot != options_.boot_time)) {
    ++statistics_.packets_dropped;
    return;
  }
  activity->peer = source;
  activity->last_heard = now;
  if (header.type == PacketType::fack)
    on_fack(*packet, *activity, now);
  else if (header.type == PacketType::cancel)
    on_cancel(*packet, *activity);
  else if (header.type == PacketType::ack && activity->state == CallState::answering)
    release_call(*activity);
  else
    ++statistics_.packets_dropped;
  reschedule(*activity);
}

void ServerCore::on_request(const Packet& packet, const SocketAddress& source, Time now) {
  const PacketHeader& header = packet.header;
  const bool first = header.fragment == 0;
  if (header.server_boot != 0 && header.server_boot != options_.boot_time) {
    if (first)
      send_reject(header, source, nca::kWrongBootTime);
    return;
  }

  Activity* activity = find_activity(header.activity);
  if (activity != nullptr && activity->state != CallState::none) {
    const std::int32_t newer = ahead(header.sequence, activity->request.sequence);
    if (newer < 0) {
      ++statistics_.packets_dropped;
      return;
    }
    activity->peer = source;
    activity->last_heard = now;
    if (newer == 0 && activity->state != CallState::unremembered) {
      if (activity->state == CallState::receiving)
        take_request_packet(packet, *activity, now);
      else
        on_repeated_request(*activity, now);
      reschedule(*activity);
      return;
    }
    // A new call says that the last one's answer has arrived.
    release_call(*activity);
    reschedule(*activity);
  }

  Interface* const interface = find_interface(header);
  const OperationSpec* const operation =
      interface == nullptr ? nullptr : interface->operation(header.opnum);
  if (operation == nullptr) {
    if (first)
      send_reject(header, source,
                  interface == nullptr ? nca::kUnknownInterface : nca::kOperationRange);
    return;
  }
  if (activity == nullptr)
    activity = find_or_make_activity(header.activity, now);
  if (activity == nullptr) {
    if (first)
      send_reject(header, source, nca::kServerTooBusy);
    return;
  }
  activity->peer = source;
  activity->last_heard = now;
  begin_call(*activity, header, *interface, *operation);
  take_request_packet(packet, *activity, now);
  reschedule(*activity);
}

void ServerCore::on_repeated_request(Activity& activity, Time now) {
  ++statistics_.duplicate_requests;
  if (activity.state == CallState::answering)
    answer_again(activity, now);
  else if ((activity.state == CallState::running || activity.state == CallState::calling_back) &&
           options_.working_on_repeat)
    send_for(activity, PacketType::working, {});
}

void ServerCore::on_ping(const Packet& packet, const SocketAddress& source, Time now) {
  const PacketHeader& header = packet.header;
  if (header.server_boot != 0 && header.server_boot != options_.boot_time) {
    send_reject(header, source, nca::kWrongBootTime);
    return;
  }
  Activity* const activity = find_activity(header.activity);
  const std::int32_t newer = activity == nullptr || activity->state == CallState::none
                                 ? 1
                                 : ahead(header.sequence, activity->request.sequence);
  if (newer < 0) {
    ++statistics_.packets_dropped;
    return;
  }
  if (newer > 0 || activity->state == CallState::unremembered) {
    send(header_for(header, PacketType::nocall), {}, source);
    return;
  }
  activity->peer = source;
  activity->last_heard = now;
  switch (activity->state) {
    case CallState::receiving: {
      PacketHeader nocall = header_for(activity->request, PacketType::nocall);
      nocall.fragment = activity->joiner.fack_fragment();
      const bool tells = options_.nocall_with_fack && activity->joiner.receiving();
      send(nocall,
           tells ? encode_fack(activity->joiner.fack(), options_.little_endian)
                 : std::vector<std::byte>(),
           source);
      break;
    }
    case CallState::calling_back:
    case CallState::running:
      send_for(*activity, PacketType::working, {});
      break;
    case CallState::answering:
      answer_again(*activity, now);
      break;
    case CallState::none:
    case CallState::abandoned:
    case CallState::finished:
    case CallState::unremembered:
      break;
  }
  reschedule(*activity);
}

// Version 0, the cancel's number, and whether the call can still be cancelled (C706 12.5.3.2).
void ServerCore::on_cancel(const Packet& packet, Activity& activity) {
  const bool little = packet.header.representation.little_endian;
  if (packet.body.size() < 8 || activity.state == CallState::abandoned) {
    ++statistics_.packets_dropped;
    return;
  }
  std::vector<std::byte> body(9);
  store32(body.data() + 4, load32(packet.body.data() + 4, little), options_.little_endian);
  body[8] = static_cast<std::byte>(activity.state == CallState::running ? 1 : 0);
  send_for(activity, PacketType::cancel_ack, body);
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

ServerCore::Activity* ServerCore::find_activity(const uuid_t& id) const {
  const auto found = activities_.find(id);
  return found == activities_.end() ? nullptr : found->second.get();
}

ServerCore::Activity* ServerCore::find_or_make_activity(const uuid_t& id, Time now) {
  if (Activity* const found = find_activity(id))
    return found;
  if (!make_room(1, 0, nullptr))
    return nullptr;
  auto made = std::make_unique<Activity>();
  Activity* const activity = made.get();
  activity->id = id;
  activity->hint = next_activity_hint_++;
  if (next_activity_hint_ == kNoHint)
    next_activity_hint_ = options_.first_activity_hint;
  activity->known = options_.call_back == CallBack::none;
  activity->last_heard = now;
  activities_.emplace(id, std::move(made));
  return activity;
}

// Forgets activities until `activities` more of them and `bytes` more of bodies fit. Those that
// nobody vouched for go first, so that a flood of invented ones cannot push out real clients; one
// that runs a call or is being answered never goes, and `keep` neither.
bool ServerCore::make_room(std::size_t activities, std::size_t bytes, const Activity* keep) {
  if (bytes > options_.max_bytes || activities > options_.max_activities)
    return false;
  while (activities_.size() > options_.max_activities - activities ||
         statistics_.bytes_held > options_.max_bytes - bytes) {
    Activity* victim = nullptr;
    for (const auto& [id, activity] : activities_) {
      const bool unproven = !activity->known && activity->state == CallState::receiving;
      if (activity.get() == keep || (!activity->idle() && !unproven) ||
          (activities == 0 && activity->bytes == 0))
        continue;
      if (victim == nullptr || std::pair(activity->known, activity->last_heard) <
                                   std::pair(victim->known, victim->last_heard))
        victim = activity.get();
    }
    if (victim == nullptr)
      return false;
    forget(*victim);
  }
  return true;
}

void ServerCore::forget(Activity& activity) {
  release_call(activity);
  if (activity.has_run)
    gone_.push_back(activity.id);
  if (activity.due)
    due_.erase({*activity.due, &activity});
  activities_.erase(uuid_t(activity.id));
}

void ServerCore::tick(Time now) {
  while (!due_.empty() && due_.begin()->first <= now) {
    Activity& activity = *due_.begin()->second;
    due_.erase(due_.begin());
    activity.due.reset();
    if (activity.idle() && activity.last_heard + options_.client_silence <= now) {
      forget(activity);
      continue;
    }
    on_time(activity, now);
    reschedule(activity);
  }
}

std::optional<Time> ServerCore::next_wake_up() const {
  if (due_.empty())
    return std::nullopt;
  return due_.begin()->first;
}

// An entry that is too early only costs a look at the activity, so the list is not touched when the
// time moves on.
void ServerCore::reschedule(Activity& activity) {
  std::optional<Time> due;
  const auto earlier = [&due](const std::optional<Time>& time) {
    if (time && (!due || *time < *due))
      due = time;
  };
  if (activity.idle()) {
    due = activity.last_heard + options_.client_silence;
  } else {
    earlier(activity.keep_until);
    if (activity.state == CallState::receiving)
      earlier(activity.joiner.wakeup());
    if (activity.state == CallState::calling_back) {
      earlier(activity.call_back_clock.next());
      earlier(activity.call_back_deadline);
    }
    if (activity.state == CallState::answering) {
      earlier(activity.answer_clock.next());
      earlier(activity.sender.wakeup());
    }
  }
  if (!due || (activity.due && *activity.due <= *due))
    return;
  if (activity.due)
    due_.erase({*activity.due, &activity});
  activity.due = due;
  due_.emplace(*due, &activity);
}

std::vector<OutgoingDatagram> ServerCore::take_output() {
  return std::exchange(output_, {});
}
std::vector<ReadyCall> ServerCore::take_calls() {
  return std::exchange(calls_, {});
}
std::vector<uuid_t> ServerCore::take_gone_clients() {
  return std::exchange(gone_, {});
}

ServerCore::Statistics ServerCore::statistics() const {
  Statistics result = statistics_;
  result.activities = activities_.size();
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
  if (const Activity* const activity = find_activity(request.activity))
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

void ServerCore::send_for(Activity& activity, PacketType type, std::span<const std::byte> body) {
  send(header_for(activity.request, type), body, activity.peer);
}

// A reject of a call of which nothing is kept.
void ServerCore::send_reject(const PacketHeader& request, const SocketAddress& destination,
                             std::uint32_t status) {
  if ((request.flags1 & kFlagMaybe) != 0)
    return;
  send(header_for(request, PacketType::reject), encode_status_body(status, options_.little_endian),
       destination);
}

void ServerCore::send(const PacketHeader& header, std::span<const std::byte> body,
                      const SocketAddress& destination) {
  ++statistics_.packets_sent;
  PacketHeader numbered = header;
  numbered.serial = serial_++;
  output_.push_back({destination, false, encode_packet(numbered, body)});
}

}  // namespace rpc::server
