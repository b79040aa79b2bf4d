// SPDX-License-Identifier: Apache-2.0
// A device that fails once. The program is linked with --wrap for pread, pwrite and fdatasync;
// ZT_FAULT names the call, counted from 1, that ends with EIO: "read N", "write N" (nothing is
// written), "late N" (all is, and the device says so no more) or "sync N". ZT_FAULT_SEEN is made
// when the call comes.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

extern "C" {
ssize_t __real_pread(int descriptor, void* buffer, size_t size, off_t offset);
ssize_t __real_pwrite(int descriptor, const void* buffer, size_t size, off_t offset);
ssize_t __wrap_pread(int descriptor, void* buffer, size_t size, off_t offset);
ssize_t __wrap_pwrite(int descriptor, const void* buffer, size_t size, off_t offset);
int __real_fdatasync(int descriptor);
int __wrap_fdatasync(int descriptor);
}

namespace {

bool Fails(const char* kind, int& calls) {
  const char* fault = std::getenv("ZT_FAULT");
  const size_t length = std::strlen(kind);
  if (fault == nullptr || std::strncmp(fault, kind, length) != 0 ||
      ++calls != std::atoi(fault + length))
    return false;
  close(open(std::getenv("ZT_FAULT_SEEN"), O_WRONLY | O_CREAT, 0666));
  return true;
}

int g_reads = 0;
int g_writes = 0;
int g_late_writes = 0;
int g_syncs = 0;

}  // namespace

ssize_t __wrap_pread(int descriptor, void* buffer, size_t size, off_t offset) {
  if (Fails("read ", g_reads)) {
    errno = EIO;
    return -1;
  }
  return __real_pread(descriptor, buffer, size, offset);
}

ssize_t __wrap_pwrite(int descriptor, const void* buffer, size_t size, off_t offset) {
  const bool before = Fails("write ", g_writes);
  const bool after = Fails("late ", g_late_writes);
  const ssize_t put = before ? -1 : __real_pwrite(descriptor, buffer, size, offset);
  if (before || after)
    errno = EIO;
  return after ? -1 : put;
}

int __wrap_fdatasync(int descriptor) {
  const bool fails = Fails("sync ", g_syncs);
  const int result = __real_fdatasync(descriptor);
  if (fails)
    errno = EIO;
  return fails ? -1 : result;
}
