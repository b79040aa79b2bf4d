// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/standard_streams.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>

namespace sys {
namespace {

void (*before_slow_output)() = nullptr;

// What a ready pipe takes at once is PIPE_BUF at least, so that no write sleeps unforeseen.
ssize_t write_in_parts(void* descriptor, const char* bytes, std::size_t size) {
  const auto number = static_cast<int>(reinterpret_cast<std::intptr_t>(descriptor));
  std::size_t done = 0;
  while (done < size) {
    pollfd ready{number, POLLOUT, 0};
    if (poll(&ready, 1, 0) == 0)
      before_slow_output();
    const ssize_t written =
        write(number, bytes + done, std::min<std::size_t>(size - done, PIPE_BUF));
    if (written <= 0)
      break;
    done += static_cast<std::size_t>(written);
  }
  return static_cast<ssize_t>(done);
}

void watch(std::FILE*& stream, int descriptor, int buffering) {
  struct stat status {};
  const bool may_wait =
      fstat(descriptor, &status) == 0 &&
      (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode) || isatty(descriptor) != 0);
  if (!may_wait)
    return;
  std::FILE* const watched =
      fopencookie(reinterpret_cast<void*>(static_cast<std::intptr_t>(descriptor)), "w",
                  {nullptr, write_in_parts, nullptr, nullptr});
  if (watched == nullptr)
    return;
  std::setvbuf(watched, nullptr, buffering, BUFSIZ);
  stream = watched;
}

}  // namespace

void BeforeSlowOutput(void (*before)()) {
  before_slow_output = before;
  watch(stdout, STDOUT_FILENO, isatty(STDOUT_FILENO) != 0 ? _IOLBF : _IOFBF);
  watch(stderr, STDERR_FILENO, _IONBF);
}

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
