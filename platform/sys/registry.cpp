// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/registry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <vector>

#include "platform/sys/printable.h"

namespace registry {
namespace {

struct State {
  std::string environment_variable;
  std::string file_name;
  std::optional<std::string> loaded_path;  // the file that `keys` came from
  Tree keys;
  std::map<HKEY, std::string> open_keys;  // paths
  HKEY next_handle = 1;
};

State& state() {
  static State the_state;
  return the_state;
}

// One line on standard error. Text of the file is shown without its control characters.
void report(const std::string& path, std::size_t line, const std::string& text) {
  const std::string place = line == 0 ? path : path + ':' + std::to_string(line);
  std::fprintf(stderr, "%s: %s\n", sys::printable(place).c_str(), sys::printable(text).c_str());
}

// The file's bytes, little more than kLargestFile of them; nothing after a report.
std::optional<std::vector<std::byte>> read_file(const std::string& path) {
  // Opening must not wait for the other end of a pipe that stands in the file's place.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  struct ::stat status {};
  std::vector<std::byte> bytes;
  int error = 0;
  if (descriptor < 0 || ::fstat(descriptor, &status) < 0)
    error = errno;
  else if (!S_ISREG(status.st_mode))
    error = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;

  std::array<std::byte, 4096> chunk;  // most settings are no longer
  while (error == 0 && bytes.size() <= kLargestFile) {
    const ssize_t count = ::read(descriptor, chunk.data(), chunk.size());
    if (count == 0)
      break;
    if (count > 0)
      bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + count);
    else if (errno != EINTR)
      error = errno;
  }
  if (descriptor >= 0)
    ::close(descriptor);
  if (error != 0) {
    report(path, 0, std::string("settings cannot be read: ") + std::strerror(error));
    return std::nullopt;
  }
  return bytes;
}

void load() {
  const std::string path = settings_path();
  if (state().loaded_path == path)
    return;
  state().loaded_path = path;
  state().keys.clear();
  if (path.empty())
    return;
  if (const auto bytes = read_file(path)) {
    ParsedFile parsed = parse_registry_file(*bytes);
    for (const Complaint& complaint : parsed.complaints)
      report(path, complaint.line, complaint.text);
    state().keys = std::move(parsed.keys);
  }
}

// The directory of the running program with a slash behind it; empty when it cannot be told.
std::string program_directory() {
  char path[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof(path));
  if (length <= 0)
    return {};
  const std::string whole(path, static_cast<std::size_t>(length));
  return whole.substr(0, whole.rfind('/') + 1);
}

const std::string* path_of(HKEY key) {
  static const std::string kLocalMachine = "HKEY_LOCAL_MACHINE";
  if (key == HKEY_LOCAL_MACHINE)
    return &kLocalMachine;
  const auto found = state().open_keys.find(key);
  return found == state().open_keys.end() ? nullptr : &found->second;
}

}  // namespace

void use_settings_file(std::string environment_variable, std::string file_name) {
  state().environment_variable = std::move(environment_variable);
  state().file_name = std::move(file_name);
}

std::string settings_path() {
  const State& now = state();
  if (!now.environment_variable.empty()) {
    const char* const named = std::getenv(now.environment_variable.c_str());
    if (named != nullptr && *named != '\0')
      return named;
  }
  if (now.file_name.empty())
    return {};
  std::vector<std::string> directories;
  if (const std::string own = program_directory(); !own.empty())
    directories.push_back(own + "../etc/");
  directories.push_back("/etc/");
  for (const std::string& directory : directories) {
    if (::access((directory + now.file_name).c_str(), F_OK) == 0)
      return directory + now.file_name;
  }
  return {};
}

std::int32_t RegOpenKeyA(HKEY parent, const char* subkey, HKEY* opened) {
  load();
  const std::string* const parent_path = path_of(parent);
  if (parent_path == nullptr)
    return ERROR_INVALID_HANDLE;
  std::string path = *parent_path;
  if (subkey != nullptr && *subkey != '\0')
    path.append("\\").append(subkey);
  if (!state().keys.contains(path))
    return ERROR_FILE_NOT_FOUND;
  *opened = state().next_handle++;
  state().open_keys.emplace(*opened, std::move(path));
  return ERROR_SUCCESS;
}

std::int32_t RegQueryValueExA(HKEY key, const char* name, std::uint32_t* type, std::uint8_t* data,
                              std::uint32_t* size) {
  const std::string* const path = path_of(key);
  if (path == nullptr)
    return ERROR_INVALID_HANDLE;
  const auto values = state().keys.find(*path);
  if (values == state().keys.end())
    return ERROR_FILE_NOT_FOUND;
  const auto found = values->second.find(std::string_view(name == nullptr ? "" : name));
  if (found == values->second.end())
    return ERROR_FILE_NOT_FOUND;

  const Value& value = found->second;
  std::string bytes = value.data;
  if (value.type == REG_SZ || value.type == REG_EXPAND_SZ)
    bytes += '\0';
  if (type != nullptr)
    *type = value.type;
  if (size == nullptr)
    return ERROR_SUCCESS;
  const std::uint32_t room = *size;
  *size = static_cast<std::uint32_t>(bytes.size());
  if (data == nullptr)
    return ERROR_SUCCESS;
  if (room < bytes.size())
    return ERROR_MORE_DATA;
  std::memcpy(data, bytes.data(), bytes.size());
  return ERROR_SUCCESS;
}

std::int32_t RegCloseKey(HKEY key) {
  return key == HKEY_LOCAL_MACHINE || state().open_keys.erase(key) == 1 ? ERROR_SUCCESS
                                                                        : ERROR_INVALID_HANDLE;
}

}  // namespace registry
