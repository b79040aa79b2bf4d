// SPDX-License-Identifier: Apache-2.0
// Cutting a body into fragments and joining fragments to a body (C706 12.5.3.4), for both ends: a
// client sends requests and joins responses, a server the other way round. Knows no socket and no
// clock: the time is a parameter, what to send and when to wake are results.
//
// The sender's window. At most `congestion` fragments and at most the receiver's window of bytes
// are unacknowledged at any time. The sender starts with a few fragments, grows by what each
// acknowledgement takes off, and halves when a fragment is known or believed to be lost, once for
// each window. A fragment is known to be lost when an acknowledgement was caused by a packet sent
// after it and does not hold it: serial numbers tell the order of sending, also of repeats. What no
// acknowledgement tells is mended by the clock: the oldest fragment again after 250 ms, doubling.
//
// Large fragments. Every receiver takes 1,464 bytes and every path carries them whole; larger ones
// go out when the receiver has announced them, and may yet vanish, where the fragments of IP are
// filtered or a link on the way is narrower than the ends believe. So they are tried: as long as
// none has been acknowledged, the last fragment of the body is none of them and stays behind, so
// that no receiver completes a body that is given up. When two repeats have brought nothing, the
// client sends its request as another call, and a server cuts the rest of its reply anew, once the
// client announces less. A receiver that announces less drops what is larger: it may be of the old
// cut.
//
// The joiner's bound. It takes memory for what arrived and never more than the body's limit plus
// one window; numbers from the wire are only compared.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "platform/rpc/wire/pdu.h"
#include "platform/rpc/wire/time_constants.h"

namespace rpc {

// A wait that doubles from one repeat to the next.
class RepeatClock {
 public:
  // The first wait begins now.
  void start(Time now, Duration first = kFirstRepeat);
  // The wait is over: the next one, twice as long, begins.
  void back_off(Time now);
  void stop() { next_.reset(); }
  std::optional<Time> next() const { return next_; }
  bool due(Time now) const { return next_ && *next_ <= now; }

 private:
  Duration wait_ = kFirstRepeat;
  std::optional<Time> next_;
};

// Repeats that a fragment of more than 1,464 bytes, or the fack that asks for it, gets before it is
// taken to vanish.
inline constexpr unsigned kRepeatsOfLarge = 2;

// Who acknowledges the last fragment of a body: for a request its answer, so that the sender need
// not ask; for a response nobody unless the sender asks.
enum class LastFragment { answered, acknowledged };

class FragmentSender {
 public:
  // One packet to send: the caller adds the call's header fields.
  struct Outgoing {
    std::uint16_t fragment = 0;
    std::uint16_t serial = 0;
    std::uint8_t flags = 0;  // fragment, last, no fack
    std::span<const std::byte> body;
  };

  FragmentSender() = default;

  // `body` must live until the next start. `path_limit` is the largest datagram (header included)
  // that the path takes unfragmented; fragments are of 1,464 bytes or less until the receiver
  // announces that it takes larger ones. `passed`: the passed() of earlier bodies to it.
  void start(std::span<const std::byte> body, LastFragment last,
             std::size_t path_limit = kLeastMaxFragment, std::size_t passed = 0);
  // In one packet, if one as large has passed. To be called after start, by an owner that cuts the
  // body anew when that packet vanishes.
  void send_whole();

  // True when the body travels in one packet, without fragment flags. Such a packet is not
  // acknowledged by facks and has no clock of its own here: its owner repeats it.
  bool single() const { return single_; }

  // The next packet that may go out now, or nothing. Takes `serial` for it and counts it up.
  std::optional<Outgoing> next(Time now, std::uint16_t& serial);

  // A fack, or a nocall with or without a fack body: `fragment` from the packet's header. Nothing
  // as `fack` stands for an empty body. True when something was acknowledged that was never before:
  // a receiver that loses its part and takes it again makes no progress.
  bool acknowledge(std::uint16_t fragment, const std::optional<Fack>& fack, Time now);
  // The receiver has everything.
  void acknowledge_all();
  // The receiver has less than it should: everything that was sent and not acknowledged goes again.
  void resend_unacknowledged();
  // The oldest unacknowledged fragment goes again (the whole body when it is single); the window
  // halves.
  void resend_oldest();
  // Forgets all acknowledgements: the receiver lost what it had.
  void restart();

  bool all_sent() const { return started_ && next_offset_ == body_.size() && first_sent_; }
  bool complete() const { return complete_; }
  // Whether anything was to be sent twice since the start.
  bool repeated() const { return repeated_; }
  // The largest fragment that was acknowledged, of this body or an earlier one, header included;
  // never more than the receiver takes.
  std::size_t passed() const { return passed_; }
  // The oldest unacknowledged fragment is larger than 1,464 bytes.
  bool large_missing() const;
  // Two repeats of it brought nothing, and the body's last fragment was never sent.
  bool large_vanish() const { return repeats_ > kRepeatsOfLarge && large_missing() && !all_sent(); }

  // Fragments sent and not yet acknowledged in unbroken order.
  std::size_t unacknowledged() const { return in_flight_.size(); }

  // When the oldest unacknowledged fragment is to go again. Nothing while nothing is in flight.
  std::optional<Time> wakeup() const;
  // Does what is due: marks the oldest fragment for sending when its time has come. True when so.
  bool on_time(Time now);

 private:
  struct InFlight {
    std::uint16_t number;
    std::uint16_t serial;
    std::size_t offset;
    std::size_t length;
    bool last;
    bool held;     // selectively acknowledged
    bool pending;  // to be sent again
    bool again;    // was sent more than once
    Time sent;     // last
  };

  std::size_t fragment_body_size() const;
  std::size_t small_body_size() const;
  void cut_anew();
  std::size_t outstanding() const;  // sent and neither acknowledged nor believed lost
  bool congested() const;
  bool window_open() const;
  bool asks_for_fack(const InFlight& fragment);
  Outgoing transmit(InFlight& fragment, bool ask, std::uint16_t& serial, Time now);
  void mark_lost(InFlight& fragment);
  void learn_from(std::uint16_t fragment, const Fack& fack, Time now);
  bool believed_lost(const InFlight& fragment, const Fack& fack, Time now) const;
  std::size_t acknowledged_bytes() const;
  void drop_oldest(std::size_t count);
  bool receiver_lost_its_part(std::uint16_t fragment, const Fack& fack) const;
  void arrived(const InFlight& fragment);
  bool large_pass() const { return passed_ > kLeastMaxFragment; }
  std::size_t take_cumulative(std::uint16_t fragment);
  std::size_t take_selective(std::uint16_t fragment, const Fack& fack);

  std::span<const std::byte> body_;
  LastFragment last_ = LastFragment::answered;
  std::size_t path_limit_ = kLeastMaxFragment;
  std::size_t max_fragment_ = kLeastMaxFragment;
  bool started_ = false;
  bool single_ = false;
  bool first_sent_ = false;
  bool single_pending_ = false;
  bool complete_ = false;
  bool repeated_ = false;

  std::vector<std::size_t> ends_;    // where each fragment so far ends in the body
  std::vector<InFlight> in_flight_;  // by number, unbroken
  std::size_t flight_bytes_ = 0;     // headers included
  std::size_t held_ = 0;
  std::size_t pending_ = 0;
  std::size_t next_offset_ = 0;
  std::size_t most_acknowledged_ = 0;  // bytes of bodies
  std::uint16_t next_number_ = 0;

  std::size_t receiver_window_ = 0;  // bytes; 0 until announced
  std::size_t congestion_ = 0;       // fragments
  std::size_t unasked_ = 0;          // fragments since one that asked for a fack
  std::uint16_t recovery_ = 0;       // losses below this number belong to a window already halved
  std::uint16_t last_serial_ = 0;
  std::uint16_t advanced_at_ = 0;  // last_serial_ when the unbroken order last grew
  Duration round_trip_{};          // smoothed
  std::size_t passed_ = 0;
  unsigned repeats_ = 0;     // by the clock, since something was acknowledged
  bool reordering_ = false;  // a repeat turned out to be needless
  bool probe_ = false;       // the oldest goes again though the window is full
  RepeatClock clock_;
};

class FragmentJoiner {
 public:
  enum class Result {
    dropped,    // beyond the window, beyond the last fragment, or senseless
    duplicate,  // was here already
    accepted,
    complete,  // this packet completed the body
    too_long,  // the body exceeds its limit; nothing more is taken
  };

  struct Limits {
    std::size_t body = 0;                 // the largest legal body
    std::uint16_t window_kilobytes = 64;  // what the transport's buffer surely holds
    std::uint32_t max_tsdu = 65'507;      // the largest UDP datagram over IPv4
    std::uint32_t max_fragment = kLeastMaxFragment;
    bool large_came = false;  // with earlier bodies on this path
  };

  FragmentJoiner() = default;
  explicit FragmentJoiner(const Limits& limits) { start(limits); }
  // `buffer` lends its memory to the body; its contents mean nothing.
  void start(const Limits& limits, std::vector<std::byte> buffer = {});

  // A packet of the body: a fragment or a whole body. `packet.body` is copied.
  Result accept(const Packet& packet, Time now);

  // Whether the packet that was just accepted must be answered with a fack now: the sender asked,
  // or it came out of order. A body of one packet needs none.
  bool fack_due() const { return fack_due_; }
  // The number for the fack's header: the last fragment in unbroken order, 0xFFFF before fragment
  // 0.
  std::uint16_t fack_fragment() const { return static_cast<std::uint16_t>(next_ - 1); }
  // The fack's body as of now.
  Fack fack() const;

  // Fragments were seen and the body is not complete.
  bool receiving() const { return started_ && !complete_; }
  bool complete() const { return complete_; }
  std::size_t duplicates() const { return duplicates_; }

  // When the last fack is to be repeated because nothing came since. Nothing while nothing is
  // missing.
  std::optional<Time> wakeup() const { return clock_.next(); }
  // True when a fack is to be sent now.
  bool on_time(Time now);
  // No larger fragment ever came, and two repeats brought nothing: it announces 1,464 bytes, and
  // larger fragments are dropped.
  bool narrowed() const { return narrowed_; }
  // A fragment of more than 1,464 bytes came, of this body or an earlier one.
  bool large_came() const { return limits_.large_came; }

  // What was joined so far, in unbroken order.
  std::span<const std::byte> body() const { return body_; }
  // The joined body; the joiner is then as after start. Only when complete.
  std::vector<std::byte> take_body();
  // The memory of an unfinished body, for another start.
  std::vector<std::byte> take_buffer() { return std::exchange(body_, {}); }

 private:
  Result take(const Packet& packet, Time now);
  Result accept_fragment(const Packet& packet);
  Result take_whole(std::span<const std::byte> body);
  void append_held();

  Limits limits_;
  std::vector<std::byte> body_;
  std::map<std::uint32_t, std::vector<std::byte>> held_;  // ahead of the unbroken order
  std::size_t held_bytes_ = 0;
  std::uint32_t next_ = 0;     // the first fragment that is missing
  std::uint32_t highest_ = 0;  // one beyond the highest fragment that is here
  std::optional<std::uint32_t> last_;
  std::uint16_t serial_ = 0;
  std::size_t duplicates_ = 0;
  bool started_ = false;
  bool complete_ = false;
  bool failed_ = false;
  bool fack_due_ = false;
  unsigned repeats_ = 0;  // by the clock, since something new came
  bool narrowed_ = false;
  RepeatClock clock_;
};

}  // namespace rpc
