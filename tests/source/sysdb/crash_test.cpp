// SPDX-License-Identifier: Apache-2.0
// Processes that die while they write. This program is linked with --wrap=pwrite: every write of
// the files under test passes here and may be the process's last.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>

#include "platform/sys/prtzt_file.h"
#include "shared/general/nt/SHderControlObj.h"
#include "source/sysdb/ZTsysInfoObj.h"
#include "tests/support/test_files.h"

namespace {

// kBetweenPages: after the part of the write that lies in its first page, where the system looks
// for fatal signals; before a write that lies in one page.
enum class Death { kBefore, kBetweenPages, kAfter };

struct WriteTrap {
  int writes = 0;
  int fatal_write = 0;  // counted from 1; 0: none
  Death death = Death::kBefore;
};
WriteTrap g_trap;

}  // namespace

extern "C" {
ssize_t __real_pwrite(int descriptor, const void* buffer, size_t size, off_t offset);
ssize_t __wrap_pwrite(int descriptor, const void* buffer, size_t size, off_t offset);

ssize_t __wrap_pwrite(int descriptor, const void* buffer, size_t size, off_t offset) {
  const bool fatal = ++g_trap.writes == g_trap.fatal_write;
  if (fatal && g_trap.death != Death::kAfter) {
    const size_t in_page = 4096 - static_cast<size_t>(offset) % 4096;
    if (g_trap.death == Death::kBetweenPages && in_page < size)
      (void)!__real_pwrite(descriptor, buffer, in_page, offset);
    kill(getpid(), SIGKILL);
  }
  const ssize_t written = __real_pwrite(descriptor, buffer, size, offset);
  if (fatal)
    kill(getpid(), SIGKILL);
  return written;
}
}

namespace {

using test::Bytes;
using test::kRecordAt;
using test::kSlotSize;

class Crash : public testing::Test {
 protected:
  Crash() { BASE_CONTROL_OBJ::SetDirectory(folder_.path().c_str()); }

  // Runs the work in a process that dies at its n-th write. True when it has died.
  template <typename Work>
  static bool DiesAt(int fatal_write, Death death, Work work) {
    const int wait_status = test::RunInChild([&] {
      g_trap = {0, fatal_write, death};
      work();
      return 0;
    });
    return WIFSIGNALED(wait_status) && WTERMSIG(wait_status) == SIGKILL;
  }

  // No process holds the writers' lock.
  void ExpectUnlocked() const {
    sys::tBINFILE lock(nullptr, 1);
    lock.SetName((path_ + ".lk").c_str());
    ASSERT_EQ(lock.OpenAlways(sys::tFILEDEFS::cREADWRITE, 0, sys::tFILEDEFS::cALL_RWX), 0);
    EXPECT_EQ(lock.LockRegion(1, sys::tFILEDEFS::cLOCK_NOWAIT), 0);
  }

  test::Folder folder_;
  CONTROL_OBJ control_;
  std::string path_ = folder_ / "ztdb";
};

const zt_SystemDBOptions kQuiet{.lock_wait = std::chrono::seconds(60), .tell = [](const auto&) {}};

constexpr int kOlderSystems = 9;  // one of them on two pages

std::string SystemName(int i) {
  return "system" + std::to_string(i);
}

// Version 3, with a hole, and fields of the older layout where the current one has its group,
// sequence number and type.
std::string OlderFile() {
  std::string file = test::VersionSlot(3);
  for (int i = 1; i <= kOlderSystems; ++i) {
    Bytes slot = test::SystemSlot(test::Key(10, 0, 0, i), SystemName(i));
    slot.Text(kRecordAt + 257, std::string(40, 'g')).Number(kRecordAt + 492, i, 2);
    file += slot;
    if (i == 2)
      file += test::DeletedSlot();
  }
  return file;
}

std::string WithoutTimes(const std::string& file) {
  std::string result;
  for (std::size_t at = 0; at < file.size(); at += kSlotSize)
    result += at == 0 ? file.substr(0, kSlotSize) : test::WithoutTime(file.substr(at, kSlotSize));
  return result;
}

class Conversion : public Crash {
 protected:
  Conversion() {
    test::WriteFile(path_, OlderFile());
    Open(path_);
    converted_ = WithoutTimes(test::ReadFile(path_));
    test::WriteFile(path_, OlderFile());
  }
  // As it was, without what was kept of it.
  void Reset() const {
    for (const auto& file : std::filesystem::directory_iterator(folder_.path()))
      std::filesystem::remove(file);
    test::WriteFile(path_, OlderFile());
  }
  static void Open(const std::string& path) {
    const zt_SystemDBMgt_class manager(path.c_str(), kQuiet);
    ASSERT_EQ(manager.ReturnError(), 0);
  }

  std::string converted_;
};

TEST_F(Conversion, InterruptedAtAnyWriteIsFinishedByTheNextOpening) {
  ASSERT_NE(converted_, WithoutTimes(OlderFile()));
  for (const Death death : {Death::kBefore, Death::kBetweenPages, Death::kAfter}) {
    int interruptions = 0;
    for (;; ++interruptions) {
      Reset();
      if (!DiesAt(interruptions + 1, death, [&] { Open(path_); }))
        break;
      ExpectUnlocked();
      Open(path_);
      ASSERT_TRUE(WithoutTimes(test::ReadFile(path_)) == converted_)
          << "write " << interruptions + 1;
    }
    EXPECT_GT(interruptions, 2 * kOlderSystems) << "each record is marked and converted";
    EXPECT_TRUE(test::ReadFile(path_ + ".v3") == OlderFile()) << "kept as it was";
  }
}

TEST_F(Conversion, InterruptedAgainAndAgainComesToTheSameEnd) {
  int rounds = 0;
  while (DiesAt(4, Death::kAfter, [&] { Open(path_); })) {
    ASSERT_LT(++rounds, 100);
  }
  EXPECT_GT(rounds, 2);
  EXPECT_EQ(WithoutTimes(test::ReadFile(path_)), converted_);
}

// A console that knows nothing of the marks stores a record into a half converted file.
TEST_F(Conversion, LeavesARecordAloneThatAnotherConsoleHasStoredMeanwhile) {
  int checked = 0;
  for (int write = 1;; ++write) {
    Reset();
    if (!DiesAt(write, Death::kAfter, [&] { Open(path_); }))
      break;
    std::string file = test::ReadFile(path_);
    if (file[kRecordAt] != 4)
      continue;
    Bytes stored = test::SystemSlot(test::Key(10, 0, 0, 1), "stored");
    stored.Text(kRecordAt + 260, "kept");
    test::WriteFile(path_, file.replace(kSlotSize, kSlotSize, stored));
    Open(path_);
    EXPECT_EQ(test::ReadFile(path_).substr(kSlotSize, kSlotSize), stored) << "write " << write;
    ++checked;
  }
  EXPECT_GE(checked, kOlderSystems);
}

// An older console that opens the half converted file must find what it can work with: live slots,
// a version that it knows, whole records.
TEST_F(Conversion, NeverShowsAnOlderConsoleAFileThatItCannotRead) {
  for (int write = 1;; ++write) {
    Reset();
    if (!DiesAt(write, Death::kAfter, [&] { Open(path_); }))
      break;
    const std::string file = test::ReadFile(path_);
    ASSERT_EQ(file.size(), OlderFile().size());
    EXPECT_TRUE(file[kRecordAt] == 3 || file[kRecordAt] == 4);
    int systems = 0;
    for (std::size_t at = kSlotSize; at < file.size(); at += kSlotSize) {
      if (file[at] == 1)
        continue;
      ++systems;
      const int i = file[at + 4];
      EXPECT_STREQ(file.data() + at + kRecordAt, SystemName(i).c_str()) << "write " << write;
    }
    EXPECT_EQ(systems, kOlderSystems);
  }
}

zt_SystemInfo_class Generation(int key, int generation) {
  zt_SystemInfo_struct record{};
  std::snprintf(record.fSystemName, sizeof record.fSystemName, "key%d-%d", key, generation);
  record.fAlarmSequenceNumber = generation;
  std::memset(record.fAlarmStates, generation & 0x77, sizeof record.fAlarmStates);
  return {record, test::KeyNumber(10, 0, 1, key)};
}

int PutLocked(zt_SystemDBMgt_class& manager, int key, int generation) {
  manager.Lock();
  const int status = manager.PutSystemRec(Generation(key, generation));
  manager.Unlock();
  return status;
}

TEST_F(Crash, NewFileInterruptedAtItsFirstWriteOpensAgain) {
  for (const Death death : {Death::kBefore, Death::kAfter}) {
    remove(path_.c_str());
    EXPECT_TRUE(DiesAt(1, death, [&] { const zt_SystemDBMgt_class manager(path_.c_str()); }));
    const zt_SystemDBMgt_class manager(path_.c_str());
    EXPECT_EQ(manager.ValidObj(), 1);
    EXPECT_EQ(test::ReadFile(path_), test::VersionSlot(4));
  }
}

// Its record is in the file, at the end or in a hole, and the counter does not tell. The manager
// that has inserted all systems before it knows the table without reading the file.
TEST_F(Crash, AWriterThatDiedBeforeTheCounterLeavesNoSecondRecordOfItsKey) {
  constexpr int kNew = 9;
  for (const int hole : {0, 2}) {
    remove(path_.c_str());
    zt_SystemDBMgt_class manager(path_.c_str());
    for (int key = 1; key <= 4; ++key)
      ASSERT_EQ(PutLocked(manager, key, 1), 0);
    if (hole != 0) {
      ASSERT_EQ(manager.DeleteSystemRec(test::KeyNumber(10, 0, 1, hole)), 0);
    }
    ASSERT_EQ(PutLocked(manager, 3, 2), 0);
    EXPECT_TRUE(DiesAt(1, Death::kAfter, [&] {
      zt_SystemDBMgt_class writer(path_.c_str());
      PutLocked(writer, kNew, 1);
    }));
    ASSERT_EQ(PutLocked(manager, kNew, 2), 0);
    // One that dies as it deletes: its slot is the next to be filled.
    EXPECT_TRUE(DiesAt(1, Death::kAfter, [&] {
      zt_SystemDBMgt_class writer(path_.c_str());
      writer.DeleteSystemRec(test::KeyNumber(10, 0, 1, 1));
    }));
    ASSERT_EQ(PutLocked(manager, 1, 3), 0);
    EXPECT_EQ(test::ReadFile(path_).substr(kSlotSize + kRecordAt, 6), "key1-3");

    zt_SystemDBMgt_class fresh(path_.c_str());
    for (zt_SystemDBMgt_class* any : {&manager, &fresh}) {
      zt_SystemInfo_class info;
      ASSERT_EQ(any->GetSystemRec(test::KeyNumber(10, 0, 1, kNew), info), 0);
      EXPECT_EQ(info.ReturnAlarmSequence(), 2);
      EXPECT_EQ(any->GetSystemRecCount(), hole != 0 ? 4 : 5);
    }
  }
}

}  // namespace
