// SPDX-License-Identifier: Apache-2.0
// What a server core remembers of one client activity. For the core's own files only.

#pragma once

#include <optional>
#include <span>
#include <vector>

#include "platform/rpc/server/server_core.h"
#include "platform/rpc/wire/fragments.h"
#include "platform/rpc/wire/pdu.h"
#include "platform/rpc/wire/time_constants.h"

namespace rpc::server {

enum class CallState {
  none,          // no call yet
  receiving,     // some of the request is here
  calling_back,  // the request is here; the client is asked who it is
  running,       // handed out
  abandoned,     // handed out, and nothing is to be said about it
  answering,     // the answer is out and not acknowledged
  finished,      // acknowledged or given up; a repeat of the request is a stale duplicate
  unremembered,  // answered without keeping anything; a repeat of the request runs again
};

struct ServerCore::Activity {
  uuid_t id{};
  std::uint16_t hint = 0;
  SocketAddress peer;  // where its last packet came from
  bool known = false;  // a call-back has confirmed it, or none is needed
  bool has_run = false;
  Time last_heard{};
  std::optional<Time> due;  // its place in the core's list

  // The call, current or last.
  CallState state = CallState::none;
  PacketHeader request;
  Interface* interface = nullptr;
  const OperationSpec* operation = nullptr;
  CallNumber number = 0;
  std::size_t bytes = 0;  // bodies held, counted in the core's sum
  FragmentJoiner joiner;
  std::vector<std::byte> in_parameters;

  // The call-back.
  uuid_t call_back_id{};
  CallBack call_back = CallBack::none;
  RepeatClock call_back_clock;
  std::optional<Time> call_back_deadline;

  // The answer.
  PacketType answer_type = PacketType::response;
  std::vector<std::byte> answer;
  FragmentSender sender;
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
};

}  // namespace rpc::server
