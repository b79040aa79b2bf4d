// SPDX-License-Identifier: Apache-2.0
// What a server remembers of its clients' activities, and the bounds of that memory: how many there
// are, how many bytes of bodies they hold, how long a silent one is kept. The table knows when each
// of them wants to be looked at; what is done then is the core's.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/names/uuid.h"
#include "platform/rpc/server/exported_interface.h"
#include "platform/rpc/stub/interface.h"
#include "platform/rpc/wire/fragments.h"
#include "platform/rpc/wire/pdu.h"
#include "platform/rpc/wire/time_constants.h"

namespace rpc::server {

// What a server asks of a client whose activity it does not know, before it runs an operation that
// is not idempotent (the conversation interface).
enum class CallBack { none, who_are_you, who_are_you2 };

// The core's own number of a call; never used again.
using CallNumber = std::uint64_t;

enum class CallState {
  none,          // no call yet
  receiving,     // some of the request is here
  calling_back,  // the request is here, or its outcome; the client is asked who it is
  running,       // handed out
  abandoned,     // handed out, and nothing is to be said about it
  denied,        // handed out, and the client is told that it is not here
  answering,     // the answer is out and not acknowledged
  finished,      // acknowledged or given up; a repeat of the request is a stale duplicate
  unremembered,  // answered without keeping anything; a repeat of the request runs again
};

struct Activity {
  uuid_t id{};
  std::uint16_t hint = 0;
  SocketAddress peer;  // where its last packet came from
  bool known = false;  // a call-back has confirmed it, or none is needed
  uuid_t client{};     // the process that it belongs to; nil when it has not said so
  bool has_run = false;
  Time last_heard{};
  std::optional<Time> due;  // its place in the table's list

  // The call, current or last.
  CallState state = CallState::none;
  PacketHeader request;
  Interface* interface = nullptr;
  const OperationSpec* operation = nullptr;
  CallNumber number = 0;
  std::size_t bytes = 0;  // bodies held, counted in the table's sum
  FragmentJoiner joiner;
  std::vector<std::byte> in_parameters;

  // The call-back.
  uuid_t call_back_id{};
  CallBack call_back = CallBack::none;
  std::optional<Outcome> held_back;  // of the call, until the client has said who it is
  RepeatClock call_back_clock;
  std::optional<Time> call_back_deadline;

  // The answer.
  PacketType answer_type = PacketType::response;
  std::vector<std::byte> answer;
  PacketHeader answer_header;
  FragmentSender sender;
  bool sending = false;      // on the table's list
  std::size_t passed = 0;    // the largest fragment of an answer that has arrived
  unsigned repeats = 0;      // of a large answer in one packet
  RepeatClock answer_clock;  // of an answer in one packet
  // The part of a request is kept so long; an answer is repeated so long, and kept quietly after.
  std::optional<Time> keep_until;
  Time last_answer_sent{};

  // Nothing is to be done until the client is heard: it may be forgotten when its time has come.
  bool idle() const {
    return state == CallState::none || state == CallState::finished ||
           state == CallState::unremembered || state == CallState::abandoned ||
           (state == CallState::answering && !keep_until);
  }
  bool idempotent() const { return operation != nullptr && operation->idempotent; }
  bool maybe() const { return (request.flags1 & kFlagMaybe) != 0; }
  // Those that are asked many at once are not told that they asked in vain.
  bool wants_rejects() const { return (request.flags1 & (kFlagMaybe | kFlagBroadcast)) == 0; }
  const uuid_t& owner() const { return client == uuid_t{} ? id : client; }
  // Nobody has vouched for it and nothing was run for it: a flood may invent such.
  bool unproven() const {
    return !known && (state == CallState::receiving || state == CallState::calling_back ||
                      (state == CallState::answering && answer_type == PacketType::reject));
  }
};

class ActivityTable {
 public:
  struct Bounds {
    std::size_t activities = 0;
    std::size_t bytes = 0;
    std::chrono::seconds silence{0};
  };

  explicit ActivityTable(const Bounds& bounds) : bounds_(bounds) {}

  // Null when it is not there.
  Activity* find(const uuid_t& id) const;
  Activity* of_call_back(const uuid_t& id) const;
  Activity* of_call(CallNumber number) const;

  // A new one, or null when there is no room: neither for it nor, after those that can go went.
  Activity* make(const uuid_t& id, Time now);
  // Whether `bytes` more of bodies fit, after those that can go without `keep` went.
  bool make_room(std::size_t bytes, const Activity& keep);
  void hold(Activity& activity, std::size_t bytes);
  void release_bytes(Activity& activity);

  // The names under which the running call and the open question are found.
  void begin_call(Activity& activity);
  void end_call(Activity& activity);
  void begin_call_back(Activity& activity, const uuid_t& id);
  void end_call_back(Activity& activity);

  // Those of whose answers packets may go out now, in that order. Null when there is none.
  void begin_sending(Activity& activity);
  void end_sending(Activity& activity);
  Activity* sending() const { return sending_.empty() ? nullptr : sending_.front(); }

  // Asks that the activity be looked at at the earliest of its clocks.
  void schedule(Activity& activity);
  // When next_due is to be called at the latest.
  std::optional<Time> wakeup() const;
  // A client process says that it lives: none of its activities is silent.
  void hear_from(const uuid_t& client, Time now);
  // An activity whose time has come, taken off the list; null when there is none. Those that were
  // silent for too long are forgotten on the way.
  Activity* next_due(Time now);

  std::size_t size() const { return activities_.size(); }
  std::size_t bytes_held() const { return bytes_held_; }
  // The clients of those that were forgotten since the last call of this, after they had run a
  // call; one with another activity left is not gone.
  std::vector<uuid_t> take_gone() { return std::exchange(gone_, {}); }

 private:
  struct UuidHash {
    std::size_t operator()(const uuid_t& uuid) const noexcept;
  };

  bool make_room(std::size_t activities, std::size_t bytes, const Activity* keep);
  void forget(Activity& activity);
  bool has_other_activity(const Activity& activity) const;

  Bounds bounds_;
  std::unordered_map<uuid_t, std::unique_ptr<Activity>, UuidHash> activities_;
  std::unordered_map<uuid_t, Activity*, UuidHash> call_backs_;
  std::unordered_map<CallNumber, Activity*> calls_;
  std::deque<Activity*> sending_;
  std::set<std::pair<Time, Activity*>> due_;
  std::vector<uuid_t> gone_;
  std::size_t bytes_held_ = 0;
};

}  // namespace rpc::server
