// SPDX-License-Identifier: Apache-2.0
#include "present/util/util.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "present/util/short_date.h"
#include "present/util/variable.h"

namespace {

constexpr std::uint32_t kAfternoon = 911404805;  // 1998-11-18 16:00:05 UTC

DateTime at(std::uint32_t seconds) {
  DateTime time;
  time.SetGmt(seconds);
  return time;
}

void use_zone(const char* zone) {
  ::setenv("LC_ALL", "C", 1);
  ::setenv("TZ", zone, 1);
  ::tzset();
  SetLocalTime(at(1));  // forgets the time broken down last, whatever zone it was in
}

TEST(DateTimeValue, ComparesWithoutSign) {
  const DateTime unset;
  EXPECT_TRUE(unset.Initialized() == 0 && at(0).Initialized() == 1);
  EXPECT_TRUE(at(0x80000000U) > at(0x7FFFFFFFU));
  EXPECT_TRUE(unset > at(0xFFFFFFFEU));
  EXPECT_TRUE(at(5) == at(5) && at(5) != at(6) && at(5) < at(6));
  EXPECT_TRUE(at(5) <= at(5) && at(5) >= at(5) && !(at(5) < at(5)));
}

TEST(DateTimeFormat, IsLocal) {
  use_zone("UTC0");
  EXPECT_STREQ(at(kAfternoon).FmtDateTime(), "11/18/98 16:00");
  EXPECT_STREQ(at(0).FmtDateTime(), "01/01/70 00:00");
  EXPECT_STREQ(at(0xFFFFFFFEU).FmtDateTime(), "02/07/06 06:28");
  use_zone("EST5");
  EXPECT_STREQ(at(kAfternoon).FmtTime(), "11:00:05");
  EXPECT_STREQ(at(0).FmtMdy(), "12/31/69");
}

TEST(DateTimeFormat, SharesBuffersAsDeclared) {
  use_zone("UTC0");
  const char* const time = at(kAfternoon).FmtTime();
  const char* const day = at(kAfternoon).FmtMdy();
  EXPECT_STREQ(time, "16:00:05");
  EXPECT_STREQ(day, "11/18/98");
  at(kAfternoon + 3600).FmtHrMin();
  EXPECT_STREQ(time, "17:00");
}

TEST(ShortDate, FollowsTheWidePicture) {
  const struct {
    const char16_t* picture;
    const char16_t* separator;
    const char* format;
  } cases[] = {
      {u"M/d/yy", u"/", "%m/%d/%y"},
      {u"dd.MM.yyyy", u".", "%d.%m.%Y"},
      {u"yyyy-MM-dd", u"-", "%Y-%m-%d"},
      {u"d MMMM yyy", u" ", "%d %m %y"},
      {u"Mdyyyy", u"/", "%m%d%Y"},
      {u"yyyy\u5E74MM\u6708dd\u65E5", u"/", "%Y/%m/%d/"},
      {u"M/d/yy", u"%", "%m%%%d%%%y"},
      {u"M/d/yy", u"\u012F", "%m/%d/%y"},
      {u"", u"/", ""},
      {u"'x'", u"/", ""},
  };
  for (const auto& c : cases)
    EXPECT_EQ(ShortDateFormatFromWide(c.picture, c.separator), c.format);
}

TEST(ShortDate, FollowsTheNarrowPictureMoreFinely) {
  const struct {
    const char* picture;
    const char* format;
  } cases[] = {{"M/d/yy", "%-m/%-d/%y"},
               {"MM/dd/yyyy", "%m/%d/%Y"},
               {"dd-MMM-yy", "%d/%b/%y"},
               {"d.M.yyy", "%-d/%-m/%y"}};
  for (const auto& c : cases)
    EXPECT_EQ(ShortDateFormatFromNarrow(c.picture, "/"), c.format) << c.picture;
}

TEST(FatalDeathTest, ReportsInThreeLinesAndEndsWithStatusOne) {
  EXPECT_EXIT(Fatal("some/module", 42, "went wrong"), testing::ExitedWithCode(1),
              "^\\*{5} FATAL ERROR \\*{7}\nModule: some/module  Line: 42\nwent wrong\n$");
}

TEST(FatalDeathTest, MeetsEveryUseOfAnUnsetTime) {
  const DateTime unset;
  const char* const report =
      "Module: present/util/utilx  Line: [0-9]+\nInvalid operation on uninitialized DateTime\n";
  EXPECT_EXIT(unset.FmtTime(), testing::ExitedWithCode(1), report);
  EXPECT_EXIT(unset.FmtHrMin(), testing::ExitedWithCode(1), report);
  EXPECT_EXIT(unset.FmtMdy(), testing::ExitedWithCode(1), report);
  EXPECT_EXIT(unset.FmtDateTime(), testing::ExitedWithCode(1), report);
  EXPECT_EXIT(SetLocalTime(unset), testing::ExitedWithCode(1), report);
}

FieldParm numeric_field(unsigned scale) {
  FieldParm field;
  field.numeric = 1;
  field.scale = scale & 0x3FF;
  return field;
}

TEST(NumericVariable, ScalesWhatItIsAssigned) {
  const struct {
    unsigned scale;
    int raw;
    double number;
  } cases[] = {{3, 12345, 12.345}, {0, 12345, 12345.0}, {1, -250, -25.0}, {2, 1234, 12.34}};
  for (const auto& c : cases) {
    Variable variable("METRIC", numeric_field(c.scale), 1);
    EXPECT_EQ(variable.GetNumber(), 0.0);
    variable = c.raw;
    EXPECT_DOUBLE_EQ(variable.GetNumber(), c.number);
    EXPECT_EQ(variable.numeric(), 1);
  }
}

TEST(VariableDeathTest, IsNotUsedAgainstItsKind) {
  Variable number("N", numeric_field(0), 1);
  Variable text("T", FieldParm{}, 1);
  EXPECT_EXIT(number = "x", testing::ExitedWithCode(1), "Numeric value assigned a string");
  EXPECT_EXIT(text = 1, testing::ExitedWithCode(1), "Alphanumeric value assigned a number");
  EXPECT_EXIT(number.GetString(), testing::ExitedWithCode(1), "GetString on numeric variable");
  EXPECT_EXIT(text.GetNumber(), testing::ExitedWithCode(1), "GetNumber on alphanumeric variable");
}

TEST(ValueDeathTest, HasNoNumberForAText) {
  Value value;
  value.SetScaledVal(1025, 70);
  EXPECT_DOUBLE_EQ(value.number(), 7.0);
  value = "text";
  EXPECT_EXIT(value.number(), testing::ExitedWithCode(1), "Invalid operation on Value type");
}

}  // namespace
