// SPDX-License-Identifier: Apache-2.0
// Lines of comma-separated values: what is read can be written, and reads the same again.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/fuzz/require.h"
#include "tools/ztsys/csv.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view line(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> cells;
  if (!ztsys::SplitCsv(line, cells))
    return 0;
  std::string written;
  for (const std::string& cell : cells) {
    if (&cell != &cells.front())
      written += ',';
    ztsys::AppendCsv(written, {cell});
  }
  std::vector<std::string> again;
  fuzz::require(ztsys::SplitCsv(written, again) && again == cells);
  return 0;
}
