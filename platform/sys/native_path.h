// SPDX-License-Identifier: Apache-2.0
// Paths of the workstation's form and the file calls that take them.
//
// Callers compose paths with backslashes and perhaps a drive letter and show them so; only where a
// file is opened, tested or measured are they translated.

#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace sys {

// Backslashes become slashes; a leading drive letter is dropped with its colon. What is left of a
// bare drive ("c:") is the current directory (".").
std::string native_path(std::string_view path);

// 0 when the file can be reached in the mode (0 exists, 2 write, 4 read, 6 both), else -1 (errno).
// The effective ids count, as they do when a file is opened.
int _access(const char* path, int mode);

// Whether this user may write a plain file, or make it in its folder when it is absent.
bool may_write(const std::string& path);

// Status of a file: 0, or -1 (errno).
int _stat(const char* path, struct ::stat* status);
int _fstat(int descriptor, struct ::stat* status);

// The directory for temporary files (TMPDIR, else /tmp), ending in a slash. The number of its
// characters; when that is `size` or more nothing is written and the result counts the terminator.
std::uint32_t GetTempPathA(std::uint32_t size, char* buffer);

}  // namespace sys
