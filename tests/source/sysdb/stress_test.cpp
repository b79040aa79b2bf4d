// SPDX-License-Identifier: Apache-2.0
// Four processes write and two read one database at the same time. ZT_STRESS_SECONDS sets how
// long; the default is short.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "shared/general/nt/SHderControlObj.h"
#include "source/sysdb/ZTsysInfoObj.h"
#include "tests/support/test_files.h"

namespace {

constexpr int kWriters = 4;
constexpr int kReaders = 2;
constexpr int kKeysPerWriter = 50;

struct Board {
  std::atomic<bool> stop;
  std::atomic<int> generations[kWriters][kKeysPerWriter];  // 0: not in the database
  std::atomic<long> writes, reads, torn, failures, other_system;
};

SystemKey KeyOf(int writer, int i) {
  return test::KeyNumber(10, writer, 0, i + 1);
}

// Every field tells the system and the generation, so that a mixture of two records shows.
zt_SystemInfo_struct RecordOf(SystemKey key, int generation) {
  zt_SystemInfo_struct record{};
  std::snprintf(record.fSystemName, sizeof record.fSystemName, "%d:%d:%s", key, generation,
                std::string(static_cast<std::size_t>(generation % 200), 'x').c_str());
  std::snprintf(record.fGroupName, sizeof record.fGroupName, "g%d", generation);
  record.fAlarmSequenceNumber = generation;
  std::memset(record.fAlarmStates, generation % 251, sizeof record.fAlarmStates);
  record.fSystemType = static_cast<std::int16_t>(generation % 1000);
  return record;
}

bool IsWhole(const zt_SystemInfo_class& info) {
  SystemKey key = 0;
  zt_SystemInfo_struct record = info.ReturnStruct(key);
  record.fRecUpdateTime = 0;
  const zt_SystemInfo_struct expected = RecordOf(key, record.fAlarmSequenceNumber);
  return std::memcmp(&record, &expected, sizeof record) == 0;
}

int Write(const std::string& path, Board& board, int writer) {
  zt_SystemDBMgt_class manager(path.c_str());
  std::mt19937 random(static_cast<unsigned>(writer));
  for (int generation = 1; !board.stop; ++generation) {
    const int i = static_cast<int>(random() % kKeysPerWriter);
    const SystemKey key = KeyOf(writer, i);
    std::atomic<int>& present = board.generations[writer][i];
    const bool remove = present != 0 && random() % 3 == 0;
    manager.Lock();
    const int status = remove ? manager.DeleteSystemRec(key)
                              : manager.PutSystemRec({RecordOf(key, generation), key});
    manager.Unlock();
    if (status != 0)
      ++board.failures;
    present = remove ? 0 : generation;
    ++board.writes;
  }
  return 0;
}

int Read(const std::string& path, Board& board, int reader) {
  zt_SystemDBMgt_class manager(path.c_str());
  std::mt19937 random(static_cast<unsigned>(100 + reader));
  zt_SystemInfo_class info;
  while (!board.stop) {
    if (random() % 16 == 0) {
      for (int status = manager.GetFirstSystemRec(info); status == 0;
           status = manager.GetNextSystemRec(info), ++board.reads)
        if (!IsWhole(info))
          ++board.torn;
      continue;
    }
    const SystemKey key =
        KeyOf(static_cast<int>(random() % kWriters), static_cast<int>(random() % kKeysPerWriter));
    const int status = manager.GetSystemRec(key, info);
    ++board.reads;
    if (status != 0 && status != kIndexNotFound)
      ++board.failures;
    if (status == 0 && !IsWhole(info))
      ++board.torn;
    if (status == 0 &&
        std::to_string(key) !=
            std::string(info.ReturnSystemName(), std::strcspn(info.ReturnSystemName(), ":")))
      ++board.other_system;
  }
  return 0;
}

TEST(SystemDatabaseStress, FourWritersAndTwoReadersLoseAndTearNothing) {
  const char* setting = std::getenv("ZT_STRESS_SECONDS");
  const int seconds = setting != nullptr ? std::atoi(setting) : 2;
  ASSERT_GT(seconds, 0) << "ZT_STRESS_SECONDS";
  const CONTROL_OBJ control;
  const test::Folder folder;
  BASE_CONTROL_OBJ::SetDirectory(folder.path().c_str());
  const std::string path = folder / "ztdb";
  Board& board = test::Shared<Board>();
  zt_SystemDBMgt_class witness(path.c_str());

  std::array<pid_t, kWriters + kReaders> children{};
  for (int i = 0; i < kWriters + kReaders; ++i) {
    pid_t& child = children[static_cast<std::size_t>(i)];
    child = fork();
    if (child == 0)
      _exit(i < kWriters ? Write(path, board, i) : Read(path, board, i));
  }
  sleep(static_cast<unsigned>(seconds));
  board.stop = true;
  for (const pid_t child : children) {
    int wait_status = 0;
    waitpid(child, &wait_status, 0);
    EXPECT_EQ(test::ExitStatus(wait_status), 0);
  }
  std::printf("%ld writes, %ld reads\n", board.writes.load(), board.reads.load());
  EXPECT_GT(board.writes, 100);
  EXPECT_GT(board.reads, 100);
  EXPECT_EQ(board.torn, 0);
  EXPECT_EQ(board.failures, 0);
  EXPECT_EQ(board.other_system, 0);

  // What the file, a table built before the writing and one built now agree on.
  zt_SystemDBMgt_class fresh(path.c_str());
  int expected = 0;
  for (int writer = 0; writer < kWriters; ++writer) {
    for (int i = 0; i < kKeysPerWriter; ++i) {
      const int generation = board.generations[writer][i];
      expected += generation != 0;
      for (zt_SystemDBMgt_class* manager : {&witness, &fresh}) {
        zt_SystemInfo_class info;
        const int status = manager->GetSystemRec(KeyOf(writer, i), info);
        ASSERT_EQ(status, generation != 0 ? 0 : kIndexNotFound);
        ASSERT_TRUE(status != 0 || (info.ReturnAlarmSequence() == generation && IsWhole(info)));
      }
    }
  }
  EXPECT_EQ(witness.GetSystemRecCount(), expected);
  EXPECT_EQ(fresh.GetSystemRecCount(), expected);
  const std::string file = test::ReadFile(path);
  ASSERT_EQ(file.size() % test::kSlotSize, 0u);
  int live = 0;
  for (std::size_t at = test::kSlotSize; at < file.size(); at += test::kSlotSize)
    live += file[at] == 0;
  EXPECT_EQ(live, expected);
}

}  // namespace
