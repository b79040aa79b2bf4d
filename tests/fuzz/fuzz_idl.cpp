// SPDX-License-Identifier: Apache-2.0
// Interface definitions from anywhere, through all four steps of zidl.

#include <cstdint>
#include <sstream>
#include <string_view>

#include "tests/fuzz/require.h"
#include "tools/zidl/generator.h"
#include "tools/zidl/lexer.h"
#include "tools/zidl/model.h"
#include "tools/zidl/parser.h"
#include "tools/zidl/reporter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view source(reinterpret_cast<const char*>(data), size);
  zidl::SourceReporter errors("f", source);
  const auto tree = zidl::parse(zidl::tokenize(source, errors), errors);
  const auto model = tree ? zidl::check(*tree, errors) : nullptr;
  std::ostringstream report;
  const std::size_t count = errors.print(report);
  fuzz::require(fuzz::is_printable(report.str(), "\t\n"));
  fuzz::require(model != nullptr || count != 0);
  if (count == 0) {
    const bool complete = !zidl::generate_header(*model, {"p_"}).empty() &&
                          !zidl::generate_client(*model, {"p_"}).empty() &&
                          !zidl::generate_server_header(*model).empty() &&
                          !zidl::generate_server(*model).empty();
    fuzz::require(complete);
  }
  return 0;
}
