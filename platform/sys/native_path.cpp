// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/native_path.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace sys {

std::string native_path(std::string_view path) {
  const auto is_letter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
  if (path.size() >= 2 && path[1] == ':' && is_letter(path[0])) {
    path.remove_prefix(2);
    if (path.empty())
      return ".";
  }
  std::string native(path);
  std::replace(native.begin(), native.end(), '\\', '/');
  return native;
}

int _access(const char* path, int mode) {
  return ::faccessat(AT_FDCWD, native_path(path).c_str(), mode, AT_EACCESS);
}

bool may_write(const std::string& path) {
  constexpr int kReadAndWrite = 6;
  if (_access(path.c_str(), kReadAndWrite) == 0)
    return true;
  if (errno != ENOENT)
    return false;
  const std::string native = native_path(path);
  const std::size_t slash = native.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : native.substr(0, slash + 1);
  return ::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

int _stat(const char* path, struct ::stat* status) {
  return ::stat(native_path(path).c_str(), status);
}

int _fstat(int descriptor, struct ::stat* status) {
  return ::fstat(descriptor, status);
}

std::uint32_t GetTempPathA(std::uint32_t size, char* buffer) {
  const char* const named = std::getenv("TMPDIR");
  std::string directory = named != nullptr && *named != '\0' ? named : "/tmp";
  if (directory.back() != '/')
    directory += '/';
  if (directory.size() >= size)
    return static_cast<std::uint32_t>(directory.size() + 1);
  std::memcpy(buffer, directory.c_str(), directory.size() + 1);
  return static_cast<std::uint32_t>(directory.size());
}

}  // namespace sys
