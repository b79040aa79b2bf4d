// SPDX-License-Identifier: Apache-2.0
#include "agent/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string_view>

namespace agent {

namespace {

bool write_to(const std::string& path, std::string_view text) {
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (descriptor < 0)
    return false;
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR)
      continue;
    if (written <= 0) {
      const int error = errno;
      ::close(descriptor);
      errno = error;
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return ::close(descriptor) == 0;
}

}  // namespace

bool write_whole(const std::string& path, const std::string& text) {
  struct stat there {};
  if (::stat(path.c_str(), &there) == 0 && !S_ISREG(there.st_mode))
    return write_to(path, text);
  const std::string fresh = path + ".new";
  if (write_to(fresh, text) && std::rename(fresh.c_str(), path.c_str()) == 0)
    return true;
  const int error = errno;
  ::unlink(fresh.c_str());
  errno = error;
  return false;
}

}  // namespace agent
