// SPDX-License-Identifier: Apache-2.0
// The sort of the cross-reference table.

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "source/sysdb/ZTsysInfoObj_xref.h"

namespace {

using Keys = std::vector<std::int32_t>;
constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kGreatest = std::numeric_limits<std::int32_t>::max();

// Sorts the keys, each with a name and a location that tell where it came from.
void ExpectSorts(const Keys& keys) {
  const auto count = static_cast<int>(keys.size());
  std::vector<SYSTEM_XREF_ENTRY> table(keys.size() + 2);
  for (std::size_t i = 0; i < keys.size(); ++i)
    table[i + 1] =
        SYSTEM_XREF_ENTRY(std::to_string(keys[i]).c_str(), keys[i], static_cast<std::int32_t>(i));
  SortSysList(table.data(), count);
  Keys sorted = keys;
  std::sort(sorted.begin(), sorted.end());
  std::vector<bool> seen(keys.size());
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const SYSTEM_XREF_ENTRY& entry = table[i + 1];
    const auto origin = static_cast<std::size_t>(entry.fLocation);
    ASSERT_EQ(entry.fKey, sorted[i]) << "at " << i << " of " << count;
    ASSERT_EQ(keys[origin], entry.fKey);
    ASSERT_FALSE(seen[origin]);
    seen[origin] = true;
    ASSERT_EQ(entry.ReturnSystemName(), std::to_string(entry.fKey));
  }
}

Keys RandomKeys(std::size_t count, std::uint32_t distinct, std::uint32_t seed) {
  std::mt19937 random(seed);
  Keys keys(count);
  for (std::int32_t& key : keys)
    key = static_cast<std::int32_t>(distinct == 0 ? random() : random() % distinct);
  return keys;
}

TEST(SystemSort, SortsEverySmallTable) {
  for (std::size_t count = 0; count <= 60; ++count)
    for (std::uint32_t seed = 0; seed < 20; ++seed)
      for (const std::uint32_t distinct : {0U, 2U, 5U, 50U})
        ExpectSorts(RandomKeys(count, distinct, seed));
}

TEST(SystemSort, SortsEveryOrderOfSevenKeys) {
  Keys keys = {kLeast, kLeast + 1, kLeast + 2, -1, 0, kGreatest - 1, kGreatest};
  do
    ExpectSorts(keys);
  while (std::next_permutation(keys.begin(), keys.end()));
}

TEST(SystemSort, KeysBeyondTheSentinelsStayInTheirPlaces) {
  for (const std::int32_t extreme : {kLeast, kLeast + 1, kLeast + 2, kGreatest}) {
    Keys keys = RandomKeys(300, 0, 3);
    for (std::size_t i = 0; i < keys.size(); i += 3)
      keys[i] = extreme;
    ExpectSorts(keys);
    ExpectSorts(Keys(100, extreme));
  }
}

TEST(SystemSort, OrdersAddressesByLastOctetWithTheUpperHalfFirst) {
  ExpectSorts({0x0100000A, 0x0100A8C0, static_cast<std::int32_t>(0x8100000A)});
}

// An order in which the median of the keys at the quarters is always the second smallest: without a
// bound the sort needs a number of steps that grows with the square of the table. Made from its
// end: each turn puts two smaller keys in front and undoes what partitioning at them will move.
Keys KillerOfMedians(int count) {
  Keys keys(static_cast<std::size_t>(count));
  std::iota(keys.begin(), keys.end(), 0);
  const auto key = [&](int i) -> std::int32_t& { return keys[static_cast<std::size_t>(i)]; };
  for (int lower = count - 10; lower >= 0; lower -= 2) {
    const int quarter = (count - 1 - lower) / 4;
    key(lower) = std::exchange(key(lower + 2 * quarter), lower + 1);
    key(lower + 1) = std::exchange(key(lower + quarter), lower);
  }
  return keys;
}

// A sort of quadratic time would take longer than the test may.
TEST(SystemSort, SortsOrderedReversedEqualAndHostileKeys) {
  constexpr int kCount = 100'000;
  Keys ascending(kCount);
  std::iota(ascending.begin(), ascending.end(), -kCount / 2);
  ExpectSorts(KillerOfMedians(10 * kCount));
  std::vector<Keys> orders = {ascending, Keys(kCount, 7), RandomKeys(kCount, 2, 1)};
  // Teeth of several lengths; each of them also backwards, and turned round in either half.
  for (const int tooth : {2, 1000, kCount / 2}) {
    orders.push_back(ascending);
    for (std::int32_t& key : orders.back())
      key = (key + kCount) % tooth;
  }
  for (Keys keys : orders) {
    for (const std::ptrdiff_t end : {0, kCount, kCount / 2, kCount}) {
      std::reverse(keys.begin(), keys.begin() + end);
      ExpectSorts(keys);
    }
  }
}

TEST(SystemXrefEntry, CopiesOwnTheirNames) {
  SYSTEM_XREF_ENTRY one("alpha", 1, 501);
  SYSTEM_XREF_ENTRY two = one;
  two.SetSystemName("beta");
  EXPECT_STREQ(one.ReturnSystemName(), "alpha");
  SYSTEM_XREF_ENTRY none;
  SYSTEM_XREF_ENTRY::Switch(none, two);
  EXPECT_EQ(two.ReturnSystemName(), nullptr);
  EXPECT_STREQ(none.ReturnSystemName(), "beta");
  EXPECT_EQ(none.fLocation, 501);
  none = two;
  EXPECT_EQ(none.ReturnSystemName(), nullptr);
}

}  // namespace
