// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/locale.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/sys/native_path.h"

namespace {

std::string narrow_item(locale::LCTYPE item) {
  char text[200] = "<fails>";
  const int length = locale::GetLocaleInfoA(locale::GetUserDefaultLCID(), item, text, sizeof(text));
  EXPECT_TRUE(length == 0 || length == static_cast<int>(std::string(text).size() + 1));
  return text;
}

void set_variables(const char* all, const char* messages, const char* time, const char* lang) {
  ::setenv("LC_ALL", all, 1);
  ::setenv("LC_MESSAGES", messages, 1);
  ::setenv("LC_TIME", time, 1);
  ::setenv("LC_NUMERIC", "", 1);
  ::setenv("LANG", lang, 1);
}

TEST(Picture, SaysWhatTheStrftimeFormSays) {
  const struct {
    const char* form;
    const char* picture;
  } cases[] = {
      {"%m/%d/%y", "MM/dd/yy"},
      {"%d.%m.%Y", "dd.MM.yyyy"},
      {"%D", "MM/dd/yy"},
      {"%x", "MM/dd/yy"},
      {"%F", "yyyy-MM-dd"},
      {"%-d.%-m.%y", "d.M.yy"},
      {"%e/%m/%Y", "d/MM/yyyy"},
      {"%H:%M:%S", "HH:mm:ss"},
      {"%T", "HH:mm:ss"},
      {"%I:%M:%S %p", "hh:mm:ss tt"},
      {"%r", "hh:mm:ss tt"},
      {"%l:%M", "h:mm"},
      {"%a %d %B", "ddd dd MMMM"},
      {"%Ey/%Om", "yy/MM"},
      {"%d de %B", "dd 'de' MMMM"},
      {"%d'%m", "dd''MM"},
      {"%T %Z", "HH:mm:ss"},
      {"%Y\xE5\xB9\xB4%m", "yyyy\xE5\xB9\xB4MM"},
      {"%Q%d", "dd"},
      {"%", ""},
      {"%-", ""},
      {"", ""},
      {"100%%", "100%"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(locale::picture_from_strftime(c.form), c.picture) << c.form;
  const std::pair<const char*, const char*> short_dates[] = {{"%A, %d %B, %Y", "dd MMMM, yyyy"},
                                                             {"%a\xD8\x8C %d-%m-%Y", "dd-MM-yyyy"},
                                                             {"%OC%Oy %b %Od %A", "yy MMM dd"},
                                                             {"%Y/%m/%d", "yyyy/MM/dd"}};
  for (const auto& [form, picture] : short_dates)
    EXPECT_EQ(locale::short_date_picture(form), picture) << form;
}

TEST(Language, IsAbbreviatedInThreeLetters) {
  const struct {
    const char* name;
    const char* abbreviation;
  } cases[] = {{"C", "ENU"},           {"POSIX", "ENU"},     {"C.UTF-8", "ENU"},
               {"en_US.UTF-8", "ENU"}, {"en_GB", "ENU"},     {"de_DE.UTF-8", "DEU"},
               {"de_AT@euro", "DEU"},  {"fr", "FRA"},        {"ja_JP.eucJP", "JPN"},
               {"pt_BR", "PTB"},       {"pt_PT", "PTG"},     {"zh_TW.UTF-8", "CHT"},
               {"zh_CN", "CHS"},       {"xx_YY", "XXY"},     {"xx", "XXX"},
               {"gsw_CH", "GSW"},      {"../../etc", "ENU"}, {"", "ENU"}};
  for (const auto& c : cases)
    EXPECT_EQ(locale::language_abbreviation(c.name), c.abbreviation) << c.name;
}

TEST(LocaleInfo, DescribesTheCLocale) {
  set_variables("C", "", "", "");
  EXPECT_EQ(narrow_item(locale::LOCALE_SABBREVLANGNAME), "ENU");
  EXPECT_EQ(narrow_item(locale::LOCALE_SSHORTDATE), "MM/dd/yy");
  EXPECT_EQ(narrow_item(locale::LOCALE_SDATE), "/");
  EXPECT_EQ(narrow_item(locale::LOCALE_SLONGDATE), "ddd MMM d yyyy");
  EXPECT_EQ(narrow_item(locale::LOCALE_STIMEFORMAT), "HH:mm:ss");
  EXPECT_EQ(narrow_item(locale::LOCALE_SDECIMAL), ".");
  EXPECT_EQ(narrow_item(locale::LOCALE_S1159), "AM");
  EXPECT_EQ(narrow_item(locale::LOCALE_S2359), "PM");
}

TEST(LocaleInfo, KeepsToTheBufferAndKnowsItsItems) {
  set_variables("C", "", "", "");
  const locale::LCID user = locale::GetUserDefaultLCID();
  char text[9];
  EXPECT_EQ(locale::GetLocaleInfoA(user, locale::LOCALE_SSHORTDATE, nullptr, 0), 9);
  EXPECT_EQ(locale::GetLocaleInfoA(user, locale::LOCALE_SSHORTDATE, text, 8), 0);
  EXPECT_EQ(locale::GetLocaleInfoA(user, locale::LOCALE_SSHORTDATE, text, 9), 9);
  EXPECT_STREQ(text, "MM/dd/yy");
  EXPECT_EQ(locale::GetLocaleInfoA(user, 0x7777, text, 9), 0);
  EXPECT_EQ(locale::GetLocaleInfoA(user + 1, locale::LOCALE_SDATE, text, 9), 0);

  char16_t wide[9];
  EXPECT_EQ(locale::GetLocaleInfoW(user, locale::LOCALE_SSHORTDATE, wide, 9), 9);
  EXPECT_EQ(std::u16string(wide), u"MM/dd/yy");
}

TEST(LocaleInfo, TakesTheFirstVariableThatIsSet) {
  set_variables("", "de_DE", "", "fr_FR");
  EXPECT_EQ(narrow_item(locale::LOCALE_SABBREVLANGNAME), "DEU");
  set_variables("", "", "de_DE", "fr_FR");
  EXPECT_EQ(narrow_item(locale::LOCALE_SABBREVLANGNAME), "FRA");
  set_variables("it_IT", "de_DE", "", "fr_FR");
  EXPECT_EQ(narrow_item(locale::LOCALE_SABBREVLANGNAME), "ITA");
}

TEST(LocaleInfo, ALocaleThatIsNotInstalledReadsAsC) {
  set_variables("no_WHERE", "", "", "");
  EXPECT_EQ(narrow_item(locale::LOCALE_SSHORTDATE), "MM/dd/yy");
  EXPECT_EQ(narrow_item(locale::LOCALE_SDECIMAL), ".");
}

// Locales compiled for the test from the system's sources. They are read in a child that leaves
// without a check for leaks: newlocale never frees its own copy of LOCPATH.
class CompiledLocaleDeathTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists("/usr/share/i18n/locales/de_DE"))
      GTEST_SKIP() << "the package with the sources of locales is not installed";
    char directory[] = "/tmp/locale_test.XXXXXX";
    ASSERT_NE(::mkdtemp(directory), nullptr);
    directory_ = directory;
    ::setenv("LOCPATH", directory, 1);
  }
  void TearDown() override {
    ::unsetenv("LOCPATH");
    if (!directory_.empty())
      std::filesystem::remove_all(directory_);
  }
  // What failed in the child is on its standard output.
  void check_in(const std::string& name, void (*checks)()) {
    set_variables("C", "", "", "");
    const std::string path = directory_ + "/" + name + ".UTF-8";
    const std::string command = "localedef -i " + name + " -f UTF-8 '" + path + "' >/dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    set_variables((name + ".UTF-8").c_str(), "", "", "");
    const auto in_child = [checks] {
      checks();
      std::fflush(stdout);
      ::_exit(HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(in_child(), testing::ExitedWithCode(0), "");
  }

  std::string directory_;
};

TEST_F(CompiledLocaleDeathTest, GivesGermanPictures) {
  check_in("de_DE", [] {
    EXPECT_EQ(narrow_item(locale::LOCALE_SABBREVLANGNAME), "DEU");
    EXPECT_EQ(narrow_item(locale::LOCALE_SSHORTDATE), "dd.MM.yyyy");
    EXPECT_EQ(narrow_item(locale::LOCALE_SDATE), ".");
    EXPECT_EQ(narrow_item(locale::LOCALE_STIMEFORMAT), "HH:mm:ss");
    EXPECT_EQ(narrow_item(locale::LOCALE_SLONGDATE), "ddd dd MMM yyyy");
    EXPECT_EQ(narrow_item(locale::LOCALE_SDECIMAL), ",");
  });
}

TEST_F(CompiledLocaleDeathTest, KeepsLettersBeyondAscii) {
  check_in("ja_JP", [] {
    EXPECT_EQ(narrow_item(locale::LOCALE_SSHORTDATE), "yyyy\u5E74MM\u6708dd\u65E5");
    EXPECT_EQ(narrow_item(locale::LOCALE_SDATE), "/");
    const locale::LCID user = locale::GetUserDefaultLCID();
    char16_t wide[40] = {};
    EXPECT_EQ(locale::GetLocaleInfoW(user, locale::LOCALE_SSHORTDATE, wide, 40), 12);
    EXPECT_EQ(std::u16string(wide), u"yyyy\u5E74MM\u6708dd\u65E5");
  });
}

TEST(NativePath, TranslatesOnlyWhatThePathNeeds) {
  const struct {
    const char* path;
    const char* native;
  } cases[] = {{"c:\\zt\\msg\\C\\", "/zt/msg/C/"},
               {"C:zt\\x", "zt/x"},
               {"c:", "."},
               {"/opt/zt/msg", "/opt/zt/msg"},
               {"a\\b", "a/b"},
               {"", ""},
               {"1:\\x", "1:/x"},
               {"ab:\\x", "ab:/x"}};
  for (const auto& c : cases)
    EXPECT_EQ(sys::native_path(c.path), c.native) << c.path;
}

TEST(NativePath, FileCallsTakeTheWorkstationsForm) {
  struct ::stat status {};
  EXPECT_EQ(sys::_access("c:\\proc\\self\\status", 4), 0);
  EXPECT_EQ(sys::_access("c:\\proc\\self\\nothing", 0), -1);
  EXPECT_EQ(sys::_stat("C:\\proc\\self", &status), 0);
  EXPECT_TRUE(S_ISDIR(status.st_mode));
}

TEST(TempPath, EndsInASlashAndKeepsToTheBuffer) {
  ::setenv("TMPDIR", "/var/scratch", 1);
  char path[14] = "untouched";
  EXPECT_EQ(sys::GetTempPathA(13, path), 14U);
  EXPECT_STREQ(path, "untouched");
  EXPECT_EQ(sys::GetTempPathA(14, path), 13U);
  EXPECT_STREQ(path, "/var/scratch/");
  ::unsetenv("TMPDIR");
  EXPECT_EQ(sys::GetTempPathA(14, path), 5U);
  EXPECT_STREQ(path, "/tmp/");
}

}  // namespace
