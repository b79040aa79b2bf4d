// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/wire/fragments.h"

#include <algorithm>
#include <cassert>

namespace rpc {
namespace {

constexpr std::size_t kKilobyte = 1024;
// Fragments in flight at the start: a burst that the smallest receive buffers hold.
constexpr std::size_t kFirstFlight = 4;
// Fragments in flight at most, whatever the receiver announces.
constexpr std::size_t kMostInFlight = 256;
// The receiver's window until it announces one.
constexpr std::size_t kAssumedWindow = 16 * kKilobyte;
// Fragments that a joiner holds at most ahead of a missing one; bounds the selective mask.
constexpr std::int32_t kMostAhead = 512;
// Fragments' bodies are multiples of this, so that alignment is that of the joined body
// (C706 12.5.2.15).
constexpr std::size_t kFragmentUnit = 8;
// No path that carries IP takes less than this unfragmented in one UDP datagram (RFC 791: 576
// bytes with at most 60 of IP header and 8 of UDP).
constexpr std::size_t kLeastPathLimit = 508;

// How far `a` is ahead of `b` among numbers that wrap at 16 bits.
std::int32_t ahead(std::uint16_t a, std::uint16_t b) {
  return static_cast<std::int16_t>(static_cast<std::uint16_t>(a - b));
}

// The body of a fragment that fits into a datagram of this size.
std::size_t body_size_of(std::size_t datagram) {
  return std::min(datagram - kHeaderSize, kMaxBodySize) / kFragmentUnit * kFragmentUnit;
}

// Whether a fragment's body makes it larger than every receiver takes.
bool is_large(std::size_t body) {
  return kHeaderSize + body > kLeastMaxFragment;
}

bool bit_set(const std::vector<std::uint32_t>& masks, std::size_t bit) {
  return bit / 32 < masks.size() && (masks[bit / 32] >> (bit % 32) & 1) != 0;
}

}  // namespace

void RepeatClock::start(Time now, Duration first) {
  wait_ = first;
  next_ = now + wait_;
}

void RepeatClock::back_off(Time now) {
  wait_ = std::min(wait_ * 2, kLongestRepeat);
  next_ = now + wait_;
}

// --- Sender

void FragmentSender::start(std::span<const std::byte> body, LastFragment last,
                           std::size_t path_limit, std::size_t passed) {
  *this = FragmentSender();
  passed_ = passed;
  body_ = body;
  last_ = last;
  path_limit_ = std::max(path_limit, kLeastPathLimit);
  receiver_window_ = kAssumedWindow;
  congestion_ = kFirstFlight;
  started_ = true;
  single_ = single_pending_ = body_.size() <= fragment_body_size();
}

void FragmentSender::send_whole() {
  single_ = single_pending_ =
      single_ || body_.size() <= body_size_of(std::clamp(passed_, kHeaderSize, path_limit_));
}

// The cuts stay where they were: a receiver that has forgotten less than we think may join old and
// new fragments, and acknowledges all that it holds when the first comes again.
void FragmentSender::restart() {
  complete_ = false;
  single_pending_ = single_;
  in_flight_.clear();
  flight_bytes_ = held_ = 0;
  next_offset_ = 0;
  next_number_ = 0;
  for (const std::size_t end : ends_) {
    in_flight_.push_back({next_number_++, 0, next_offset_, end - next_offset_, end == body_.size(),
                          false, true, true, Time{}});
    flight_bytes_ += kHeaderSize + end - next_offset_;
    next_offset_ = end;
  }
  pending_ = in_flight_.size();
  repeated_ = repeated_ || pending_ > 0;
  recovery_ = next_number_;
  congestion_ = kFirstFlight;
  unasked_ = 0;
  probe_ = false;
  clock_.stop();
}

std::size_t FragmentSender::fragment_body_size() const {
  return body_size_of(std::min(max_fragment_, path_limit_));
}

std::size_t FragmentSender::small_body_size() const {
  return body_size_of(std::min(kLeastMaxFragment, path_limit_));
}

bool FragmentSender::large_missing() const {
  return !in_flight_.empty() && is_large(in_flight_.front().length);
}

// The rest again in fragments of 1,464 bytes. Only while no receiver can have the last fragment,
// whose number becomes another's.
void FragmentSender::cut_anew() {
  const auto first = std::find_if(in_flight_.begin(), in_flight_.end(),
                                  [](const InFlight& each) { return is_large(each.length); });
  const bool here =
      std::any_of(first, in_flight_.end(), [](const InFlight& each) { return each.held; });
  if (first == in_flight_.end() || here || all_sent())
    return;
  next_offset_ = first->offset;
  next_number_ = recovery_ = first->number;
  ends_.resize(ends_.size() - static_cast<std::size_t>(in_flight_.end() - first));
  for (auto each = first; each != in_flight_.end(); ++each) {
    flight_bytes_ -= kHeaderSize + each->length;
    pending_ -= each->pending ? 1 : 0;
  }
  in_flight_.erase(first, in_flight_.end());
  congestion_ = kFirstFlight;
  unasked_ = 0;
  probe_ = false;
  repeated_ = true;
}

std::size_t FragmentSender::outstanding() const {
  return in_flight_.size() - held_ - pending_;
}

bool FragmentSender::congested() const {
  return outstanding() > 0 && outstanding() >= congestion_;
}

bool FragmentSender::window_open() const {
  if (in_flight_.empty())
    return true;
  const std::size_t size =
      kHeaderSize + std::min(fragment_body_size(), body_.size() - next_offset_);
  return !congested() && in_flight_.size() < kMostInFlight &&
         flight_bytes_ + size <= receiver_window_;
}

bool FragmentSender::asks_for_fack(const InFlight& fragment) {
  if (fragment.last)
    return last_ == LastFragment::acknowledged;
  ++unasked_;
  const bool tried = is_large(fragment.length) && !large_pass();
  const bool ask = fragment.number == 0 || tried || unasked_ * 2 >= congestion_ || !window_open();
  if (ask)
    unasked_ = 0;
  return ask;
}

FragmentSender::Outgoing FragmentSender::transmit(InFlight& fragment, bool ask,
                                                  std::uint16_t& serial, Time now) {
  fragment.serial = last_serial_ = serial++;
  fragment.sent = now;
  Outgoing out;
  out.fragment = fragment.number;
  out.serial = fragment.serial;
  out.flags = static_cast<std::uint8_t>(kFlagFragment | (fragment.last ? kFlagLastFragment : 0) |
                                        (ask ? 0 : kFlagNoFack));
  out.body = body_.subspan(fragment.offset, fragment.length);
  return out;
}

std::optional<FragmentSender::Outgoing> FragmentSender::next(Time now, std::uint16_t& serial) {
  if (!started_ || complete_)
    return std::nullopt;
  if (single_) {
    if (!single_pending_)
      return std::nullopt;
    single_pending_ = false;
    first_sent_ = true;
    next_offset_ = body_.size();
    return Outgoing{0, serial++, 0, body_};
  }
  if (!clock_.next())
    clock_.start(now);
  if (pending_ > 0) {
    if (congested() && !probe_)
      return std::nullopt;
    probe_ = false;
    const auto fragment = std::find_if(in_flight_.begin(), in_flight_.end(),
                                       [](const InFlight& each) { return each.pending; });
    fragment->pending = false;
    --pending_;
    fragment->again = true;
    return transmit(*fragment, true, serial, now);
  }
  if (next_offset_ == body_.size() || !window_open())
    return std::nullopt;
  const std::size_t rest = body_.size() - next_offset_;
  std::size_t length = std::min(fragment_body_size(), rest);
  if (length == rest && !large_pass()) {
    if (std::any_of(in_flight_.begin(), in_flight_.end(),
                    [](const InFlight& each) { return is_large(each.length); }))
      return std::nullopt;
    length = std::min(length, small_body_size());
  }
  InFlight fragment{};
  fragment.number = next_number_++;
  fragment.offset = next_offset_;
  fragment.length = length;
  fragment.last = next_offset_ + length == body_.size();
  next_offset_ += length;
  ends_.push_back(next_offset_);
  flight_bytes_ += kHeaderSize + length;
  first_sent_ = true;
  in_flight_.push_back(fragment);
  return transmit(in_flight_.back(), asks_for_fack(fragment), serial, now);
}

void FragmentSender::mark_lost(InFlight& fragment) {
  if (fragment.held || fragment.pending)
    return;
  repeated_ = true;
  fragment.pending = true;
  ++pending_;
  if (ahead(fragment.number, recovery_) >= 0) {
    congestion_ = std::max<std::size_t>(congestion_ / 2, 1);
    recovery_ = next_number_;
  }
}

void FragmentSender::drop_oldest(std::size_t count) {
  const auto end = in_flight_.begin() + static_cast<std::ptrdiff_t>(count);
  for (auto oldest = in_flight_.begin(); oldest != end; ++oldest) {
    flight_bytes_ -= kHeaderSize + oldest->length;
    held_ -= oldest->held ? 1 : 0;
    pending_ -= oldest->pending ? 1 : 0;
  }
  in_flight_.erase(in_flight_.begin(), end);
}

// The fack names the packet that caused it, so that repeats cannot be mistaken for each other. It
// cannot hold a fragment whose repeat is younger than that packet, unless an earlier copy arrived.
void FragmentSender::learn_from(std::uint16_t fragment, const Fack& fack, Time now) {
  for (const InFlight& each : in_flight_) {
    const std::int32_t bit = ahead(each.number, static_cast<std::uint16_t>(fragment + 1));
    const bool here = bit < 0 || bit_set(fack.selective, static_cast<std::size_t>(bit));
    if (here && each.again && !each.held && ahead(each.serial, fack.serial) > 0)
      reordering_ = true;
    if (each.serial == fack.serial && !each.pending) {
      const Duration sample = now - each.sent;
      round_trip_ = round_trip_ == Duration{} ? sample : (7 * round_trip_ + sample) / 8;
    }
  }
}

// What was sent before the packet that caused the fack and is missing there is lost, unless the
// network reorders: then, and for a fragment that was repeated already, a round trip must have
// passed as well.
bool FragmentSender::believed_lost(const InFlight& fragment, const Fack& fack, Time now) const {
  if (ahead(fragment.serial, fack.serial) >= 0)
    return false;
  return !(reordering_ || fragment.again) || now - fragment.sent >= round_trip_ + round_trip_ / 4;
}

// A receiver that was silent for long may drop what it held, acknowledged or not. That is certain
// when a packet sent after the acknowledgement came in brings a lower one.
bool FragmentSender::receiver_lost_its_part(std::uint16_t fragment, const Fack& fack) const {
  if (in_flight_.empty())
    return false;
  const auto unbroken = static_cast<std::uint16_t>(in_flight_.front().number - 1);
  return ahead(fragment, unbroken) < 0 && ahead(fack.serial, advanced_at_) > 0;
}

void FragmentSender::arrived(const InFlight& fragment) {
  passed_ = std::max(passed_, kHeaderSize + fragment.length);
}

std::size_t FragmentSender::take_cumulative(std::uint16_t fragment) {
  if (in_flight_.empty())
    return 0;
  const std::int32_t count = ahead(fragment, in_flight_.front().number) + 1;
  if (count <= 0 || static_cast<std::size_t>(count) > in_flight_.size())
    return 0;
  advanced_at_ = last_serial_;
  const auto end = in_flight_.begin() + count;
  const auto taken =
      std::count_if(in_flight_.begin(), end, [](const InFlight& each) { return !each.held; });
  std::for_each(in_flight_.begin(), end, [this](const InFlight& each) { arrived(each); });
  drop_oldest(static_cast<std::size_t>(count));
  return static_cast<std::size_t>(taken);
}

std::size_t FragmentSender::take_selective(std::uint16_t fragment, const Fack& fack) {
  std::size_t taken = 0;
  for (InFlight& each : in_flight_) {
    const std::int32_t bit = ahead(each.number, static_cast<std::uint16_t>(fragment + 1));
    if (bit < 0 || !bit_set(fack.selective, static_cast<std::size_t>(bit)) || each.held)
      continue;
    each.held = true;
    arrived(each);
    ++held_;
    pending_ -= each.pending ? 1 : 0;
    each.pending = false;
    ++taken;
  }
  const auto missing = std::find_if(in_flight_.begin(), in_flight_.end(),
                                    [](const InFlight& each) { return !each.held; });
  drop_oldest(static_cast<std::size_t>(missing - in_flight_.begin()));
  return taken;
}

bool FragmentSender::acknowledge(std::uint16_t fragment, const std::optional<Fack>& fack,
                                 Time now) {
  if (!started_ || single_ || complete_)
    return false;
  if (fack && receiver_lost_its_part(fragment, *fack)) {
    restart();
    return false;
  }
  if (fack)
    learn_from(fragment, *fack, now);
  std::size_t taken = take_cumulative(fragment);
  if (fack) {
    receiver_window_ = fack->window_kilobytes * kKilobyte;
    const std::size_t announced = std::max<std::size_t>(fack->max_fragment, kLeastMaxFragment);
    const bool narrower = announced < max_fragment_;
    max_fragment_ = announced;
    taken += take_selective(fragment, *fack);
    passed_ = std::min(passed_, announced);
    for (InFlight& each : in_flight_)
      if (believed_lost(each, *fack, now))
        mark_lost(each);
    if (narrower && last_ == LastFragment::acknowledged)
      cut_anew();
  }
  if (taken > 0)
    repeats_ = 0;
  congestion_ = std::min(congestion_ + taken, kMostInFlight);
  if (in_flight_.empty()) {
    clock_.stop();
    complete_ = next_offset_ == body_.size();
  } else if (taken > 0) {
    clock_.start(now);
  }
  const std::size_t acknowledged = acknowledged_bytes();
  const bool progress = acknowledged > most_acknowledged_;
  most_acknowledged_ = std::max(acknowledged, most_acknowledged_);
  return progress;
}

std::size_t FragmentSender::acknowledged_bytes() const {
  std::size_t bytes = next_offset_;
  for (const InFlight& each : in_flight_)
    bytes -= each.held ? 0 : each.length;
  return bytes;
}

void FragmentSender::acknowledge_all() {
  if (!started_)
    return;
  in_flight_.clear();
  flight_bytes_ = held_ = pending_ = 0;
  single_pending_ = false;
  next_offset_ = body_.size();
  first_sent_ = true;
  complete_ = true;
  clock_.stop();
}

void FragmentSender::resend_unacknowledged() {
  repeated_ = true;
  if (complete_)
    restart();
  else if (single_)
    single_pending_ = true;
  for (InFlight& each : in_flight_)
    mark_lost(each);
}

void FragmentSender::resend_oldest() {
  repeated_ = true;
  if (complete_)
    restart();
  else if (single_)
    single_pending_ = true;
  else if (!in_flight_.empty()) {
    mark_lost(in_flight_.front());
    probe_ = true;
  }
}

std::optional<Time> FragmentSender::wakeup() const {
  return in_flight_.empty() ? std::nullopt : clock_.next();
}

bool FragmentSender::on_time(Time now) {
  if (in_flight_.empty() || !clock_.due(now))
    return false;
  clock_.back_off(now);
  ++repeats_;
  resend_oldest();
  return true;
}

// --- Joiner

void FragmentJoiner::start(const Limits& limits, std::vector<std::byte> buffer) {
  *this = FragmentJoiner();
  limits_ = limits;
  body_ = std::move(buffer);
  body_.clear();
}

FragmentJoiner::Result FragmentJoiner::accept(const Packet& packet, Time now) {
  const Result result = take(packet, now);
  if (result == Result::duplicate)
    ++duplicates_;
  return result;
}

FragmentJoiner::Result FragmentJoiner::take(const Packet& packet, Time now) {
  fack_due_ = false;
  if (failed_)
    return Result::too_long;
  if ((packet.header.flags1 & kFlagFragment) == 0)
    return complete_ ? Result::duplicate : take_whole(packet.body);
  serial_ = packet.header.serial;
  fack_due_ = (packet.header.flags1 & kFlagNoFack) == 0;
  if (is_large(packet.body.size())) {
    if (narrowed_)
      return Result::dropped;
    limits_.large_came = true;
  }
  if (complete_)
    return Result::duplicate;
  const Result result = accept_fragment(packet);
  if (result == Result::too_long) {
    failed_ = true;
    fack_due_ = false;
  }
  if (result == Result::accepted) {
    clock_.start(now);
    repeats_ = 0;
  } else if (result == Result::complete || result == Result::too_long) {
    clock_.stop();
  }
  return result;
}

FragmentJoiner::Result FragmentJoiner::take_whole(std::span<const std::byte> body) {
  clock_.stop();
  held_.clear();
  held_bytes_ = 0;
  if (body.size() > limits_.body) {
    failed_ = true;
    return Result::too_long;
  }
  body_.assign(body.begin(), body.end());
  started_ = complete_ = true;
  return Result::complete;
}

FragmentJoiner::Result FragmentJoiner::accept_fragment(const Packet& packet) {
  const std::int32_t distance = ahead(packet.header.fragment, static_cast<std::uint16_t>(next_));
  if (distance < 0)
    return next_ >= static_cast<std::uint32_t>(-distance) ? Result::duplicate : Result::dropped;
  const std::uint32_t number = next_ + static_cast<std::uint32_t>(distance);
  if (distance > 0)
    fack_due_ = true;
  if (held_.contains(number))
    return Result::duplicate;
  const bool is_last = (packet.header.flags1 & kFlagLastFragment) != 0 && number + 1 > highest_;
  const std::size_t size = packet.body.size();
  const bool beyond_last = last_ && number > *last_;
  const bool beyond_window =
      distance > 0 &&
      (distance > kMostAhead || held_bytes_ + size > limits_.window_kilobytes * kKilobyte);
  if (beyond_last || beyond_window || (size == 0 && !is_last))
    return Result::dropped;
  if (size > limits_.body || body_.size() + held_bytes_ > limits_.body - size)
    return Result::too_long;

  started_ = true;
  highest_ = std::max(highest_, number + 1);
  if (is_last)
    last_ = number;
  if (distance > 0) {
    held_.emplace(number, std::vector<std::byte>(packet.body.begin(), packet.body.end()));
    held_bytes_ += size;
    return Result::accepted;
  }
  body_.insert(body_.end(), packet.body.begin(), packet.body.end());
  ++next_;
  append_held();
  complete_ = last_ && next_ == *last_ + 1;
  return complete_ ? Result::complete : Result::accepted;
}

void FragmentJoiner::append_held() {
  while (!held_.empty() && held_.begin()->first == next_) {
    const std::vector<std::byte>& body = held_.begin()->second;
    body_.insert(body_.end(), body.begin(), body.end());
    held_bytes_ -= body.size();
    held_.erase(held_.begin());
    ++next_;
  }
}

Fack FragmentJoiner::fack() const {
  Fack fack;
  fack.window_kilobytes = limits_.window_kilobytes;
  fack.max_tsdu = limits_.max_tsdu;
  fack.max_fragment = limits_.max_fragment;
  fack.serial = serial_;
  if (!held_.empty())
    fack.selective.resize((held_.rbegin()->first - next_) / 32 + 1);
  for (const auto& [number, body] : held_)
    fack.selective[(number - next_) / 32] |= std::uint32_t{1} << (number - next_) % 32;
  return fack;
}

bool FragmentJoiner::on_time(Time now) {
  if (!clock_.due(now))
    return false;
  clock_.back_off(now);
  // A sender that has seen a large one pass may have sent all, and cannot cut it anew.
  if (++repeats_ > kRepeatsOfLarge && !limits_.large_came && held_.empty() &&
      limits_.max_fragment > kLeastMaxFragment) {
    limits_.max_fragment = kLeastMaxFragment;
    narrowed_ = true;
  }
  return true;
}

std::vector<std::byte> FragmentJoiner::take_body() {
  assert(complete_);
  std::vector<std::byte> body = std::move(body_);
  start(Limits(limits_));
  return body;
}

}  // namespace rpc
