// SPDX-License-Identifier: Apache-2.0
// Texts of string bindings: what is read can be written, and reads the same again.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/rpc/binding.h"
#include "platform/rpc/names/string_binding.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  rpc::Binding binding;
  rpc::binding_from_text(text, &binding);

  rpc::StringBinding parts;
  if (rpc::parse_string_binding(text, &parts) != RPC_S_OK)
    return 0;
  std::string composed;
  rpc::StringBinding again;
  if (rpc::compose_string_binding(parts, &composed) == RPC_S_OK &&
      (rpc::parse_string_binding(composed, &again) != RPC_S_OK || again != parts))
    std::abort();
  return 0;
}
