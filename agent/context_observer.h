// SPDX-License-Identifier: Apache-2.0
// Who is told of the contexts that clients hold on a server.

#pragma once

#include <functional>
#include <string_view>

#include "platform/rpc/names/uuid.h"

namespace agent {

// `object` is "view", "filter" or "inquiry"; `change` is "made", "destroyed" or "run down".
using ContextObserver =
    std::function<void(std::string_view object, const uuid_t& id, std::string_view change)>;

}  // namespace agent
