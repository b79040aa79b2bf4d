// SPDX-License-Identifier: Apache-2.0
// A folder for fuzz targets that read their input from a file, in memory where there is one.

#pragma once

#include <unistd.h>

#include <cstdlib>
#include <string>

#include "tests/fuzz/require.h"

namespace fuzz {

inline std::string scratch_folder() {
  std::string path =
      access("/dev/shm", W_OK) == 0 ? "/dev/shm/zt-fuzz-XXXXXX" : "/tmp/zt-fuzz-XXXXXX";
  require(mkdtemp(path.data()) != nullptr);
  return path;
}

}  // namespace fuzz
