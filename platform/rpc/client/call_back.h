// SPDX-License-Identifier: Apache-2.0
// The conversation interface's answers (C706 appendix P): a server that does not know an activity
// asks the client who it is before it runs an operation that must not run twice.

#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/rpc/client/activity.h"
#include "platform/rpc/wire/pdu.h"
#include "platform/rpc/wire/time_constants.h"

namespace rpc {

// What the running call tells about itself.
struct RunningCall {
  uuid_t activity{};
  std::uint32_t sequence = 0;
  std::uint32_t server_boot = 0;  // 0 while unknown
};

struct CallBackAnswer {
  PacketHeader header;  // all but the serial number
  std::vector<std::byte> body;
  bool known = false;  // the call-back named the running call's activity
  // What the server says of itself; 0 unless it is to be believed: the activity is known and has
  // not learned another boot time.
  std::uint32_t server_boot = 0;
};

// The answer to a request packet that came to a client: a response of the conversation interface,
// or a reject of anything else.
CallBackAnswer answer_call_back(const Packet& request, const RunningCall& call,
                                const ClientIdentity& identity);

// Lets a few dozen answers a second through, so that a flood of call-backs costs little.
class CallBackLimiter {
 public:
  bool allow(Time now);

 private:
  Time second_{};
  unsigned answered_ = 0;
};

}  // namespace rpc
