// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/printable.h"

#include <gtest/gtest.h>

namespace {

TEST(Printable, ReplacesControlCharactersOnly) {
  struct Text {
    const char* given;
    const char* shown;
  };
  const Text texts[] = {
      {"plain text", "plain text"},
      {"a\nb\tc\r\x1b[31m\x7f", "a?b?c??[31m?"},
      {"gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80",
       "gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x98\x80"},
      {"csi \xc2\x9b"
       "31m",
       "csi ?31m"},  // as UTF-8
      {"csi \x9b"
       "31m \x85",
       "csi ?31m ?"},  // as single bytes
      {"latin \xe9t\xe9", "latin \xe9t\xe9"},
      {"cut \xe2\x82", "cut \xe2?"},
      {"\xc0\x9b \xed\xa0", "\xc0? \xed\xa0"},
      {"\xe0\x82\x9b \xf0\x80\x82\x9b \xc1\xbf", "\xe0?? \xf0??? \xc1?"},  // longer than need be
  };
  for (const Text& text : texts)
    EXPECT_EQ(text.shown, sys::printable(text.given));
  EXPECT_EQ("a?b", sys::printable(std::string_view("a\0b", 3)));
}

TEST(JsonQuoted, EscapesWhatNoReaderWants) {
  EXPECT_EQ(sys::json_quoted("a \"b\" c:\\d"), "\"a \\\"b\\\" c:\\\\d\"");
  EXPECT_EQ(sys::json_quoted("\n\x7f\xc2\x85 \xc3\xbc \xe9"),
            "\"\\u000a\\u007f\\u0085 \xc3\xbc \\ufffd\"");
}

}  // namespace
