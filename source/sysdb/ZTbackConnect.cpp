// SPDX-License-Identifier: Apache-2.0
#include "source/sysdb/ZTbackConnect.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/sys/native_path.h"
#include "shared/general/SHcontrolObj.h"
#include "source/support/ZTsupport_procs.h"

namespace {

constexpr char BACK_CONNECT_XREF_FILE_NAME[] = "ztsysxref";
constexpr int kMaxLine = 516;
constexpr int kMaxName = kSystemNameSize - 1;

bool SameFile(const struct stat& a, const struct stat& b) {
  return a.st_ino == b.st_ino && a.st_dev == b.st_dev && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// Opens a plain file for reading; null with errno set.
std::FILE* OpenPlainFile(const std::string& path, struct stat& about) {
  const int descriptor =
      open(sys::native_path(path).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (descriptor < 0)
    return nullptr;
  if (fstat(descriptor, &about) == 0) {
    if (S_ISREG(about.st_mode)) {
      if (std::FILE* file = fdopen(descriptor, "r"); file != nullptr)
        return file;
    } else {
      errno = S_ISDIR(about.st_mode) ? EISDIR : EINVAL;
    }
  }
  const int error = errno;
  close(descriptor);
  errno = error;
  return nullptr;
}

// The first two tokens of a line; false when it has fewer.
bool SplitLine(const char* line, char* system_name, char* back_connect_name) {
  int position = 0;
  const int length = GetToken(line, system_name, position, kMaxName);
  if (length == 0)
    return false;
  return GetToken(line + position + length, back_connect_name, position, kMaxName) != 0;
}

}  // namespace

BackConnectFile BackConnectFile::OfInstallation() {
  const char* directory = BASE_CONTROL_OBJ::GetDatabaseDirectory();
  return BackConnectFile(std::string(directory != nullptr ? directory : "") +
                         BACK_CONNECT_XREF_FILE_NAME);
}

bool BackConnectFile::Open() {
  if (file_ != nullptr) {
    struct stat now {};
    if (sys::_stat(path_.c_str(), &now) != 0) {
      error_ = errno;
      return false;
    }
    const bool later =
        open_time_.Initialized() != 0 && now.st_mtime > std::int64_t{std::uint32_t{open_time_}};
    // Changed or replaced, perhaps within the second of the opening: a stream that is rewound may
    // show again what it read before.
    if (later || !SameFile(now, opened_))
      file_.reset();
  }
  if (file_ != nullptr) {
    std::rewind(file_.get());
    return true;
  }
  file_.reset(OpenPlainFile(path_, opened_));
  if (file_ == nullptr) {
    error_ = errno;
    return false;
  }
  open_time_.SetTimeNow();
  return true;
}

void BackConnectFile::ForEach(const std::function<bool(const char*, const char*)>& take) {
  error_ = 0;
  name_[0] = '\0';
  if (!Open())
    return;
  char line[kMaxLine + 2];
  char system[kSystemNameSize];
  while (CopyToNewLine(line, file_.get(), kMaxLine) != 0)
    if (SplitLine(line, system, name_) && !take(system, name_))
      return;
  name_[0] = '\0';
}
