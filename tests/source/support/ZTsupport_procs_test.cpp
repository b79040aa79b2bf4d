// SPDX-License-Identifier: Apache-2.0
#include "source/support/ZTsupport_procs.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "shared/general/nt/SHderControlObj.h"

namespace {

using Tokens = std::vector<std::string>;
using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

Stream stream_of(const std::string& text) {
  Stream stream(std::tmpfile(), std::fclose);
  std::fwrite(text.data(), 1, text.size(), stream.get());
  std::rewind(stream.get());
  return stream;
}

Tokens string_tokens(const char* text, int limit = 50) {
  Tokens tokens;
  char token[51];
  int position = 0;
  while (const int length = GetToken(text, token, position, limit)) {
    EXPECT_EQ(length, static_cast<int>(std::strlen(token)));
    tokens.push_back(token);
    text += position + length;
  }
  EXPECT_STREQ(token, "");
  return tokens;
}

Tokens stream_tokens(const std::string& text, int interactive, int limit = 50) {
  const Stream stream = stream_of(text);
  Tokens tokens;
  char token[51];
  while (GetToken(stream.get(), token, limit, interactive))
    tokens.push_back(token);
  return tokens;
}

TEST(Strings, AreMovedAndPacked) {
  char text[9];
  MoveString(text, "ab  cd  ef", 8);
  EXPECT_STREQ(text, "ab  cd");
  MoveString(text, "    ", 8);
  EXPECT_STREQ(text, "");
  MoveString(text, "abcdefghij", 8);
  EXPECT_STREQ(text, "abcdefgh");

  char packed[6] = "#####";
  StringToPacked("abc", packed, 5);
  EXPECT_STREQ(packed, "abc  ");
  StringToPacked("abcdefg", packed, 4);
  EXPECT_STREQ(packed, "abcd ");

  EXPECT_EQ(strrtrim(" a b \t  "), " a b \t");
  EXPECT_EQ(strrtrim("   "), "");
  std::string mixed = "aZ_9\xE9";
  Upshift(mixed);
  EXPECT_EQ(mixed, "AZ_9\xE9");
}

TEST(Strings, CompareWithoutCase) {
  EXPECT_EQ(ptc_strcasecmp("b", "AA"), -1);
  EXPECT_EQ(ptc_strcasecmp("AA", "b"), 1);
  EXPECT_EQ(ptc_strcasecmp("ABC", "abc"), 0);
  EXPECT_LT(ptc_strcasecmp("abC", "abd"), 0);
  EXPECT_EQ(ptc_strncasecmp("ab", "abc", 3), -1);
  EXPECT_EQ(ptc_strncasecmp("abc", "ab", 3), -1);
  EXPECT_EQ(ptc_strncasecmp("abX", "ABy", 2), 0);
  EXPECT_GT(ptc_strncasecmp("abz", "ABy", 3), 0);
}

TEST(StringTokens, AreSplit) {
  char token[20];
  int position = 0;
  EXPECT_EQ(GetToken("  a<=b", token, position, 19), 1);
  EXPECT_EQ(position, 2);

  const struct {
    const char* text;
    Tokens tokens;
  } cases[] = {
      {"  a<=b", {"a", "<=", "b"}},
      {"'x y'", {"'x y'"}},
      {"(a+b)*c/-2 == >", {"(", "a", "+", "b", ")", "*", "c", "/", "-", "2", "=", "=", ">"}},
      {"+= *= >=", {"+=", "*=", ">="}},
      {"\"open end", {"\"open end"}},
      {"it's", {"it's"}},
      {" \t\n ", {}},
      {"", {}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(string_tokens(c.text), c.tokens) << c.text;
}

TEST(StringTokens, DropTabsAndNewlinesWithinQuotes) {
  char token[20];
  int position = 0;
  EXPECT_EQ(GetToken("'a\nb\tc' d", token, position, 19), 5);
  EXPECT_STREQ(token, "'abc'");
  EXPECT_EQ(GetToken("'a\t\t'", token, position, 19), 4);
  EXPECT_STREQ(token, "'a\t'");
}

TEST(StringTokens, KeepToTheirLimit) {
  EXPECT_EQ(string_tokens("abcdef", 4), (Tokens{"abcd", "ef"}));
  EXPECT_EQ(string_tokens("<=", 1), (Tokens{"<", "="}));
  EXPECT_EQ(string_tokens("'abc'", 3), (Tokens{"'ab", "c'"}));
  EXPECT_EQ(string_tokens("abc", 0), Tokens{});
}

TEST(StreamTokens, AreSplit) {
  const struct {
    const char* text;
    int interactive;
    Tokens tokens;
  } cases[] = {
      {"a<=b >c==\nd", 0, {"a", "<=", "b", ">", "c", "=", "=", "d"}},
      {"(a+b)\n'x y'", 0, {"(a+b)", "'x y'"}},
      {"a b\n\nc", 1, {"a", "b", "\n", "\n", "c"}},
      {"'\nx", 1, {"'\n", "x"}},
      {"'a\nb'", 1, {"'ab'"}},
      {"'\nx'", 0, {"'x'"}},
      {"\n \t", 0, {}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(stream_tokens(c.text, c.interactive), c.tokens) << c.text;
  EXPECT_EQ(stream_tokens("abcdef gh", 0, 4), (Tokens{"abcd", "ef", "gh"}));
  char token[4];
  EXPECT_EQ(GetToken(static_cast<std::FILE*>(nullptr), token, 3, 0), 0);
}

TEST(StreamTokens, OfTheFixedFormEndAtWhiteSpaceOnly) {
  const std::string longest(254, 'x');
  const Stream stream = stream_of("a=b<c\n" + longest + "\n" + longest + "y\n");
  char token[256];
  ASSERT_EQ(GetToken(stream.get(), token), 1);
  EXPECT_STREQ(token, "a=b<c");
  ASSERT_EQ(GetToken(stream.get(), token), 1);
  EXPECT_EQ(token, longest);
  EXPECT_EQ(GetToken(stream.get(), token), 0);
}

TEST(StreamTokens, CanBePutBack) {
  const Stream stream = stream_of("first second third");
  const std::string pushed(2000, 'p');
  std::vector<char> token(2001);
  GetToken(stream.get(), token.data(), 2000, 0);
  PutToken(stream.get(), pushed.c_str());
  PutToken(stream.get(), "");
  GetToken(stream.get(), token.data(), 2000, 0);
  EXPECT_EQ(token.data(), pushed);
  GetToken(stream.get(), token.data(), 2000, 0);
  EXPECT_STREQ(token.data(), "second");
}

TEST(Keywords, HaveTheirCodes) {
  const struct {
    const char* token;
    int code;
  } cases[] = {{"MINUTES", 13},  {"MINUTE", 13},    {"minutes", -1}, {"#x", 10},    {"*", 10},
               {"//", 10},       {"//x", -1},       {"/*", 10},      {"REPEAT", 1}, {"IF", 2},
               {"SEVERITY", 11}, {"SHUTDOWN", 105}, {"", -1},        {"IFX", -1}};
  for (const auto& c : cases)
    EXPECT_EQ(ParseToken(c.token), c.code) << c.token;
}

TEST(Lines, AreCopiedWithoutLeadingBlanks) {
  const Stream stream = stream_of("   abc\tdef\n\tx\n\n0123456789\nlast");
  char line[10];
  const char* const expected[] = {"abc\tdef\n", "\tx\n", "\n", "01234567\n", "89\n"};
  for (const char* const text : expected) {
    ASSERT_EQ(CopyToNewLine(line, stream.get(), 8), 1);
    EXPECT_STREQ(line, text);
  }
  EXPECT_EQ(CopyToNewLine(line, stream.get(), 8), 0);
}

TEST(Lines, CanBeSkipped) {
  const Stream stream = stream_of("rest of line\nnext");
  IgnoreToNewLine(stream.get());
  EXPECT_EQ(std::getc(stream.get()), 'n');
  IgnoreToNewLine(stream.get());
  EXPECT_NE(std::feof(stream.get()), 0);
}

TEST(FileTime, IsZeroForAFileThatIsNotThere) {
  EXPECT_EQ(GetFileModTime("/no/such/file"), 0);
  EXPECT_GT(GetFileModTime("c:\\etc\\passwd"), 0);
}

TEST(Times, NeedHourAndMinute) {
  int minute = -1;
  int hour = -1;
  EXPECT_EQ(ReadTime("9:05", minute, hour), 1);
  EXPECT_EQ(hour, 9);
  EXPECT_EQ(minute, 5);
  EXPECT_EQ(ReadTime("at 23.59.58", minute, hour), 1);
  EXPECT_EQ(hour * 100 + minute, 2359);
  for (const char* text : {"905", "", "x:y", "9:99999999999"})
    EXPECT_EQ(ReadTime(text, minute, hour), 0) << text;
}

TEST(Dates, FollowTheOrderOfTheLocale) {
  ::setenv("LC_ALL", "C", 1);
  ::setenv("ZT_REGISTRY", "/dev/null/none", 1);
  int month = 0;
  int day = 0;
  int year = 0;
  const CONTROL_OBJ control("other");
  const struct {
    const char* text;
    int month, day, year;
  } cases[] = {{"7/15/98", 6, 15, 98},    {"7-15-2003", 6, 15, 103}, {"7/15/05", 6, 15, 105},
               {"1/2/1975", 0, 2, 175},   {"1/2/79", 0, 2, 179},     {"1/2/80", 0, 2, 80},
               {"13/45/00", 12, 45, 100}, {"1 2 3 4", 0, 2, 103}};
  for (const auto& c : cases) {
    EXPECT_EQ(ReadDate(c.text, month, day, year), 1) << c.text;
    EXPECT_EQ(month, c.month) << c.text;
    EXPECT_EQ(day, c.day) << c.text;
    EXPECT_EQ(year, c.year) << c.text;
  }
  for (const char* text : {"", "7/15", "0/1/98", "Today", "1/1/99999999999"})
    EXPECT_EQ(ReadDate(text, month, day, year), 0) << text;
}

TEST(Dates, TodayIsTheLocalDate) {
  const std::time_t now = std::time(nullptr);
  const std::tm today = *std::localtime(&now);
  int month = 0;
  int day = 0;
  int year = 0;
  ASSERT_EQ(ReadDate("today", month, day, year), 1);
  std::tm read{};
  read.tm_mon = month;
  read.tm_mday = day;
  read.tm_year = year;
  read.tm_hour = 12;
  read.tm_isdst = -1;
  EXPECT_NEAR(std::difftime(std::mktime(&read), now), 0, 86400);
  EXPECT_EQ(year, today.tm_year);
}

// A control object whose date format can be chosen.
class FormatControl : public BASE_CONTROL_OBJ {
 public:
  explicit FormatControl(const char* format) {
    ++UseCount;
    if (format != nullptr)
      DateFormatString = format;
  }
};

TEST(DateOrder, ComesFromTheFormat) {
  const struct {
    const char* format;
    int year, month, day;
  } cases[] = {
      {"%m/%d/%y", 2, 0, 1},
      {"%d.%m.%Y", 2, 1, 0},
      {"%Y-%m-%d", 0, 1, 2},
      {"%#d %B %Y", 2, 1, 0},
      {"%A, %e %b %y", 2, 1, 0},
      {"%d.%m", 2, 0, 1},
      {"%d %d %m %Y", 2, 0, 1},
      {"%", 2, 0, 1},
      {"", 2, 0, 1},
      {nullptr, 2, 0, 1},
  };
  for (const auto& c : cases) {
    const FormatControl control(c.format);
    int year = 9;
    int month = 9;
    int day = 9;
    LocalDateSequence(&year, &month, &day);
    const char* const shown = c.format == nullptr ? "none" : c.format;
    EXPECT_EQ(year, c.year) << shown;
    EXPECT_EQ(month, c.month) << shown;
    EXPECT_EQ(day, c.day) << shown;
  }
}

}  // namespace
