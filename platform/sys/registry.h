// SPDX-License-Identifier: Apache-2.0
// The workstation's registry calls over a settings file.
//
// The file is read at the first call and again only when another file takes its place; its
// malformed lines are reported on standard error, once.

#pragma once

#include <cstdint>
#include <string>

#include "platform/sys/registry_file.h"

namespace registry {

// An open key. Values are handed out by RegOpenKeyA and checked at every use.
using HKEY = std::uintptr_t;
inline constexpr HKEY HKEY_LOCAL_MACHINE = 0x80000002U;

enum Status : std::int32_t {
  ERROR_SUCCESS = 0,
  ERROR_FILE_NOT_FOUND = 2,
  ERROR_INVALID_HANDLE = 6,
  ERROR_MORE_DATA = 234,
};

// Where the settings file is: named by the environment variable; else file_name in ../etc beside
// the program's own directory; else in /etc. Nothing is read before the first call.
void use_settings_file(std::string environment_variable, std::string file_name);

// The path by those rules; empty when there is no such file (one that the environment names is
// given whether it exists or not).
std::string settings_path();

// Opens a key below an open one, by its path with single backslashes.
std::int32_t RegOpenKeyA(HKEY parent, const char* subkey, HKEY* opened);

// A value's type and bytes (a text with its terminator). *size: the buffer's size, then the
// value's; ERROR_MORE_DATA when it does not fit. data may be null to ask for the size, type too.
std::int32_t RegQueryValueExA(HKEY key, const char* name, std::uint32_t* type, std::uint8_t* data,
                              std::uint32_t* size);

std::int32_t RegCloseKey(HKEY key);

}  // namespace registry
