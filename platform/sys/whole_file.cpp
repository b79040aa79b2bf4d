// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "platform/sys/native_path.h"

namespace sys {

namespace {

constexpr std::size_t kBlock = 256 * 1024;
constexpr mode_t kPermissions = 0777;

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0)
      close(number_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return number_; }

 private:
  int number_;
};

bool CopyBytes(int from, int to) {
  std::vector<char> block(kBlock);
  off_t offset = 0;
  for (;;) {
    const ssize_t got = pread(from, block.data(), block.size(), offset);
    if (got < 0 && errno == EINTR)
      continue;
    if (got <= 0)
      return got == 0;
    ssize_t put = 0;
    while (put < got) {
      const ssize_t now =
          pwrite(to, block.data() + put, static_cast<std::size_t>(got - put), offset + put);
      if (now < 0 && errno != EINTR)
        return false;
      put += now < 0 ? 0 : now;
    }
    offset += got;
  }
}

bool Finish(const std::string& written, const std::string& to, Replace replace) {
  if (replace == Replace::kYes)
    return rename(written.c_str(), to.c_str()) == 0;
  return link(written.c_str(), to.c_str()) == 0 && unlink(written.c_str()) == 0;
}

void SyncFolder(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.number() >= 0)
    fsync(descriptor.number());
}

}  // namespace

int CopyWholeFile(const std::string& from, const std::string& to, Replace replace) {
  const std::string target = native_path(to);
  if (replace == Replace::kNo && access(target.c_str(), F_OK) == 0)
    return EEXIST;
  const Descriptor source(
      open(native_path(from).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  struct stat about {};
  if (source.number() < 0 || fstat(source.number(), &about) != 0)
    return errno;
  std::string beside = target + ".XXXXXX";
  const Descriptor copy(mkostemp(beside.data(), O_CLOEXEC));
  if (copy.number() < 0)
    return errno;
  if (CopyBytes(source.number(), copy.number()) &&
      fchmod(copy.number(), about.st_mode & kPermissions) == 0 && fsync(copy.number()) == 0 &&
      Finish(beside, target, replace)) {
    SyncFolder(target);
    return 0;
  }
  const int error = errno;
  unlink(beside.c_str());
  return error;
}

}  // namespace sys
