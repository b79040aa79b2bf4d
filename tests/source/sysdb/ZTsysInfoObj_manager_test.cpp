// SPDX-License-Identifier: Apache-2.0
// The manager and its companions on files made by hand.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <ctime>
#include <random>
#include <set>
#include <string>

#include "shared/general/nt/SHderControlObj.h"
#include "source/sysdb/ZTsysInfoObj.h"
#include "tests/support/test_files.h"

namespace {

using test::Bytes;
using test::kRecordAt;
using test::kSlotSize;

class Manager : public testing::Test {
 protected:
  Manager() { BASE_CONTROL_OBJ::SetDirectory(folder_.path().c_str()); }

  std::string File() const { return test::ReadFile(path_); }
  std::string Slot(std::size_t index) const { return File().substr(index * kSlotSize, kSlotSize); }
  std::int32_t Counter() const {
    const std::string bytes = test::ReadFile(path_ + ".sem");
    std::int32_t value = 0;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
  }
  static zt_SystemInfo_class System(int last_octet, const char* name) {
    zt_SystemInfo_struct record{};
    std::strncpy(record.fSystemName, name, sizeof record.fSystemName - 1);
    return {record, test::KeyNumber(10, 0, 0, last_octet)};
  }

  test::Folder folder_;
  CONTROL_OBJ control_;
  std::string path_ = folder_ / "ztdb";
};

// The slot of one system with a value of its own in every field.
Bytes FullSlot() {
  Bytes slot = test::SystemSlot(test::Key(192, 0, 2, 7), "sys1");
  slot.Number(kRecordAt + 257, 5, 1);            // alarm monitor status
  slot.Number(kRecordAt + 259, 1, 1);            // map enabled
  slot.Text(kRecordAt + 260, "group one");       // group
  slot.Number(kRecordAt + 280, 70'000, 4);       // alarm sequence number
  slot.Number(kRecordAt + 284, 900'000'000, 4);  // time of the last store
  slot.Number(kRecordAt + 288, -300, 2);         // alarm manager error
  slot.Number(kRecordAt + 290, 12, 2);           // alarm count
  slot.Number(kRecordAt + 292 + 2, 0x30, 1);     // alarm 5 critical
  slot.Number(kRecordAt + 492, 6, 2);            // system type
  slot.Number(kRecordAt + 494, 1, 1);            // runs the 3.0 agent
  slot.Number(kRecordAt + 495, -1, 1);           // to be deleted
  return slot;
}

// Everything of a version record that is carried along, and the unused bytes behind it.
Bytes FullVersionSlot(int version) {
  Bytes slot = test::VersionSlot(version);
  slot.Number(kRecordAt + 4, 0x11223344, 4).Number(kRecordAt + 8, 7, 2);
  slot.Text(kRecordAt + 10, "reserved").Text(kRecordAt + 405, "xyz");
  return slot.Text(kRecordAt + 408, "unused bytes").Text(kSlotSize - 1, "!");
}

TEST_F(Manager, ReadsAHandMadeFileAndWritesItBackIdentically) {
  const std::string golden = FullVersionSlot(4) + FullSlot() + test::DeletedSlot() +
                             test::SystemSlot(test::Key(10, 0, 0, 129), "sys2");
  test::WriteFile(path_, golden);
  zt_SystemDBMgt_class manager(path_.c_str());
  ASSERT_EQ(manager.ValidObj(), 1);
  EXPECT_EQ(File(), golden) << "opening changes nothing";

  zt_SystemInfo_class info;
  ASSERT_EQ(manager.GetFirstSystemRec(info), 0);
  EXPECT_EQ(info.ReturnSystemKey(), test::KeyNumber(192, 0, 2, 7));
  EXPECT_STREQ(info.ReturnSystemName(), "sys1");
  EXPECT_STREQ(info.ReturnGroupName(), "group one");
  EXPECT_EQ(info.ReturnAlarmMonitorStatus(), 5);
  EXPECT_TRUE(info.ReturnMapEnabled());
  EXPECT_EQ(info.ReturnAlarmSequence(), 70'000);
  EXPECT_EQ(info.ReturnRecUpdateTime(), 900'000'000);
  EXPECT_EQ(info.ReturnAlarmMgrError(), -300);
  EXPECT_EQ(info.ReturnAlarmCount(), 12);
  EXPECT_EQ(info.ReturnAlarmState(5), 3);
  EXPECT_EQ(info.ReturnSystemType(), 6);
  EXPECT_TRUE(info.ReturnIsZTAgent());
  EXPECT_EQ(info.ReturnMonitorAlarms(), -1);
  zt_SystemInfo_class second;
  ASSERT_EQ(manager.GetNextSystemRec(second), 0);
  EXPECT_STREQ(second.ReturnSystemName(), "sys2");
  EXPECT_EQ(manager.GetNextSystemRec(second), kSysDbNoMoreSystems);

  const auto before = static_cast<std::int32_t>(std::time(nullptr));
  ASSERT_EQ(manager.PutSystemRec(info), 0);
  std::int32_t stored = 0;
  std::memcpy(&stored, Slot(1).data() + kRecordAt + 284, sizeof stored);
  EXPECT_GE(stored, before);
  EXPECT_EQ(test::WithoutTime(Slot(1)), test::WithoutTime(FullSlot()));
  std::string rest = File();
  EXPECT_EQ(rest.replace(kSlotSize, kSlotSize, FullSlot()), golden);
  EXPECT_EQ(Counter(), 0) << "a record replaced in place is no change of the structure";
}

TEST_F(Manager, ConvertsAHandMadeFileOfTheOlderLayout) {
  // In the older layout: the fields that lie elsewhere, and those at whose place the current one
  // finds the sequence number (280), the error (288) and the type (492).
  Bytes older = test::SystemSlot(test::Key(192, 0, 2, 7), "sys1");
  older.Text(kRecordAt + 257, "C:\\GRAPHS\\GLOBAL.ENV.XYZ").Text(kRecordAt + 380, "workgroup");
  older.Number(kRecordAt + 280, 42, 4).Number(kRecordAt + 288, -9, 2);
  older.Number(kRecordAt + 424, 99, 4).Number(kRecordAt + 428, 800'000'000, 4);
  older.Number(kRecordAt + 432, 6, 2).Number(kRecordAt + 436, 5, 2);
  older.Number(kRecordAt + 492, 3, 2).Text(kRecordAt + 494, "zz");
  test::WriteFile(path_, FullVersionSlot(3) + older + test::DeletedSlot() +
                             test::SystemSlot(test::Key(10, 0, 0, 1), "sys2"));

  const auto before = static_cast<std::int32_t>(std::time(nullptr));
  zt_SystemDBMgt_class manager(path_.c_str());
  ASSERT_EQ(manager.ValidObj(), 1);
  EXPECT_EQ(manager.ReturnError(), 0);
  EXPECT_EQ(Slot(0), FullVersionSlot(4));
  const auto converted = [](const std::string& key, const char* name) {
    Bytes slot = test::SystemSlot(key, name);
    slot.Number(kRecordAt + 257, 1, 1).Number(kRecordAt + 259, 1, 1);
    return slot.Number(kRecordAt + 494, 1, 1).Number(kRecordAt + 495, 1, 1);
  };
  Bytes first = converted(test::Key(192, 0, 2, 7), "sys1");
  first.Number(kRecordAt + 280, 42, 4).Number(kRecordAt + 288, -9, 2);
  first.Number(kRecordAt + 492, 3, 2);
  EXPECT_EQ(test::WithoutTime(Slot(1)), first);
  EXPECT_EQ(Slot(2), test::DeletedSlot());
  EXPECT_EQ(test::WithoutTime(Slot(3)), converted(test::Key(10, 0, 0, 1), "sys2"));
  zt_SystemInfo_class info;
  ASSERT_EQ(manager.GetSystemRec("sys2", info), 0);
  EXPECT_GE(info.ReturnRecUpdateTime(), before);
}

TEST_F(Manager, MakesAVersionRecordInANewFile) {
  zt_SystemDBMgt_class manager(path_.c_str());
  ASSERT_EQ(manager.ValidObj(), 1);
  EXPECT_EQ(File(), test::VersionSlot(4));
  EXPECT_EQ(test::ReadFile(path_ + ".sem"), std::string(4, '\0'));
  EXPECT_EQ(test::ReadFile(path_ + ".lk"), "");
  zt_SystemInfo_class info;
  EXPECT_EQ(manager.GetFirstSystemRec(info), 2002);
  EXPECT_EQ(manager.GetSystemRecCount(), 0);
  EXPECT_EQ(manager.SearchXrefTable(test::KeyNumber(10, 0, 0, 1)), -1);
}

TEST_F(Manager, StoresReplacesAndDeletes) {
  zt_SystemDBMgt_class manager(path_.c_str());
  zt_SystemInfo_class info;
  EXPECT_EQ(manager.PutSystemRec(info), kSysDbNoKey);
  for (int i = 1; i <= 3; ++i)
    ASSERT_EQ(manager.PutSystemRec(System(i, ("s" + std::to_string(i)).c_str())), 0);
  EXPECT_EQ(Counter(), 3);
  EXPECT_EQ(File().size(), 4 * kSlotSize);
  EXPECT_EQ(manager.DBChanged(zt_SystemDBMgt_class::zt_DBStructure_const), 1);
  EXPECT_EQ(manager.DBChanged(zt_SystemDBMgt_class::zt_DBStructure_const), 0);

  ASSERT_EQ(manager.PutSystemRec(System(2, "renamed")), 0);
  EXPECT_EQ(Counter(), 3);
  EXPECT_STREQ(manager.ReturnSystemName(test::KeyNumber(10, 0, 0, 2)), "renamed");
  EXPECT_EQ(manager.GetSystemRec("s2", info), 1005);
  EXPECT_EQ(manager.GetSystemRec("renamed", info), 0);
  EXPECT_EQ(manager.GetSystemRec("RENAMED", info), 1005);

  const std::string before = File();
  EXPECT_EQ(manager.DeleteSystemRec(test::KeyNumber(10, 0, 0, 9)), 1005);
  EXPECT_EQ(File(), before);
  ASSERT_EQ(manager.DeleteSystemRec(test::KeyNumber(10, 0, 0, 2)), 0);
  EXPECT_EQ(manager.SearchXrefTable(test::KeyNumber(10, 0, 0, 2)), -1) << "before any rebuild";
  EXPECT_EQ(manager.SearchXrefTable("renamed"), -1);
  EXPECT_EQ(manager.GetSystemRecCount(), 3) << "of the last build";
  EXPECT_EQ(Counter(), 4);
  EXPECT_EQ(Slot(2), test::DeletedSlot());
  EXPECT_EQ(manager.ReturnSystemName(test::KeyNumber(10, 0, 0, 2)), nullptr);
  ASSERT_EQ(manager.PutSystemRec(System(77, "s77")), 0);
  EXPECT_EQ(Slot(2).substr(kRecordAt, 4), std::string("s77\0", 4)) << "the hole is filled";
}

TEST_F(Manager, FindsEverySystemOfATableThatGrows) {
  constexpr int kSystems = 600;
  const auto key = [](int i) { return test::KeyNumber(10, 0, i / 250, i * 7 % 250); };
  zt_SystemDBMgt_class writer(path_.c_str());
  zt_SystemDBMgt_class reader(path_.c_str());
  zt_SystemInfo_class info;
  SystemKey none = 0;
  const zt_SystemInfo_struct record = System(0, "same").ReturnStruct(none);
  writer.Lock();
  for (int i = 0; i < kSystems; ++i) {
    ASSERT_EQ(writer.PutSystemRec({record, key(i)}), 0);
    ASSERT_EQ(writer.GetSystemRec(key(i), info), 0) << i;
    ASSERT_EQ(writer.GetSystemRec(key(i / 2), info), 0) << i;
    ASSERT_EQ(writer.GetSystemRec(key(i + 1), info), 1005) << i;
  }
  writer.Unlock();
  EXPECT_EQ(File().size(), (kSystems + 1) * kSlotSize);
  for (zt_SystemDBMgt_class* manager : {&writer, &reader}) {
    ASSERT_EQ(manager->GetSystemRec("same", info), 0);
    EXPECT_EQ(info.ReturnSystemKey(), test::KeyNumber(10, 0, 0, 128)) << "the smallest key";
    for (int i = 0; i < kSystems; ++i)
      ASSERT_EQ(manager->GetSystemRec(key(i), info), 0) << i;
    EXPECT_EQ(manager->GetSystemRecCount(), kSystems);
  }
}

TEST_F(Manager, AReaderNeverTakesTheReusedSlotForTheOldSystem) {
  zt_SystemDBMgt_class reader(path_.c_str());
  ASSERT_EQ(reader.PutSystemRec(System(1, "one")), 0);
  zt_SystemInfo_class info;
  ASSERT_EQ(reader.GetSystemRec("one", info), 0);
  // Another system in the slot, and the counter not yet raised.
  test::WriteFile(path_, test::VersionSlot(4) + test::SystemSlot(test::Key(10, 0, 0, 2), "two"));
  EXPECT_EQ(reader.GetSystemRec(test::KeyNumber(10, 0, 0, 1), info), 1005);
}

TEST_F(Manager, FindsTheRecordOfAWriterThatDiedBeforeRaisingTheCounter) {
  zt_SystemDBMgt_class manager(path_.c_str());
  test::WriteFile(path_, test::VersionSlot(4) + test::SystemSlot(test::Key(10, 0, 0, 1), "one"));
  EXPECT_EQ(manager.PutSystemRec(System(1, "again")), 0);
  EXPECT_EQ(File().size(), 2 * kSlotSize) << "replaced, not a second record of the key";
}

// Two managers change the file in turn, under the lock: each table is after every step what a new
// build would make of the file, and the file fills its first hole.
TEST_F(Manager, TablesThatFollowTheirOwnInsertsAgreeWithTheFile) {
  constexpr int kSystems = 120;
  zt_SystemDBMgt_class first(path_.c_str());
  zt_SystemDBMgt_class second(path_.c_str());
  std::mt19937 random(4);
  for (int step = 0; step < 1500; ++step) {
    // Runs of steps by one of the two, mostly inserts at first.
    zt_SystemDBMgt_class& manager = step / 7 % 2 == 0 ? first : second;
    const int octet = static_cast<int>(random() % kSystems) + 1;
    const SystemKey key = test::KeyNumber(10, 0, 0, octet);
    manager.Lock();
    zt_SystemInfo_class info;
    const bool present = manager.GetSystemRec(key, info) == 0;
    if (present && random() % 4 == 0) {
      ASSERT_EQ(manager.DeleteSystemRec(key), 0);
    } else {
      std::size_t hole = 1;
      const std::string before = File();
      while (hole * kSlotSize < before.size() && before[hole * kSlotSize] == 0)
        ++hole;
      ASSERT_EQ(manager.PutSystemRec(System(octet, std::to_string(step).c_str())), 0);
      if (!present) {
        EXPECT_EQ(File()[hole * kSlotSize + 4], octet) << "step " << step;
      }
    }
    manager.Unlock();
    zt_SystemDBMgt_class fresh(path_.c_str());
    first.CheckSystemXrefTable();
    ASSERT_EQ(first.GetSystemRecCount(), fresh.GetSystemRecCount()) << "step " << step;
    for (int i = 1; i <= kSystems; ++i)
      ASSERT_EQ(first.SearchXrefTable(test::KeyNumber(10, 0, 0, i)),
                fresh.SearchXrefTable(test::KeyNumber(10, 0, 0, i)))
          << "step " << step;
    ASSERT_EQ(first.GetSystemRec(key, info), fresh.GetSystemRec(key, info));
  }
}

TEST_F(Manager, NeverTakesADamagedVersionRecordForASystem) {
  Bytes version = test::VersionSlot(4);
  version.Text(1, test::Key(1, 2, 3, 4));
  test::WriteFile(path_, version + FullSlot());
  zt_SystemDBMgt_class manager(path_.c_str());
  ASSERT_EQ(manager.ValidObj(), 1);
  EXPECT_EQ(manager.GetSystemRecCount(), 1);
  EXPECT_EQ(manager.DeleteSystemRec(test::KeyNumber(1, 2, 3, 4)), 1005);
}

TEST_F(Manager, RefusesWhatIsNoDatabaseAndLeavesItAlone) {
  const std::string random = "\x7f garbage " + std::string(600, '\xEE');
  const struct {
    const char* what;
    std::string bytes;
    int error;
  } cases[] = {
      {"version 7", test::VersionSlot(7), 2006},
      {"version 0", std::string(kSlotSize, '\0'), 2006},
      {"a deleted version record", test::DeletedSlot() + FullSlot(), 2006},
      {"one that is marked deleted", Bytes(test::VersionSlot(4)).Number(0, 1, 1), 2006},
      {"random bytes", random, 2006},
      {"a short text", "127.0.0.1 localhost\n", 2006},
      {"half a version record of an older file", test::VersionSlot(3).substr(0, 300), 2006},
      {"half a new version record", test::VersionSlot(4).substr(0, 300), 0},
      {"the first bytes of a new file", test::VersionSlot(4).substr(0, 3), 0}};
  for (const auto& c : cases) {
    test::WriteFile(path_, c.bytes);
    const zt_SystemDBMgt_class manager(path_.c_str());
    EXPECT_EQ(manager.ReturnError(), c.error) << c.what;
    EXPECT_EQ(manager.ValidObj(), c.error == 0) << c.what;
    EXPECT_EQ(File(), c.error == 0 ? test::VersionSlot(4) : c.bytes) << c.what;
  }
}

TEST_F(Manager, NamesTheCompanionFileThatDoesNotOpen) {
  mkdir((path_ + ".lk").c_str(), 0777);
  EXPECT_EQ(zt_SystemDBMgt_class(path_.c_str()).ReturnError(), 2008);
  const std::string other = folder_ / "other";
  mkdir((other + ".sem").c_str(), 0777);
  testing::internal::CaptureStdout();
  const zt_SystemDBMgt_class manager(other.c_str());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Open " + other + ".sem failed\n");
  EXPECT_EQ(manager.ReturnError(), EISDIR);
  EXPECT_EQ(manager.ValidObj(), 0);
}

TEST_F(Manager, SeesTheFilesModificationTimeOnce) {
  zt_SystemDBMgt_class manager(path_.c_str());
  const auto modified = zt_SystemDBMgt_class::zt_DBModification_const;
  EXPECT_EQ(manager.DBChanged(modified), 0);
  const timespec later[2] = {{std::time(nullptr) + 5, 0}, {std::time(nullptr) + 5, 0}};
  utimensat(AT_FDCWD, path_.c_str(), later, 0);
  EXPECT_EQ(manager.DBChanged(modified), 1);
  EXPECT_EQ(manager.DBChanged(modified), 0);
  remove(path_.c_str());
  EXPECT_EQ(manager.DBChanged(modified), 0);
}

TEST_F(Manager, ReadsBackConnectNamesByTheTokenizersRules) {
  zt_SystemDBMgt_class manager(path_.c_str());
  const std::string xref = folder_ / "ztsysxref";
  for (int i = 1; i <= 4; ++i)
    ASSERT_EQ(manager.PutSystemRec(System(i, ("sys" + std::to_string(i)).c_str())), 0);
  const auto name_of = [&](int i) -> std::string {
    const char* name = manager.ReturnBackConnectName(test::KeyNumber(10, 0, 0, i));
    return name != nullptr ? name : "none, " + std::to_string(manager.ReturnError());
  };
  EXPECT_EQ(name_of(1), "none, " + std::to_string(ENOENT));
  test::WriteFile(xref, "lonely\n\nsys1  sys1-alt\n  sys2\t'quoted name' rest\n" +
                            std::string(600, 'x') + " y\nsys3 \nsys4 no line end");
  EXPECT_EQ(name_of(1), "sys1") << "the hyphen ends the second token";
  EXPECT_EQ(name_of(2), "'quoted name'");
  EXPECT_EQ(name_of(3), "none, 0");
  EXPECT_EQ(name_of(4), "none, 0");
  EXPECT_EQ(name_of(9), "none, 1005");
  // Replaced by another file, and then changed in place.
  test::WriteFile(xref + ".new", "sys1 replaced\n");
  rename((xref + ".new").c_str(), xref.c_str());
  EXPECT_EQ(name_of(1), "replaced");
  test::WriteFile(xref, "sys1 changed\n");
  EXPECT_EQ(name_of(1), "changed");
  // Once more, within what the stream has read already.
  test::WriteFile(xref, "sys1 altered\nsys3 x\n");
  EXPECT_EQ(name_of(1), "altered");
  EXPECT_EQ(name_of(3), "x");
  remove(xref.c_str());
  EXPECT_EQ(name_of(1), "none, " + std::to_string(ENOENT));
}

TEST_F(Manager, IsSharedByTheAccessObjectsOfAProcess) {
  const std::string other = folder_ / "other";
  {
    zt_SystemDBAccess_class first(path_.c_str());
    ASSERT_EQ(first.ValidObj(), 1);
    zt_SystemDBAccess_class second(other.c_str());
    ASSERT_EQ(second.PutSystemRec(System(1, "one")), 0);
    EXPECT_EQ(first.GetSystemRecCount(), 0) << "the table as of the last check";
    EXPECT_STREQ(first.ReturnSystemName(test::KeyNumber(10, 0, 0, 1)), "one");
  }
  struct stat about {};
  EXPECT_NE(stat(other.c_str(), &about), 0) << "a second user gets the manager there is";
  zt_SystemDBAccess_class later;
  EXPECT_STREQ(later.ReturnSystemName(test::KeyNumber(10, 0, 0, 1)), "one") << "it stays";
}

TEST_F(Manager, AnUnusableDatabaseRefusesEveryOperation) {
  zt_SystemDBAccess_class db((folder_ / "none/ztdb").c_str());
  EXPECT_EQ(db.ValidObj(), 0);
  zt_SystemInfo_class info;
  EXPECT_EQ(db.GetFirstSystemRec(info), sys::tFILE_ERRORS::cMISSING);
  EXPECT_EQ(db.PutSystemRec(System(1, "one")), sys::tFILE_ERRORS::cMISSING);
  EXPECT_EQ(db.ReturnSystemName(1), nullptr);
}

TEST_F(Manager, ResolvesNamesWithoutAskingTheDatabase) {
  zt_SystemDBAccess_class db(path_.c_str());
  EXPECT_EQ(db.ReturnSystemKey("10.0.0.1   "), test::KeyNumber(10, 0, 0, 1));
  int error = -1;
  EXPECT_EQ(db.ReturnSystemKey("no-such-host.invalid", error), -1);
  EXPECT_EQ(error, 2005);
  EXPECT_EQ(db.ReturnSystemKey(nullptr), -1);
}

TEST_F(Manager, KeepsFiltersAndTranslatesStatuses) {
  zt_SystemDBAccess_class db(path_.c_str());
  EXPECT_EQ(db.ReturnFilters().fAlarmMgrErrorFilter, -1);
  EXPECT_EQ(db.SetFilter(static_cast<FILTER_TYPE>(6), 1), 0);
  EXPECT_EQ(db.ReturnFilters().fFiltersSet, 0);
  EXPECT_EQ(db.SetFilter(GLOBAL_ID, 1), -1);
  EXPECT_EQ(db.ReturnFilters().fFiltersSet, 1);
  EXPECT_EQ(db.SetFilter(ALARM_MGR_ERROR, 7), 0);
  EXPECT_EQ(db.ReturnFilters().fAlarmMgrErrorFilter, 1);
  EXPECT_EQ(db.SetFilter(SYSTEM_TYPE, "x"), -1);
  EXPECT_EQ(db.SetFilter(GLOBAL_GRAPH_ENVIRONMENT, "x"), 0);
  EXPECT_EQ(db.SetFilter(GLOBAL_ID, std::string(300, 'f').c_str()), 0);
  EXPECT_EQ(db.ReturnFilters().fSystemNameFilter, std::string(256, 'f'));
  db.ClearFilter();
  EXPECT_STREQ(db.ReturnFilters().fSystemNameFilter, "");

  const std::pair<int, int> statuses[] = {
      {1005, 28}, {1001, 24}, {1006, 29}, {1007, 4007}, {2000, 1}, {2001, 2}, {2002, 5002},
      {2003, 3},  {2008, 3},  {2005, 5},  {2006, 6},    {0, 0},    {-1, -1},  {2, 3002}};
  for (const auto& [status, message] : statuses) {
    int number = status;
    db.TranslateSysInfoError(number);
    EXPECT_EQ(number, message) << status;
  }
}

}  // namespace
