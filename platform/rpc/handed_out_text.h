// SPDX-License-Identifier: Apache-2.0
// Texts that the runtime hands out to its callers, who free them with RpcStringFreeA.

#pragma once

#include <string_view>

#include "platform/rpc/rpc.h"

namespace rpc {

// A terminated copy of `text` in `*out`. 8 when there is no memory; `*out` is then null.
RPC_STATUS hand_out_text(std::string_view text, char** out);

}  // namespace rpc
