// SPDX-License-Identifier: Apache-2.0
#include "shared/general/SHNLSmsg.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/sys/catalog.h"
#include "tests/support/test_catalog.h"

namespace {

constexpr const char kMessages[] =
    "$set 20\n"
    "1 Cannot contact ! now\n"
    "2 First ! and second!\n"
    "3 No marker\n"
    "4 100%% of !\n"
    "5 %s %n %d!\n"
    "10 %d systems of %s\n"
    "11 %s systems of %d\n"
    "12 %999999999d of %s\n"
    "13 %*d of %s\n"
    "14 %i%% of '%-8.3s'\n";

using Messages = NLS_MESSAGE_OBJ;

TEST(NoCatalog, EveryMessageReadsAsItsFallback) {
  const Messages none("/no/such/catalog");
  EXPECT_EQ(Messages::FormatNLSmessage(20, 104, "node1"),
            "<message catalog missing message 104 in set 20>");
  EXPECT_EQ(Messages::CreateNLSmessage(20, 104, "%d stays", 7), "%d stays");
  EXPECT_EQ(Messages::CreateNLSmessage(20, 104, nullptr), "");
  EXPECT_STREQ(Messages::GetNLSmessage(20, 104, "default"), "default");
  EXPECT_EQ(Messages::GetNLSmessage(20, 104, nullptr), nullptr);
}

class Catalog : public testing::Test {
 protected:
  TestCatalog file{kMessages};
  Messages messages{file.path().c_str()};
};

TEST_F(Catalog, SubstitutesTheFirstMarker) {
  const std::string missing = "<message catalog missing message 99 in set 20>";
  const struct {
    int message;
    const char* parameter;
    std::string text;
  } cases[] = {
      {1, "host1", "Cannot contact host1 now"},
      {1, "my host  ", "Cannot contact my host now"},
      {1, "   ", "Cannot contact     now"},
      {1, "", "Cannot contact ! now"},
      {1, nullptr, "Cannot contact ! now"},
      {1, "a!b%s%%", "Cannot contact a!b%s%% now"},
      {2, "abc", "First abc and second!"},
      {3, "abc", "No marker"},
      {4, "disk", "100% of disk"},
      {5, "x", "%s %n %dx"},
      {99, "node1", missing},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Messages::FormatNLSmessage(20, c.message, c.parameter), c.text) << c.message;
  EXPECT_EQ(Messages::FormatNLSmessage(21, 1, "x"),
            "<message catalog missing message 1 in set 21>");
}

TEST_F(Catalog, CutsNoLongParameter) {
  const std::string parameter(5000, 'p');
  EXPECT_EQ(Messages::FormatNLSmessage(20, 1, parameter.c_str()),
            "Cannot contact " + parameter + " now");
}

TEST_F(Catalog, FormatsArguments) {
  const std::string long_name(3000, 'n');
  EXPECT_EQ(Messages::CreateNLSmessage(20, 10, "%d %s", 3, long_name.c_str()),
            "3 systems of " + long_name);
  EXPECT_EQ(Messages::CreateNLSmessage(20, 99, "%d missing %s", 3, "x"), "3 missing x");
  EXPECT_EQ(Messages::CreateNLSmessage(20, 14, "%d %s", 50, "abcdef"), "50% of 'abc     '");
}

TEST_F(Catalog, ATextThatAsksForOtherArgumentsIsNotUsed) {
  for (const int message : {5, 11, 12, 13})
    EXPECT_EQ(Messages::CreateNLSmessage(20, message, "%d of %s", 3, "x"), "3 of x") << message;
}

TEST(CatalogCalls, OpenOnlyCatalogs) {
  const TestCatalog file("$set 1\n1 text\n");
  const std::string garbage = file.directory() + "/garbage";
  std::ofstream(garbage) << std::string(4096, 'g');
  const std::string cut = file.directory() + "/cut";
  std::filesystem::copy_file(file.path(), cut);
  std::filesystem::resize_file(cut, std::filesystem::file_size(cut) - 3);
  const std::string pipe = file.directory() + "/pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& path : {garbage, cut, pipe, file.directory(), std::string()})
    EXPECT_EQ(catalog::catopen(path.c_str(), 0), -1) << path;

  const std::string workstation_path = "c:" + file.directory() + "\\messages";
  const int descriptor = catalog::catopen(workstation_path.c_str(), 0);
  ASSERT_GE(descriptor, 0);
  EXPECT_STREQ(catalog::catgets(descriptor, 1, 1, nullptr), "text");
  EXPECT_EQ(catalog::catclose(descriptor), 0);
  EXPECT_EQ(catalog::catclose(descriptor), -1);
  EXPECT_STREQ(catalog::catgets(descriptor, 1, 1, "closed"), "closed");
}

TEST(CatalogCalls, APathWithoutASlashIsNeverSearchedFor) {
  const TestCatalog file("$set 1\n1 text\n");
  ::setenv("NLSPATH", (file.directory() + "/%N").c_str(), 1);
  EXPECT_EQ(catalog::catopen("messages", 0), -1);
  ::unsetenv("NLSPATH");

  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(file.directory());
  const int descriptor = catalog::catopen("messages", 0);
  std::filesystem::current_path(before);
  EXPECT_GE(descriptor, 0);
  catalog::catclose(descriptor);
}

TEST(NLSDateTime, IsTheLocalTimeInOneBuffer) {
  const std::time_t now = std::time(nullptr);
  const char* const text = Messages::GetNLSDateTime();
  std::tm read{};
  ASSERT_NE(::strptime(text, "%m/%d/%y %H:%M:%S", &read), nullptr) << text;
  read.tm_isdst = -1;
  EXPECT_NEAR(static_cast<double>(std::mktime(&read)), static_cast<double>(now), 2);
  EXPECT_EQ(Messages::GetNLSDateTime(), text);
}

}  // namespace
