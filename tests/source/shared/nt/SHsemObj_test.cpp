// SPDX-License-Identifier: Apache-2.0
#include "source/shared/nt/SHsemObj.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/support/test_files.h"

TEST(ChangeCounter, IsSharedAndKeepsRemaindersOfTruncatingDivision) {
  const test::Folder folder;
  const std::string path = folder / "c";
  SEM_OBJ counter(path.c_str(), 'A', 1, 0);
  ASSERT_TRUE(counter.ValidObj());
  EXPECT_EQ(counter.GetSemVal(0), 0);
  EXPECT_EQ(test::ReadFile(path), std::string(4, '\0'));
  for (const auto& [value, stored] : {std::pair{32767, 0}, {32768, 1}, {-5, -5}, {-32768, -1}}) {
    const int wait_status = test::RunInChild([&, value = value] {
      SEM_OBJ other(path.c_str(), 'A', 1, 0);
      return other.SetSemVal(0, value);
    });
    EXPECT_EQ(test::ExitStatus(wait_status), 1);
    EXPECT_EQ(counter.GetSemVal(0), stored);
  }
}

TEST(ChangeCounter, ReportsAFileThatDoesNotOpenOnStandardOutput) {
  const test::Folder folder;
  testing::internal::CaptureStdout();
  const SEM_OBJ counter(folder.path().c_str(), 'A', 1, 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Open " + folder.path() + " failed\n");
  EXPECT_FALSE(counter.ValidObj());
  EXPECT_EQ(counter.ReturnError(), EISDIR);
  EXPECT_EQ(counter.GetSemVal(0), -1);
}
