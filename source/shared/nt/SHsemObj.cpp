// SPDX-License-Identifier: Apache-2.0
#include "source/shared/nt/SHsemObj.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "platform/sys/native_path.h"

namespace {

constexpr int kModulus = 32767;

static_assert(std::atomic_ref<std::int32_t>::is_always_lock_free,
              "the counter is shared between processes");

}  // namespace

SEM_OBJ::SEM_OBJ(const char* path, char /*key_id*/, int /*nsems*/, int /*semflag*/) {
  if (!Open(path, O_RDWR | O_CREAT)) {
    fError = errno;
    std::printf("Open %s failed\n", path);
  } else if (!Grow() || !Map(PROT_READ | PROT_WRITE)) {
    fError = errno;
  } else {
    ValidObject = 1;
  }
}

SEM_OBJ::SEM_OBJ(const char* path) : fReadOnly(true) {
  struct stat about {};
  if (Open(path, O_RDONLY) && fstat(mFileObj, &about) == 0 &&
      about.st_size >= static_cast<off_t>(sizeof *fiptr) && Map(PROT_READ))
    ValidObject = 1;
  else
    fError = errno;
}

SEM_OBJ::~SEM_OBJ() {
  if (fiptr != nullptr)
    munmap(fiptr, sizeof *fiptr);
  if (mFileObj >= 0)
    close(mFileObj);
}

bool SEM_OBJ::Open(const char* path, int flags) {
  const std::string native = sys::native_path(path);
  mFileObj = open(native.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
  if (mFileObj < 0)
    return false;
  struct stat about {};
  if (fstat(mFileObj, &about) != 0)
    return false;
  if (!S_ISREG(about.st_mode)) {
    errno = EINVAL;
    return false;
  }
  return true;
}

bool SEM_OBJ::Grow() {
  struct stat about {};
  if (fstat(mFileObj, &about) != 0)
    return false;
  constexpr off_t kSize = sizeof *fiptr;
  // posix_fallocate only ever adds: a file that another process grows at the same moment is not
  // cut.
  if (about.st_size < kSize) {
    const int error = posix_fallocate(mFileObj, 0, kSize);
    if (error != 0) {
      errno = error;
      return false;
    }
  }
  return true;
}

bool SEM_OBJ::Map(int protection) {
  void* view = mmap(nullptr, sizeof *fiptr, protection, MAP_SHARED, mFileObj, 0);
  if (view == MAP_FAILED)
    return false;
  fiptr = static_cast<std::int32_t*>(view);
  return true;
}

int SEM_OBJ::SetSemVal(int /*semnum*/, int value_to_set) {
  if (ValidObject == 0 || fReadOnly)
    return 0;
  std::atomic_ref<std::int32_t>(*fiptr).store(value_to_set % kModulus, std::memory_order_release);
  return 1;
}

int SEM_OBJ::GetSemVal(int /*semnum*/) const {
  if (ValidObject == 0)
    return -1;
  return std::atomic_ref<std::int32_t>(*fiptr).load(std::memory_order_acquire);
}
