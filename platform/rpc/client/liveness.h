// SPDX-License-Identifier: Apache-2.0
// Tells servers whose contexts this process holds that it lives, while it makes no calls: a server
// runs a context down when its client is silent for long (C706 appendix P, client liveness). A
// thread of its own does so, which the first context starts. Any thread may call these functions.

#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/rpc/client/activity.h"
#include "platform/rpc/client/invoke.h"
#include "platform/rpc/wire/time_constants.h"

namespace rpc::liveness {

// One more context of the server is held.
void hold(const CallTarget& server);
// A context of the server is used in a call that begins now.
void touch(const CallTarget& server);
// One context less is held.
void release(const CallTarget& server);

// The whole packet, of an activity of its own.
std::vector<std::byte> still_here(const ClientIdentity& client, RandomSource& random);

// --- What the functions above stand on.

// A server's network address and endpoint.
using Name = std::pair<std::string, std::string>;

// Sends the packet to the server, once.
void tell(const Name& server);

// Which servers' contexts are held, and when each was last called or told: `tell` is called, by a
// thread of the watch, whenever that was an interval ago.
class Watch {
 public:
  Watch(Duration interval, void (*tell)(const Name&)) : interval_(interval), tell_(tell) {}

  void hold(const Name& server);
  void touch(const Name& server);
  void release(const Name& server);

 private:
  struct Held {
    unsigned contexts = 0;
    Time told;
  };

  void run(const std::stop_token& stop);

  const Duration interval_;
  void (*const tell_)(const Name&);
  std::mutex mutex_;
  std::condition_variable_any changed_;
  std::map<Name, Held> servers_;
  std::jthread thread_;  // last: it ends before what it uses
};

}  // namespace rpc::liveness
