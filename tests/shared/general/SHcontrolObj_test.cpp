// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "shared/general/nt/SHderControlObj.h"

namespace {

constexpr const char kZentrace[] = "Zentrace Analyzer";
constexpr const char kHalvex[] = "Halvex Agent";
constexpr const char kTallyman[] = "Tallyman";

// An environment without settings, and a settings file to fill.
class Control : public testing::Test {
 protected:
  void SetUp() override {
    char directory[] = "/tmp/control_test.XXXXXX";
    ASSERT_NE(::mkdtemp(directory), nullptr);
    directory_ = directory;
    for (const char* name : {"PTC_CATDIR", "PTC_LOGDIR", "PTC_HELPDIR", "PTC_DBDIR"})
      ::unsetenv(name);
    ::setenv("LC_ALL", "C", 1);
    ::setenv("ZT_REGISTRY", (directory_ + "/none.reg").c_str(), 1);
    std::ofstream(directory_ + "/none.reg") << "REGEDIT4\n";
  }
  void TearDown() override { std::filesystem::remove_all(directory_); }

  // Product keys with the two values; a null value is left out.
  struct Product {
    const char* name;
    const char* application;
    const char* data;
  };
  void install(std::initializer_list<Product> products) {
    static int files = 0;
    const std::string path = directory_ + "/" + std::to_string(++files) + ".reg";
    std::ofstream file(path);
    file << "Windows Registry Editor Version 5.00\n";
    for (const Product& product : products) {
      file << "[HKEY_LOCAL_MACHINE\\Software\\Moraine\\" << product.name << "\\CurrentVersion]\n";
      const auto value = [&file](const char* name, const char* text) {
        if (text == nullptr)
          return;
        file << '"' << name << "\"=\"";
        for (const char* c = text; *c != '\0'; ++c)
          file << (*c == '\\' ? "\\\\" : std::string(1, *c));
        file << "\"\n";
      };
      value("CommonApplicationPath", product.application);
      value("CommonDataPath", product.data);
    }
    file.close();
    ::setenv("ZT_REGISTRY", path.c_str(), 1);
  }

  std::string directory_;
};

TEST_F(Control, FillsEverySettingFromTheRegistry) {
  install({{kZentrace, "C:\\prog", "D:/data/"}});
  ::setenv("TMPDIR", "/scratch", 1);
  const CONTROL_OBJ control("zt/", "ztcomm");
  ::unsetenv("TMPDIR");
  const struct {
    const char* value;
    const char* expected;
  } cases[] = {
      {CONTROL_OBJ::GetProductDirectory(), "zt\\"},
      {CONTROL_OBJ::GetProgramName(), "ztcomm"},
      {CONTROL_OBJ::GetCatalogDirectory(), "C:\\prog\\msg\\C\\"},
      {CONTROL_OBJ::GetObjDirectory(), "C:\\prog\\bin\\"},
      {CONTROL_OBJ::GetTempDirectory(), "/scratch/"},
      {CONTROL_OBJ::GetConfigDirectory(), "D:/data/"},
      {CONTROL_OBJ::GetDataDirectory(), "D:/data/datafiles\\"},
      {CONTROL_OBJ::GetHelpDirectory(), "C:\\prog\\help\\zt\\C\\"},
      {CONTROL_OBJ::GetMetricHelpDirectory(), "C:\\prog\\help\\C\\metricfiles\\"},
      {CONTROL_OBJ::GetDatabaseDirectory(), "D:/data/datafiles\\"},
      {CONTROL_OBJ::GetReportDirectory(), "D:/data/"},
      {CONTROL_OBJ::GetIconDirectory(), "C:\\prog\\bitmaps\\C\\"},
      {CONTROL_OBJ::GetExeDirectory(), "C:\\prog\\bin\\"},
      {CONTROL_OBJ::GetLibDirectory(), "C:\\prog\\lib\\"},
      {CONTROL_OBJ::GetControlFileName(), "D:/data/ztctrl\\"},
      {CONTROL_OBJ::GetParmFileName(), "parm.hxc"},
      {CONTROL_OBJ::GetTimeFormatString(), "%H:%M:%S"},
      {CONTROL_OBJ::GetDateFormatString(), "%m/%d/%y"},
      {CONTROL_OBJ::GetDateTimeFormatString(), "%m/%d/%y %H:%M:%S"},
      {CONTROL_OBJ::GetAMString(), "AM"},
  };
  for (const auto& c : cases)
    EXPECT_STREQ(c.value, c.expected);
  EXPECT_EQ(CONTROL_OBJ::GetRadixCharacter(), '.');
  EXPECT_EQ(CONTROL_OBJ::ReturnPlatform(), 7);
}

TEST_F(Control, AsksTheProductsKeysInItsOrder) {
  const Product zentrace{kZentrace, "z:", nullptr};
  const Product halvex{kHalvex, "h:", nullptr};
  const Product tallyman{kTallyman, "t:", nullptr};
  const struct {
    const char* product;
    std::initializer_list<Product> installed;
    const char* application;
  } cases[] = {
      {"zt/", {zentrace, halvex, tallyman}, "z:lib\\"},
      {"zt/", {halvex, tallyman}, "h:lib\\"},
      {"zt/", {tallyman}, "t:lib\\"},
      {"zt/", {}, "c:\\lib\\"},
      {"hxa/", {zentrace, halvex}, "h:lib\\"},
      {"hxa/", {zentrace, tallyman}, "z:lib\\"},
      {"other", {zentrace, halvex, tallyman}, "c:\\lib\\"},
  };
  for (const auto& c : cases) {
    install(c.installed);
    const CONTROL_OBJ control(c.product);
    EXPECT_STREQ(CONTROL_OBJ::GetLibDirectory(), c.application) << c.product;
    EXPECT_STREQ(CONTROL_OBJ::GetConfigDirectory(), "c:\\") << c.product;
  }
}

TEST_F(Control, AKeyWithoutTheValueIsNotPassedOver) {
  install({{kZentrace, nullptr, nullptr}, {kHalvex, "h:\\", "h:\\"}});
  const CONTROL_OBJ control("zt/");
  EXPECT_STREQ(CONTROL_OBJ::GetLibDirectory(), "c:\\lib\\");
}

TEST_F(Control, ALongDirectoryIsNotCut) {
  const std::string directory = "/" + std::string(400, 'd');
  install({{kZentrace, directory.c_str(), ""}});
  const CONTROL_OBJ control("zt/");
  EXPECT_EQ(CONTROL_OBJ::GetLibDirectory(), directory + "\\lib\\");
  EXPECT_STREQ(CONTROL_OBJ::GetConfigDirectory(), "");
}

TEST_F(Control, VariablesReplaceOneDirectoryEach) {
  install({{kZentrace, "C:\\prog", "D:\\data"}});
  ::setenv("PTC_DBDIR", "D:\\x", 1);
  ::setenv("PTC_LOGDIR", "/log/", 1);
  ::setenv("PTC_HELPDIR", "", 1);
  ::setenv("PTC_CATDIR", "/cat", 1);
  const CONTROL_OBJ control("zt/");
  EXPECT_STREQ(CONTROL_OBJ::GetReportDirectory(), "D:\\x\\");
  EXPECT_STREQ(CONTROL_OBJ::GetDataDirectory(), "/log/");
  EXPECT_STREQ(CONTROL_OBJ::GetHelpDirectory(), "");
  EXPECT_STREQ(CONTROL_OBJ::GetMetricHelpDirectory(), "");
  EXPECT_STREQ(CONTROL_OBJ::GetCatalogDirectory(), "/cat\\");
  EXPECT_STREQ(CONTROL_OBJ::GetDatabaseDirectory(), "D:\\data\\datafiles\\");
  EXPECT_STREQ(CONTROL_OBJ::GetConfigDirectory(), "D:\\data\\");
}

TEST_F(Control, TheUsersLanguageServesWhereItHasACatalog) {
  install({{kZentrace, directory_.c_str(), nullptr}});
  ::setenv("LC_ALL", "de_DE.UTF-8", 1);
  {
    const CONTROL_OBJ control("zt/");
    EXPECT_EQ(CONTROL_OBJ::GetCatalogDirectory(), directory_ + "\\msg\\C\\");
    EXPECT_EQ(CONTROL_OBJ::GetIconDirectory(), directory_ + "\\bitmaps\\C\\");
  }
  std::filesystem::create_directories(directory_ + "/msg/DEU");
  std::ofstream(directory_ + "/msg/DEU/ztmsgs") << "x";
  const CONTROL_OBJ control("zt/");
  EXPECT_EQ(CONTROL_OBJ::GetCatalogDirectory(), directory_ + "\\msg\\DEU\\");
  EXPECT_EQ(CONTROL_OBJ::GetHelpDirectory(), directory_ + "\\help\\zt\\DEU\\");
}

TEST_F(Control, LaterObjectsChangeNothingAndTheLastOneClears) {
  auto first = std::make_unique<CONTROL_OBJ>("zt/", "first");
  {
    const CONTROL_OBJ second("hxa/", "second");
    EXPECT_STREQ(CONTROL_OBJ::GetProgramName(), "first");
  }
  EXPECT_STREQ(CONTROL_OBJ::GetProductDirectory(), "zt\\");
  CONTROL_OBJ::SetResource("X", 1);
  first.reset();
  EXPECT_EQ(CONTROL_OBJ::GetProductDirectory(), nullptr);
  EXPECT_EQ(CONTROL_OBJ::GetDateFormatString(), nullptr);
  EXPECT_EQ(CONTROL_OBJ::GetHyperHelpPath(), nullptr);
  int value = 5;
  EXPECT_EQ(CONTROL_OBJ::GetResource("X", value), 0);
}

TEST_F(Control, WithoutAProductEveryDirectoryIsTheDefault) {
  install({{kZentrace, "C:\\prog", "D:\\data"}});
  const CONTROL_OBJ control;
  EXPECT_STREQ(CONTROL_OBJ::GetCatalogDirectory(), "c:\\");
  EXPECT_STREQ(CONTROL_OBJ::GetHelpDirectory(), "c:\\");
  EXPECT_STREQ(CONTROL_OBJ::GetControlFileName(), "c:\\ztctrl");
  CONTROL_OBJ::SetResource("X", 1);
  CONTROL_OBJ::SetDirectory(nullptr);
  EXPECT_STREQ(CONTROL_OBJ::GetCatalogDirectory(), "");
  EXPECT_STREQ(CONTROL_OBJ::GetControlFileName(), "c:\\ztctrl");
  int value = 5;
  EXPECT_EQ(CONTROL_OBJ::GetResource("X", value), 0);
}

TEST_F(Control, ResourcesAnswerByNameAndKindInTheirOrder) {
  const CONTROL_OBJ control("zt/");
  CONTROL_OBJ::SetResource("X", "text");
  CONTROL_OBJ::SetResource("X", 7);
  CONTROL_OBJ::SetResource("X", 8);
  CONTROL_OBJ::SetResource(std::unique_ptr<RESOURCE_OBJ>());
  const char* text = nullptr;
  int number = 0;
  EXPECT_EQ(CONTROL_OBJ::GetResource("X", &text), 1);
  EXPECT_STREQ(text, "text");
  EXPECT_EQ(CONTROL_OBJ::GetResource("X", number), 1);
  EXPECT_EQ(number, 7);
  EXPECT_EQ(CONTROL_OBJ::GetResource("x", &text), 0);
  EXPECT_EQ(text, nullptr);
}

TEST(ControlPictures, BecomeStrftimePictures) {
  const struct {
    const char* picture;
    const char* format;
  } cases[] = {
      {"M/d/yyyy", "%#m/%#d/%Y"},
      {"h:mm:ss tt", "%#I:%M:%S %p"},
      {"dd.MM.yy", "%d.%m.%y"},
      {"dddd, MMMM dd", "%A, %B %d"},
      {"ddd d MMM", "%a %#d %b"},
      {"HH:m:s", "%H:%#M:%#S"},
      {"H hh t", "%#H %I %p"},
      {"gg y g yyy", "%N %y g %y"},
      {"dddddd", "%A%d"},
      {"yyyyy", "%Y%y"},
      {"", ""},
      {"e%x", "e%x"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(CONTROL_OBJ::NTtoUnix(c.picture), c.format) << c.picture;
}

}  // namespace
