// SPDX-License-Identifier: Apache-2.0
// Interface definitions from anywhere, through all four steps of zidl.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "tools/zidl/generator.h"
#include "tools/zidl/lexer.h"
#include "tools/zidl/model.h"
#include "tools/zidl/parser.h"

namespace {

class Counter : public zidl::Reporter {
 public:
  void error(zidl::Location, const std::string&) override { ++count; }
  unsigned count = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view source(reinterpret_cast<const char*>(data), size);
  Counter errors;
  const auto tree = zidl::parse(zidl::tokenize(source, errors), errors);
  const auto model = tree ? zidl::check(*tree, errors) : nullptr;
  if (model == nullptr && errors.count == 0)
    std::abort();
  if (model != nullptr && errors.count == 0) {
    const bool complete = !zidl::generate_header(*model, {"p_"}).empty() &&
                          !zidl::generate_client(*model, {"p_"}).empty() &&
                          !zidl::generate_server_header(*model).empty() &&
                          !zidl::generate_server(*model).empty();
    if (!complete)
      std::abort();
  }
  return 0;
}
