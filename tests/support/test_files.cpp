// SPDX-License-Identifier: Apache-2.0
#include "tests/support/test_files.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace test {

Folder::Folder() {
  // In memory where there is such a place: the tests write through thousands of times.
  const std::filesystem::path memory = "/dev/shm";
  std::error_code error;
  const bool usable = std::filesystem::is_directory(memory, error) && access("/dev/shm", W_OK) == 0;
  path_ = (usable ? memory : std::filesystem::temp_directory_path()) / "zt-sysdb-XXXXXX";
  if (mkdtemp(path_.data()) == nullptr) {
    std::perror("mkdtemp");
    std::abort();
  }
  std::filesystem::permissions(path_, std::filesystem::perms::all);
}

Folder::~Folder() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

Bytes VersionSlot(int version) {
  Bytes slot(kSlotSize);
  slot.Number(kRecordAt, version, 4);
  return slot;
}

Bytes DeletedSlot() {
  Bytes slot(kSlotSize);
  slot[0] = 1;
  return slot;
}

Bytes SystemSlot(std::string_view key, std::string_view name) {
  Bytes slot(kSlotSize);
  slot.Text(1, key).Text(kRecordAt, name);
  return slot;
}

std::string Key(int a, int b, int c, int d) {
  return {static_cast<char>(a), static_cast<char>(b), static_cast<char>(c), static_cast<char>(d)};
}

std::int32_t KeyNumber(int a, int b, int c, int d) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a + b * 256 + c * 65536) +
                                   static_cast<std::uint32_t>(d) * 16777216U);
}

std::string WithoutTime(std::string_view slot) {
  std::string copy(slot);
  copy.replace(kRecordAt + 284, 4, 4, '\0');
  return copy;
}

int RunInChild(const std::function<int()>& work, bool unprivileged) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    constexpr uid_t kNobody = 65534;
    if (unprivileged && getuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0))
      _exit(99);
    const int status = work();
    std::fflush(nullptr);
    _exit(status);
  }
  int wait_status = 0;
  waitpid(child, &wait_status, 0);
  return wait_status;
}

int ExitStatus(int wait_status) {
  return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : -1;
}

void* SharedMemory(std::size_t size) {
  void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    std::perror("mmap");
    std::abort();
  }
  return memory;
}

}  // namespace test
