// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/handed_out_text.h"

#include <cstdlib>
#include <cstring>

namespace rpc {

RPC_STATUS hand_out_text(std::string_view text, char** out) {
  *out = static_cast<char*>(std::malloc(text.size() + 1));
  if (*out == nullptr)
    return RPC_S_OUT_OF_MEMORY;
  std::memcpy(*out, text.data(), text.size());
  (*out)[text.size()] = '\0';
  return RPC_S_OK;
}

}  // namespace rpc

RPC_STATUS RpcStringFreeA(char** text) {
  if (text == nullptr)
    return RPC_S_INVALID_ARG;
  std::free(*text);
  *text = nullptr;
  return RPC_S_OK;
}
