// SPDX-License-Identifier: Apache-2.0
// Files and processes for the tests of the system database. The bytes of database files are put
// together here by their offsets, without a word of the code that reads and writes them.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace test {

inline constexpr std::size_t kSlotSize = 501;
inline constexpr std::size_t kRecordAt = 5;  // of the record in its slot

// A folder of its own that vanishes with the object.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string operator/(std::string_view name) const { return path_ + '/' + std::string(name); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, std::string_view bytes);

// A string of bytes that are set by offset, little-endian.
struct Bytes : std::string {
  explicit Bytes(std::size_t size) : std::string(size, '\0') {}
  Bytes& Text(std::size_t offset, std::string_view text) {
    replace(offset, text.size(), text);
    return *this;
  }
  Bytes& Number(std::size_t offset, std::int64_t value, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i)
      (*this)[offset + i] = static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * i));
    return *this;
  }
};

// Slots as the format's description has them.
Bytes VersionSlot(int version);
Bytes DeletedSlot();
Bytes SystemSlot(std::string_view key, std::string_view name);  // key: its four bytes

std::string Key(int a, int b, int c, int d);
std::int32_t KeyNumber(int a, int b, int c, int d);

// The slot with the time of its last store set to zero.
std::string WithoutTime(std::string_view slot);

// Runs a function in a process of its own and returns its wait status. The function's result is
// the exit status. With `unprivileged`, permissions count even when the tests run as root.
int RunInChild(const std::function<int()>& work, bool unprivileged = false);
// The exit status, or -1 for a process that a signal has ended.
int ExitStatus(int wait_status);

// Shared with the processes that are forked later.
void* SharedMemory(std::size_t size);
template <typename T>
T& Shared() {
  return *new (SharedMemory(sizeof(T))) T();
}

}  // namespace test
