// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/server/exported_interface.h"

namespace rpc::server {

void CallRecord::argument(std::string_view name, const uuid_t& uuid) {
  arguments.push_back({name, uuid_to_text(uuid)});
}

}  // namespace rpc::server
