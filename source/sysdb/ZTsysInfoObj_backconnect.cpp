// SPDX-License-Identifier: Apache-2.0
// The back-connect file: a text file that names, a line per system, the name under which the
// system's server connects to the alarm manager. It stays open between questions and is opened
// anew when it has changed.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/sys/native_path.h"
#include "source/support/ZTsupport_procs.h"
#include "source/sysdb/ZTsysInfoObj.h"

namespace {

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

bool zt_SystemDBMgt_class::OpenBackConnectFile() {
  if (fBackConnectXRef != nullptr) {
    struct stat now {};
    if (sys::_stat(fBackConnectXRefFileName.c_str(), &now) != 0) {
      fError = errno;
      return false;
    }
    const bool later = fBackConnectXRefOpenTime.Initialized() != 0 &&
                       now.st_mtime > std::int64_t{std::uint32_t{fBackConnectXRefOpenTime}};
    // Changed or replaced, perhaps within the second of the opening: a stream that is rewound may
    // show again what it read before.
    if (later || !SameFile(now, fBackConnectXRefStat)) {
      std::fclose(fBackConnectXRef);
      fBackConnectXRef = nullptr;
    }
  }
  if (fBackConnectXRef != nullptr) {
    std::rewind(fBackConnectXRef);
    return true;
  }
  fBackConnectXRef = OpenPlainFile(fBackConnectXRefFileName, fBackConnectXRefStat);
  if (fBackConnectXRef == nullptr) {
    fError = errno;
    return false;
  }
  fBackConnectXRefOpenTime.SetTimeNow();
  return true;
}

const char* zt_SystemDBMgt_class::ReturnCurrentBackConnectName() {
  fError = 0;
  if (!OpenBackConnectFile())
    return nullptr;
  char line[kMaxLine + 2];
  char system_name[kSystemNameSize];
  while (CopyToNewLine(line, fBackConnectXRef, kMaxLine) != 0) {
    if (SplitLine(line, system_name, fSystemBackConnectName) &&
        std::strncmp(system_name, fSystemInfo.fSystemName, kSystemNameSize) == 0)
      return fSystemBackConnectName;
  }
  fSystemBackConnectName[0] = '\0';
  return nullptr;
}
