// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/prtzt_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <vector>

#include "platform/sys/native_path.h"

namespace sys {

namespace {

constexpr std::uint64_t kMaxPosition = 0xFFFFFFFFu;

mode_t mode_of(unsigned security) {
  mode_t mode = 0;
  for (unsigned shift = 0; shift < 9; shift += 3) {
    const unsigned bits = security >> shift;
    mode_t rights = 0;
    if (bits & 1u)
      rights |= 4;
    if (bits & 2u)
      rights |= 2;
    if (bits & 4u)
      rights |= 1;
    mode |= rights << shift;
  }
  return mode;
}

int open_flags(unsigned access) {
  // O_NONBLOCK: the name may turn out to be a pipe or a terminal, whose opening must not hang.
  int flags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  switch (access & tFILEDEFS::cREADWRITE) {
    case tFILEDEFS::cREADWRITE:
      flags |= O_RDWR;
      break;
    case tFILEDEFS::cWRITE:
      flags |= O_WRONLY;
      break;
    default:
      flags |= O_RDONLY;
  }
  return flags;
}

// As many of the bytes as the file holds at `offset`; -1 with errno set on failure.
ssize_t read_at(int descriptor, void* buffer, std::size_t size, std::uint64_t offset) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t got = pread(descriptor, static_cast<char*>(buffer) + done, size - done,
                              static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR)
      continue;
    if (got < 0)
      return -1;
    if (got == 0)
      break;
    done += static_cast<std::size_t>(got);
  }
  return static_cast<ssize_t>(done);
}

ssize_t write_at(int descriptor, const void* buffer, std::size_t size, std::uint64_t offset) {
  ssize_t put;
  do {
    put = pwrite(descriptor, buffer, size, static_cast<off_t>(offset));
  } while (put < 0 && errno == EINTR);
  return put;
}

}  // namespace

int FileStatusOf(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
      return tFILE_ERRORS::cMISSING;
    case EEXIST:
      return tFILE_ERRORS::cEXISTS;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
    case ENXIO:
    case ELOOP:
      return tFILE_ERRORS::cACCESS;
    case EINTR:
      return tFILE_ERRORS::cINTERRUPTED;
    case EAGAIN:
    case EBUSY:
    case EDEADLK:
    case ETXTBSY:
      return tFILE_ERRORS::cLOCKED;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return tFILE_ERRORS::cFULL;
    case EMFILE:
    case ENFILE:
    case ENOLCK:
    case ENOMEM:
      return tFILE_ERRORS::cLIMIT;
    case EBADF:
      return tFILE_ERRORS::cNOTOPEN;
    default:
      return tFILE_ERRORS::cDEVICE;
  }
}

const char* FileStatusText(int status) {
  static constexpr std::array<const char*, 12> kTexts = {
      "no failure",
      "the file or a folder of its path does not exist",
      "the file exists already",
      "no permission to read and write it, or it is not a plain file",
      "the file ends too early",
      "interrupted by a signal",
      "another process holds it locked",
      "no room left on the disk, or a quota or file-size limit was reached",
      "the device reports an error",
      "too many open files or locks, or too little memory",
      "the position is out of range",
      "the file is not open",
  };
  if (status < 0 || static_cast<std::size_t>(status) >= kTexts.size())
    return "unknown file status";
  return kTexts[static_cast<std::size_t>(status)];
}

tPHYSICAL_FILE::~tPHYSICAL_FILE() {
  if (descriptor >= 0)
    close(descriptor);
}

tLOGICAL_FILE::tLOGICAL_FILE(tPHYSICAL_FILE* physical, int flag)
    : physical_(physical != nullptr ? physical : &own_), closes_(flag != 0) {}

tLOGICAL_FILE::~tLOGICAL_FILE() {
  if (closes_)
    Close();
}

void tLOGICAL_FILE::SetName(const char* name) {
  name_ = name != nullptr ? name : "";
}

int tLOGICAL_FILE::OpenAlways(unsigned access, unsigned /*share*/, unsigned security) {
  synchronous_ = (access & tFILEDEFS::cSYNC) != 0;
  return Open(open_flags(access) | O_CREAT, security);
}

int tLOGICAL_FILE::OpenExisting(unsigned access) {
  synchronous_ = (access & tFILEDEFS::cSYNC) != 0;
  return Open(open_flags(access), 0);
}

int tLOGICAL_FILE::Open(int flags, unsigned security) {
  Close();
  const std::string path = native_path(name_);
  int descriptor;
  do {
    descriptor = open(path.c_str(), flags, mode_of(security));
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0)
    return FileStatusOf(errno);
  struct stat about {};
  if (fstat(descriptor, &about) != 0 || !S_ISREG(about.st_mode)) {
    close(descriptor);
    return tFILE_ERRORS::cACCESS;
  }
  physical_->descriptor = descriptor;
  position_ = 0;
  return tFILE_ERRORS::cNORMAL;
}

int tLOGICAL_FILE::Read(void* buffer, std::uint32_t size, std::uint32_t* count) {
  const ssize_t got = read_at(physical_->descriptor, buffer, size, position_);
  if (count != nullptr)
    *count = got < 0 ? 0 : static_cast<std::uint32_t>(got);
  if (got < 0)
    return FileStatusOf(errno);
  const bool whole = static_cast<std::uint32_t>(got) == size;
  if (whole || count != nullptr)
    position_ += static_cast<std::uint64_t>(got);
  return whole ? tFILE_ERRORS::cNORMAL : tFILE_ERRORS::cEOF;
}

int tLOGICAL_FILE::Write(const void* buffer, std::uint32_t size, std::uint32_t* count) {
  if (count != nullptr)
    *count = 0;
  if (position_ + size > kMaxPosition)
    return tFILE_ERRORS::cFULL;
  const int descriptor = physical_->descriptor;
  struct stat before {};
  if (fstat(descriptor, &before) != 0)
    return FileStatusOf(errno);
  std::vector<char> old;
  ssize_t had = 0;
  if (position_ < static_cast<std::uint64_t>(before.st_size)) {
    old.resize(size);
    had = read_at(descriptor, old.data(), size, position_);
    if (had < 0)
      return FileStatusOf(errno);
  }

  const ssize_t put = write_at(descriptor, buffer, size, position_);
  if (put < 0)
    return FileStatusOf(errno);
  if (static_cast<std::uint32_t>(put) == size) {
    if (const int status = WaitForDevice(); status != tFILE_ERRORS::cNORMAL)
      return status;
    position_ += size;
    if (count != nullptr)
      *count = size;
    return tFILE_ERRORS::cNORMAL;
  }
  // The system took only a part: there is no room for the rest.
  bool restored = true;
  if (had > 0)
    restored = write_at(descriptor, old.data(), static_cast<std::size_t>(had), position_) == had;
  if (position_ + static_cast<std::uint64_t>(put) > static_cast<std::uint64_t>(before.st_size))
    restored = ftruncate(descriptor, before.st_size) == 0 && restored;
  restored = WaitForDevice() == tFILE_ERRORS::cNORMAL && restored;
  return restored ? tFILE_ERRORS::cFULL : tFILE_ERRORS::cDEVICE;
}

int tLOGICAL_FILE::WaitForDevice() const {
  if (!synchronous_ || deferred_ || fdatasync(physical_->descriptor) == 0)
    return tFILE_ERRORS::cNORMAL;
  return FileStatusOf(errno);
}

int tLOGICAL_FILE::Sync() {
  deferred_ = false;
  return WaitForDevice();
}

int tLOGICAL_FILE::Seek(std::int32_t offset, std::uint32_t* position) {
  return Seek(tFILEDEFS::cFROMSTART, offset, position);
}

int tLOGICAL_FILE::Seek(tFILEDEFS::eSEEKMODE mode, std::int32_t offset, std::uint32_t* position) {
  if (physical_->descriptor < 0)
    return tFILE_ERRORS::cNOTOPEN;
  std::int64_t origin = 0;
  if (mode == tFILEDEFS::cFROMCURRENT)
    origin = static_cast<std::int64_t>(position_);
  if (mode == tFILEDEFS::cFROMEND) {
    struct stat about {};
    if (fstat(physical_->descriptor, &about) != 0)
      return FileStatusOf(errno);
    origin = about.st_size;
  }
  const std::int64_t target = origin + offset;
  if (target < 0 || target > static_cast<std::int64_t>(kMaxPosition))
    return tFILE_ERRORS::cPOSITION;
  position_ = static_cast<std::uint64_t>(target);
  return GetPos(position);
}

int tLOGICAL_FILE::GetPos(std::uint32_t* position) const {
  if (position != nullptr)
    *position = static_cast<std::uint32_t>(position_);
  return tFILE_ERRORS::cNORMAL;
}

int tLOGICAL_FILE::Rewind() {
  return Seek(tFILEDEFS::cFROMSTART, 0, nullptr);
}

int tLOGICAL_FILE::GetStamp(tFILE_STAMP& stamp) const {
  struct stat about {};
  if (fstat(physical_->descriptor, &about) != 0)
    return FileStatusOf(errno);
  // The time of change rather than of modification, which anyone may set.
  stamp = {about.st_size, about.st_ctim.tv_sec, about.st_ctim.tv_nsec};
  return tFILE_ERRORS::cNORMAL;
}

int tLOGICAL_FILE::SetLock(short type, std::uint32_t length, bool wait) const {
  struct flock region {};
  region.l_type = type;
  region.l_whence = SEEK_SET;
  region.l_start = static_cast<off_t>(position_);
  region.l_len = static_cast<off_t>(length);
  // Locks of the open file, not of the process: closing another descriptor of the same file must
  // not drop them.
  if (fcntl(physical_->descriptor, wait ? F_OFD_SETLKW : F_OFD_SETLK, &region) == 0)
    return tFILE_ERRORS::cNORMAL;
  return FileStatusOf(errno == EACCES ? EAGAIN : errno);
}

int tLOGICAL_FILE::LockRegion(std::uint32_t length, unsigned flags) {
  return SetLock((flags & tFILEDEFS::cLOCK_SHARED) != 0 ? F_RDLCK : F_WRLCK, length,
                 (flags & tFILEDEFS::cLOCK_NOWAIT) == 0);
}

int tLOGICAL_FILE::UnlockRegion(std::uint32_t length) {
  return SetLock(F_UNLCK, length, false);
}

namespace {

struct flock OneOctet(short type, std::int64_t at) {
  struct flock region {};
  region.l_type = type;
  region.l_whence = SEEK_SET;
  region.l_start = static_cast<off_t>(at);
  region.l_len = 1;
  return region;
}

}  // namespace

long tLOGICAL_FILE::ReturnLockHolder(std::int32_t mark) const {
  struct flock region = OneOctet(F_WRLCK, static_cast<std::int64_t>(position_));
  if (fcntl(physical_->descriptor, F_OFD_GETLK, &region) != 0 || region.l_type == F_UNLCK)
    return 0;
  if (region.l_pid > 0)
    return region.l_pid;
  region = OneOctet(F_WRLCK, mark);
  const bool marked =
      fcntl(physical_->descriptor, F_GETLK, &region) == 0 && region.l_type != F_UNLCK;
  return marked && region.l_pid > 0 ? region.l_pid : 0;
}

void tLOGICAL_FILE::MarkLockHolder(std::int32_t mark) const {
  const struct flock region = OneOctet(F_WRLCK, mark);
  fcntl(physical_->descriptor, F_SETLK, &region);
}

void tLOGICAL_FILE::UnmarkLockHolder(std::int32_t mark) const {
  const struct flock region = OneOctet(F_UNLCK, mark);
  fcntl(physical_->descriptor, F_SETLK, &region);
}

int tLOGICAL_FILE::Close() {
  if (physical_->descriptor < 0)
    return tFILE_ERRORS::cNOTOPEN;
  const int result = close(physical_->descriptor);
  physical_->descriptor = -1;
  return result == 0 ? tFILE_ERRORS::cNORMAL : FileStatusOf(errno);
}

}  // namespace sys
