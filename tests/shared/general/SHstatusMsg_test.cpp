// SPDX-License-Identifier: Apache-2.0
#include "shared/general/SHstatusMsg.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/test_catalog.h"

namespace {

constexpr const char kMessages[] =
    "$set 3\n"
    "1 Cannot contact ! now\n"
    "2 Server stopped\n"
    "3 Twice ! and !\n"
    "4 %d of %s\n";

// Keeps the lines and writes them to a file whose size can be set.
class RecordingFile : public STATUS_FILE_OBJ {
 public:
  explicit RecordingFile(const std::string& path) {
    fStatusFileName = path;
    fStatusLogFP = std::fopen(path.c_str(), "w");
    fStatusLogID = ::fileno(fStatusLogFP);
  }
  void RollStatusFile() override { ++rolls; }
  void WriteMsg(const char* text) override {
    lines.push_back(text);
    std::fprintf(fStatusLogFP, "%s\n", text);
  }
  int LockStatusFile() override { return 1; }
  int UnlockStatusFile() override { return 1; }

  std::vector<std::string> lines;
  int rolls = 0;
};

class StatusLog : public testing::Test {
 protected:
  std::vector<std::string> entry(int message, const char* parameter) {
    const int set = 3;
    file.lines.clear();
    STATUS_MESSAGE_OBJECT::LogStatus(&set, &message, &parameter, 1, 1);
    return file.lines;
  }

  TestCatalog catalog{kMessages};
  NLS_MESSAGE_OBJ messages{catalog.path().c_str()};
  RecordingFile file{catalog.directory() + "/status"};
  STATUS_MESSAGE_OBJECT status{"caller", nullptr, &messages, &file};
};

TEST_F(StatusLog, PutsTheParameterIntoTheLine) {
  const struct {
    int message;
    const char* parameter;
    const char* line;
  } cases[] = {
      {1, "host1   ", "Cannot contact host1 now"},
      {1, nullptr, "Cannot contact  now"},
      {1, "  ", "Cannot contact    now"},
      {2, "rep_server", "Server stopped (rep_server)"},
      {2, nullptr, "Server stopped"},
      {3, "x", "Twice x and !"},
      {12, nullptr, "<message catalog missing message 12 in set 3>"},
      {12, "x", "<message catalog missing message 12 in set 3> (x)"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(entry(c.message, c.parameter), (std::vector<std::string>{" ", c.line}));
}

TEST_F(StatusLog, HeaderNamesCallerTimeAndCustomText) {
  const char* line = "ready !";
  STATUS_MESSAGE_OBJECT::LogStatus(1, &line, 0);
  ASSERT_EQ(file.lines.size(), 3U);
  EXPECT_EQ(file.lines[1].find("**** caller : "), 0U);
  EXPECT_EQ(file.lines[1].find('('), std::string::npos);
  EXPECT_EQ(file.lines[2], "ready !");

  file.lines.clear();
  const std::string custom(600, 'c');
  const STATUS_MESSAGE_OBJECT later("caller", custom.c_str(), &messages, &file);
  STATUS_MESSAGE_OBJECT::LogStatus(0, nullptr, 0);
  ASSERT_EQ(file.lines.size(), 2U);
  EXPECT_TRUE(file.lines[1].ends_with(" (" + custom + ") ****"));
}

TEST_F(StatusLog, FormatsOneMessageWithArguments) {
  STATUS_MESSAGE_OBJECT::WriteStatus(3, 4, 1, 5, "ten");
  EXPECT_EQ(file.lines.back(), "5 of ten");
  STATUS_MESSAGE_OBJECT::WriteStatus(3, 77, 1, 5, "ten");
  EXPECT_EQ(file.lines.back(), "<message catalog missing message 77 in set 3>");
}

TEST_F(StatusLog, RollsAFileAboveAThousandKilobytes) {
  ASSERT_EQ(::ftruncate(file.GetFileID(), 1025023), 0);
  EXPECT_EQ(file.IsTooLarge(), 0);
  ASSERT_EQ(::ftruncate(file.GetFileID(), 1025024), 0);
  EXPECT_EQ(file.IsTooLarge(), 1);
  entry(2, nullptr);
  EXPECT_EQ(file.rolls, 1);
}

TEST_F(StatusLog, WritesNothingWithoutAFile) {
  const STATUS_MESSAGE_OBJECT detached("caller", nullptr, &messages);
  EXPECT_TRUE(entry(1, "x").empty());
  STATUS_MESSAGE_OBJECT::WriteStatus(3, 4, 1, 5, "ten");
  const char* line = "ready";
  STATUS_MESSAGE_OBJECT::LogStatus(1, &line, 0);
  EXPECT_TRUE(file.lines.empty());
}

TEST_F(StatusLog, AnEntryIsFlushed) {
  entry(2, nullptr);
  EXPECT_EQ(std::filesystem::file_size(catalog.directory() + "/status"),
            std::string(" \nServer stopped\n").size());
}

}  // namespace
