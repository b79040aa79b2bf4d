// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target over every file of the corpus folders named on the command line, for builds
// without libFuzzer. A folder that is missing or empty is an error: a target without examples
// would pass without having run.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  std::size_t executed = 0;
  for (int i = 1; i < argc; ++i) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(argv[i], error)) {
      if (!entry.is_regular_file())
        continue;
      std::ifstream file(entry.path(), std::ios::binary);
      const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
      ++executed;
    }
  }
  std::printf("%zu inputs\n", executed);
  return executed == 0 ? 1 : 0;
}
