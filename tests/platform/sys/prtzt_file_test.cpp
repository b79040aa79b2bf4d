// SPDX-License-Identifier: Apache-2.0
// The file library.

#include "platform/sys/prtzt_file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <string>

#include "tests/support/test_files.h"

namespace {

using sys::tBINFILE;
using sys::tFILE_ERRORS;
using sys::tFILEDEFS;

int Open(tBINFILE& file, const std::string& path) {
  file.SetName(path.c_str());
  return file.OpenAlways(tFILEDEFS::cREADWRITE + tFILEDEFS::cSYNC, 0, tFILEDEFS::cALL_READWRITE);
}

TEST(BinaryFile, MovesItsPositionAsEachCallSays) {
  const test::Folder folder;
  tBINFILE file(nullptr, 1);
  ASSERT_EQ(Open(file, folder / "f"), 0);
  ASSERT_EQ(file.Write("abcdefgh", 8, nullptr), 0);
  std::uint32_t position = 0;
  file.GetPos(&position);
  EXPECT_EQ(position, 8u);
  EXPECT_EQ(file.Seek(tFILEDEFS::cFROMCURRENT, -3, &position), 0);
  EXPECT_EQ(position, 5u);
  char text[9] = "";
  std::uint32_t count = 0;
  EXPECT_EQ(file.Read(text, 8, &count), tFILE_ERRORS::cEOF);
  EXPECT_EQ(std::string(text, count), "fgh");
  EXPECT_EQ(file.Read(text, 1, nullptr), tFILE_ERRORS::cEOF);
  EXPECT_EQ(file.Seek(-1, nullptr), tFILE_ERRORS::cPOSITION);
  EXPECT_EQ(file.Seek(tFILEDEFS::cFROMEND, -9, nullptr), tFILE_ERRORS::cPOSITION);
  EXPECT_EQ(file.Seek(6, nullptr), 0);
  EXPECT_EQ(file.Read(text, 4, nullptr), tFILE_ERRORS::cEOF);
  file.GetPos(&position);
  EXPECT_EQ(position, 6u) << "a read without a count that fails does not move";
  EXPECT_EQ(file.Close(), 0);
  EXPECT_EQ(file.Read(text, 1, nullptr), tFILE_ERRORS::cNOTOPEN);
}

TEST(BinaryFile, TellsWhyAFileDoesNotOpen) {
  const test::Folder folder;
  test::WriteFile(folder / "plain", "");
  chmod((folder / "plain").c_str(), 0666);
  mkfifo((folder / "pipe").c_str(), 0666);
  test::WriteFile(folder / "locked", "");
  chmod((folder / "locked").c_str(), 0444);
  const struct {
    const char* name;
    int status;
  } cases[] = {{"none/f", tFILE_ERRORS::cMISSING}, {"plain/f", tFILE_ERRORS::cMISSING},
               {".", tFILE_ERRORS::cACCESS},       {"pipe", tFILE_ERRORS::cACCESS},
               {"locked", tFILE_ERRORS::cACCESS},  {"plain", 0}};
  for (const auto& c : cases) {
    const int wait_status = test::RunInChild(
        [&] {
          tBINFILE file(nullptr, 1);
          return Open(file, folder / c.name);
        },
        true);
    EXPECT_EQ(test::ExitStatus(wait_status), c.status) << c.name;
  }
}

TEST(BinaryFile, TranslatesTheWorkstationsPaths) {
  const test::Folder folder;
  std::string path = "c:" + (folder / "f");
  for (char& c : path)
    if (c == '/')
      c = '\\';
  tBINFILE file(nullptr, 1);
  EXPECT_EQ(Open(file, path), 0);
  struct stat about {};
  EXPECT_EQ(stat((folder / "f").c_str(), &about), 0);
}

TEST(BinaryFile, TakesBackAWriteThatTheSystemCutsShort) {
  const test::Folder folder;
  const std::string before = "0123456789";
  test::WriteFile(folder / "f", before);
  const int wait_status = test::RunInChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{15, 15};
    setrlimit(RLIMIT_FSIZE, &limit);
    tBINFILE file(nullptr, 1);
    if (Open(file, folder / "f") != 0 || file.Seek(5, nullptr) != 0)
      return 99;
    const int status = file.Write("abcdefghijklmnopqrst", 20, nullptr);
    std::uint32_t position = 0;
    file.GetPos(&position);
    return position == 5 ? status : 98;
  });
  EXPECT_EQ(test::ExitStatus(wait_status), tFILE_ERRORS::cFULL);
  EXPECT_EQ(test::ReadFile(folder / "f"), before);
}

TEST(BinaryFile, LocksExcludeOtherOpenFilesUntilReleasedOrClosed) {
  const test::Folder folder;
  tBINFILE one(nullptr, 1);
  tBINFILE two(nullptr, 1);
  ASSERT_EQ(Open(one, folder / "f"), 0);
  ASSERT_EQ(Open(two, folder / "f"), 0);
  const unsigned nowait = tFILEDEFS::cLOCK_NOWAIT;
  ASSERT_EQ(one.LockRegion(1, 0), 0);
  EXPECT_EQ(two.LockRegion(1, nowait), tFILE_ERRORS::cLOCKED);
  EXPECT_EQ(two.LockRegion(1, nowait | tFILEDEFS::cLOCK_SHARED), tFILE_ERRORS::cLOCKED);
  {
    tBINFILE three(nullptr, 1);  // a third file object comes and goes in the process
    ASSERT_EQ(Open(three, folder / "f"), 0);
  }
  EXPECT_EQ(two.LockRegion(1, nowait), tFILE_ERRORS::cLOCKED);
  EXPECT_EQ(one.UnlockRegion(1), 0);
  EXPECT_EQ(two.LockRegion(1, nowait), 0);
  two.Close();
  EXPECT_EQ(one.LockRegion(1, nowait), 0);
}

}  // namespace
