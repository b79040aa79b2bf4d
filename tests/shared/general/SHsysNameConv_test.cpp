// SPDX-License-Identifier: Apache-2.0
#include "shared/general/SHsysNameConv.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/sys/sockets.h"

namespace {

constexpr SystemKey kLoopback = 16777343;

TEST(SystemKey, FormatsBothTexts) {
  const struct {
    SystemKey key;
    const char* dotted;
  } cases[] = {{50462986, "10.1.2.3"},   {167880896, "192.168.1.10"},
               {kLoopback, "127.0.0.1"}, {-939524086, "10.0.0.200"},
               {0, "0.0.0.0"},           {-1, "255.255.255.255"}};
  for (const auto& c : cases) {
    char text[kKeyTextSize];
    SystemKeyToIPAddr(c.key, text);
    EXPECT_STREQ(text, c.dotted);
    SystemKeyToSocketString(c.key, text);
    EXPECT_EQ(text, std::string("#") + c.dotted);
  }
}

TEST(SystemKey, OnlyTheExactFlagAsksForTheSign) {
  ptc_KeyConversion_struct key;
  key.Int = 50462986;
  char text[kKeyTextSize];
  SHformatSystemKey(key, text, static_cast<logical_flag>(2));
  EXPECT_STREQ(text, "10.1.2.3");
}

TEST(NameToKey, TakesAddressesWithoutALookup) {
  SystemKey key = 0;
  char address[] = "10.1.2.3";
  EXPECT_EQ(ARPANameToSystemKey(address, key), 0);
  EXPECT_EQ(key, 50462986);
}

TEST(NameToKey, CutsTrailingBlanksInPlace) {
  SystemKey key = 0;
  char name[] = "localhost   ";
  EXPECT_EQ(ARPANameToSystemKey(name, key), 0);
  EXPECT_EQ(key, kLoopback);
  EXPECT_STREQ(name, "localhost");
}

TEST(NameToKey, WhatIsNoAddressGivesTheKeyOfNone) {
  const std::string too_long(300, 'x');
  for (const std::string& text : {std::string(), std::string("   "), too_long,
                                  std::string("255.255.255.255"), std::string("0xffffffff")}) {
    std::string name = text;
    SystemKey key = 0;
    EXPECT_EQ(ARPANameToSystemKey(name.data(), key), -1) << text;
    EXPECT_EQ(key, kNoSystemKey) << text;
  }
  char blanks[] = "   ";
  SystemKey key = 0;
  ARPANameToSystemKey(blanks, key);
  EXPECT_STREQ(blanks, "");
}

TEST(KeyToName, CopiesOnlyANameThatFits) {
  char name[kHostNameSize] = "before";
  EXPECT_EQ(SystemKeyToARPAName(kLoopback, name, 9), -1);
  EXPECT_STREQ(name, "before");
  EXPECT_EQ(SystemKeyToARPAName(kLoopback, name, 10), 0);
  EXPECT_STREQ(name, "localhost");
  EXPECT_EQ(SystemKeyToARPAName(kLoopback, name, -5), -1);
}

TEST(KeyToName, TheKeyOfNoneHasNoName) {
  char name[kHostNameSize] = "before";
  EXPECT_EQ(SystemKeyToARPAName(kNoSystemKey, name, sizeof(name)), -1);
  EXPECT_STREQ(name, "before");
}

TEST(SocketString, ComesFromALookup) {
  char text[kKeyTextSize] = "before";
  EXPECT_EQ(GetSocketString("", text), -2);
  EXPECT_EQ(GetSocketString("255.255.255.255", text), -2);
  EXPECT_STREQ(text, "before");
  EXPECT_EQ(GetSocketString("localhost", text), 0);
  EXPECT_STREQ(text, "#127.0.0.1");
}

TEST(LocalSystem, AgreesWithTheResolver) {
  char name[kHostNameSize];
  ASSERT_EQ(sockets::gethostname(name, sizeof(name)), 0);
  const auto entry = sockets::gethostbyname(name);
  SystemKey key = 4711;
  char text[kKeyTextSize] = "before";
  if (!entry) {
    EXPECT_EQ(GetLocalSystemKey(key), -2);
    EXPECT_EQ(key, 4711);
    EXPECT_EQ(GetLocalSocketString(text), -2);
    EXPECT_STREQ(text, "before");
    return;
  }
  char expected[kKeyTextSize];
  EXPECT_EQ(GetLocalSystemKey(key), 0);
  EXPECT_EQ(key, static_cast<SystemKey>(entry->h_addr_list.front()));
  SystemKeyToSocketString(key, expected);
  EXPECT_EQ(GetLocalSocketString(text), 0);
  EXPECT_STREQ(text, expected);
}

}  // namespace
