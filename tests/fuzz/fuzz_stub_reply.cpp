// SPDX-License-Identifier: Apache-2.0
// Replies from anywhere, through every generated client stub: the first byte chooses the operation,
// the second the data representation, the rest is the body.

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "epm.h"
#include "platform/rpc/exception.h"
#include "platform/rpc/stub/stub.h"
#include "tests/idl/product_calls.h"
#include "tests/idl/stub_runtime.h"

namespace {

void look_up_endpoints(const stub_test::Binding& binding) {
  RPC_CONTEXT_HANDLE handle = nullptr;
  std::vector<ept_entry_t> entries(64);
  std::uint32_t number = 0;
  error_status_t status = 0;
  ept_lookup(binding, 0, nullptr, nullptr, 1, &handle, 64, &number, entries.data(), &status);
  if (handle != nullptr)
    rpc::store_context(&handle, {}, {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const stub_test::Product product;
  static const stub_test::Binding binding;
  if (size < 2)
    return 0;
  const auto* bytes = reinterpret_cast<const std::byte*>(data);
  stub_test::Runtime runtime([&](const stub_test::Call& call) -> rpc::Reply {
    // The transport lets no longer body through.
    const std::size_t length = std::min(size - 2, call.reply_limit);
    return {{bytes + 2, bytes + 2 + length},
            {.little_endian = (data[1] & 1) == 0, .ebcdic = (data[1] & 2) != 0}};
  });
  const std::size_t chosen = data[0] % (product.calls().size() + 1);
  try {
    if (chosen < product.calls().size())
      product.calls()[chosen].run();
    else
      look_up_endpoints(binding);
  } catch (const rpc::RpcException& failure) {
    if (failure.status() != 1783)
      std::abort();
  }
  return 0;
}
