// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/names/status_text.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <set>
#include <string>

#include "platform/rpc/rpc.h"
#include "platform/rpc/wire/status.h"

namespace {

TEST(StatusText, EveryReportableNumberHasOne) {
  const std::uint32_t numbers[] = {
      0,    5,    6,    8,    87,   1130,  1700,  1701,  1702,  1703,  1704,       1705,
      1706, 1707, 1708, 1709, 1715, 1717,  1722,  1723,  1726,  1727,  1728,       1730,
      1732, 1733, 1734, 1745, 1753, 1764,  1767,  1768,  1769,  1770,  1771,       1772,
      1775, 1780, 1783, 1818, 1820, 10054, 10060, 10061, 10065, 11001, 0x16C9A0CD, 0x16C9A0D6};
  std::set<std::string> different;
  for (const std::uint32_t number : numbers) {
    std::array<char, DCE_C_ERROR_STRING_LEN> text;
    text.fill('x');
    EXPECT_EQ(DceErrorInqTextA(number, text.data()), RPC_S_OK) << number;
    ASSERT_NE(std::memchr(text.data(), '\0', text.size()), nullptr) << number;
    EXPECT_TRUE(different.insert(text.data()).second) << number << ' ' << text.data();
    EXPECT_EQ(std::string(text.data()).back(), '.') << number;
  }
}

TEST(StatusText, EveryNumberThatAServerCanCauseHasOne) {
  for (std::uint32_t number = 0x1C000000; number <= 0x1C010020; ++number) {
    EXPECT_FALSE(rpc::status_text(rpc::from_reject(number)).empty()) << std::hex << number;
    EXPECT_FALSE(rpc::status_text(rpc::from_fault(number)).empty()) << std::hex << number;
    if (number == 0x1C000100)
      number = 0x1C00FFFF;
  }
}

TEST(StatusText, UnknownNumbersGiveAnEmptyText) {
  for (const std::uint32_t number : {1u, 1699u, 1710u, 9999u, 0x16C9A0CEu, 0xFFFFFFFFu}) {
    std::array<char, DCE_C_ERROR_STRING_LEN> text;
    text.fill('x');
    EXPECT_EQ(DceErrorInqTextA(number, text.data()), RPC_S_INVALID_ARG);
    EXPECT_STREQ(text.data(), "");
  }
}

TEST(Status, RejectsAndFaultsGiveTheWorkstationsNumbers) {
  struct Case {
    std::uint32_t number;
    std::uint32_t reject;
    std::uint32_t fault;
  };
  const Case cases[] = {
      {0x1C000008, 1728, 1728}, {0x1C000009, 1726, 1726},       {0x1C00000A, 1727, 1727},
      {0x1C00000B, 1727, 1727}, {0x1C00000C, 1727, 1727},       {0x1C010001, 1820, 1820},
      {0x1C010002, 1745, 1745}, {0x1C010003, 1717, 1717},       {0x1C010006, 1727, 1727},
      {0x1C010009, 1726, 1726}, {0x1C01000B, 1728, 1728},       {0x1C010013, 1130, 1130},
      {0x1C00001B, 1130, 1130}, {0x1C010014, 1723, 1723},       {0x1C010017, 1732, 1732},
      {0x1C000001, 1726, 1767}, {0x1C000002, 1726, 1768},       {0x1C000003, 1726, 1769},
      {0x1C000004, 1726, 1770}, {0x1C000005, 1726, 1771},       {0x1C000006, 1726, 1733},
      {0x1C000007, 1726, 1734}, {0x1C00000D, 1726, 1818},       {0x1C000012, 1726, 1726},
      {0x1C00001A, 1726, 6},    {0x1C00000F, 1726, 1771},       {0x1C000010, 1726, 1767},
      {0x1C00000E, 1726, 1726}, {0x1C000014, 1726, 1726},       {0x1C000025, 1726, 1726},
      {0x1C01FFFF, 1726, 1726}, {0x1C020000, 1726, 0x1C020000}, {5, 1726, 5},
      {0, 1726, 1726},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(rpc::from_reject(c.number), c.reject) << std::hex << c.number;
    EXPECT_EQ(rpc::from_fault(c.number), c.fault) << std::hex << c.number;
  }
}

}  // namespace
