// SPDX-License-Identifier: Apache-2.0
// Tells servers whose contexts this process holds that it lives, while it makes no calls: a server
// runs a context down when its client is silent for long (C706 appendix P, client liveness). A
// thread of its own does so, which the first context starts. Any thread may call these functions.

#pragma once

#include <vector>

#include "platform/rpc/client/activity.h"
#include "platform/rpc/client/invoke.h"

namespace rpc::liveness {

// One more context of the server is held.
void hold(const CallTarget& server);
// A context of the server is used in a call that begins now.
void touch(const CallTarget& server);
// One context less is held.
void release(const CallTarget& server);

// The whole packet, of an activity of its own.
std::vector<std::byte> still_here(const ClientIdentity& client, RandomSource& random);

}  // namespace rpc::liveness
