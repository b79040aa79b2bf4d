// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

namespace sys {

bool KeepStandardStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (fcntl(stream, F_GETFD) >= 0)
      continue;
    // The lowest free number is this one. Read only, so that writes to it are errors.
    if (open("/dev/null", stream == STDERR_FILENO ? O_WRONLY : O_RDONLY) != stream)
      return false;
  }
  return true;
}

}  // namespace sys
