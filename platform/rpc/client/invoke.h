// SPDX-License-Identifier: Apache-2.0
// One remote call over UDP, from the bytes of its in-parameters to the bytes of its out-parameters:
// the door between binding handles and stubs above and the call machine and its transport below.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/rpc/names/uuid.h"
#include "platform/rpc/stub/interface.h"
#include "platform/rpc/wire/data_representation.h"

struct RpcCallOutcome;

namespace rpc {

// Where a call goes. Values of a binding handle at the time of the call.
struct CallTarget {
  std::string protocol_sequence;  // only "ncadg_ip_udp" can be called
  std::string network_address;    // dotted address or host name; empty: this host
  std::string endpoint;           // UDP port in decimal; empty: status 1753
  uuid_t object{};
  unsigned timeout_level = 5;  // 0 to 10
  // The call is given up after this, whatever the server says meanwhile; nothing: never.
  std::optional<std::chrono::milliseconds> longest = std::nullopt;
};

struct Reply {
  std::vector<std::byte> body;
  DataRepresentation representation;
  // Where the body's memory goes at the end, to serve the next call; null: it is freed. A long body
  // would otherwise pay for new pages each time.
  void (*take_back)(std::vector<std::byte>&& body) = nullptr;

  ~Reply() {
    if (take_back != nullptr)
      take_back(std::move(body));
  }
};

// Runs the call to its end. `reply_limit` is the largest body that the out-parameters can legally
// take; a longer reply ends the call with 1783 while it arrives. Throws RpcException.
Reply invoke(const CallTarget& target, const OperationSpec& operation,
             std::span<const std::byte> request, std::size_t reply_limit);

// What RpcLastCallOutcome gives to this job or thread from now on; set at the end of every call.
void set_last_call_outcome(const RpcCallOutcome& outcome);

// See RpcMgmtLimitWaits.
std::optional<std::chrono::milliseconds> limit_waits(
    std::optional<std::chrono::milliseconds> longest);

// Acknowledges the last reply of every server that the calling job or thread called and that still
// keeps it for us. Called when a binding is released; safe to call at any time, and done by itself
// when it ends. The activities go on, so that no server asks a second time who we are. All jobs of
// the thread: before a pause of the whole thread.
void release_activities(bool of_all_jobs = false);

}  // namespace rpc
