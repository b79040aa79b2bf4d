// SPDX-License-Identifier: Apache-2.0
// Cells of the data query's table: known ones, and random ones against decimal digits made from the
// integer alone.

#include "source/domain/ZTdataTable.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include "present/util/variable.h"

namespace {

constexpr int kCells = 200'000;

class RandomCells : public testing::Test {
 protected:
  // Integers of every length, and the limits.
  std::int32_t integer() {
    const auto bits = static_cast<std::uint32_t>(random_());
    switch (bits % 16) {
      case 0:
        return std::numeric_limits<std::int32_t>::min();
      case 1:
        return std::numeric_limits<std::int32_t>::max();
      case 2:
        return 0;
      default:
        return static_cast<std::int32_t>(random_()) >> (bits / 16 % 32);
    }
  }
  std::uint32_t below(std::uint32_t bound) { return static_cast<std::uint32_t>(random_() % bound); }

  std::mt19937 random_{20241125};
};

// The integer with a point before its last `places` digits.
std::string decimal(std::int32_t integer, std::size_t places) {
  const std::int64_t magnitude = std::abs(std::int64_t{integer});
  std::string digits = std::to_string(magnitude);
  if (digits.size() <= places)
    digits.insert(0, places + 1 - digits.size(), '0');
  if (places > 0)
    digits.insert(digits.size() - places, ".");
  return (integer < 0 ? "-" : "") + digits;
}

std::string padded(const std::string& text, std::size_t width) {
  return " " + text + std::string(text.size() < width ? width - text.size() : 0, ' ');
}

TEST(Cells, HaveTheScalesPlacesAndTheColumnsWidth) {
  struct Case {
    std::uint16_t width;
    int scale;
    std::int32_t number;
    std::string cell;
  };
  const Case cases[] = {
      {8, 2, -1234, " -12.34  "},
      {1, 3, 7, " 0.007"},
      {3, 8, 150000000, " 2  "},  // eight places are none, in the three bits that say how many
      {12, 9, std::numeric_limits<std::int32_t>::min(), " -2.1        "},
      {0, -1, 5, " 0.0000000"},  // 1023 places and seven shown
      {0, 1024, 42, " 42"},      // beyond ten bits
      {65535, 0, 1, " 1" + std::string(1022, ' ')},
  };
  rep_sMetricDescriptor metric{};
  for (const Case& test : cases) {
    metric.ColumnWidth = test.width;
    metric.Scale10 = static_cast<std::int16_t>(test.scale);
    std::string cell;
    append_data_value(cell, metric, test.number, "");
    EXPECT_EQ(test.cell, cell);
  }
}

TEST_F(RandomCells, OfNumbersHaveExactlyTheirDigits) {
  rep_sMetricDescriptor metric{};
  for (int i = 0; i < kCells; ++i) {
    metric.DataType = static_cast<std::int16_t>(below(3));
    metric.Scale10 = static_cast<std::int16_t>(below(8));
    metric.ColumnWidth = static_cast<std::uint16_t>(below(24));
    const std::int32_t number = integer();
    std::string cell;
    append_data_value(cell, metric, number, "");
    ASSERT_EQ(padded(decimal(number, static_cast<std::size_t>(metric.Scale10)), metric.ColumnWidth),
              cell)
        << number << " by " << metric.Scale10;
  }
}

// Above seven places the digits shown are fewer than the number has, and rounded as printf does.
TEST_F(RandomCells, OfLargeScalesAreRoundedAsPrintfDoes) {
  rep_sMetricDescriptor metric{};
  for (int i = 0; i < kCells; ++i) {
    const std::uint32_t scale = 8 + below(1016);
    metric.Scale10 = static_cast<std::int16_t>(scale | (below(2) << 15));
    metric.ColumnWidth = static_cast<std::uint16_t>(below(1024));
    const std::int32_t number = integer();
    FieldParm description;
    description.numeric = 1;
    description.scale = scale & 0x3FF;
    Variable value("M", description, 1);
    value = number;
    std::array<char, 1100> expected;
    std::snprintf(expected.data(), expected.size(), " %-*.*f", metric.ColumnWidth,
                  static_cast<int>(scale & 7), value.GetNumber());
    std::string cell;
    append_data_value(cell, metric, number, "");
    ASSERT_EQ(expected.data(), cell) << number << " by " << metric.Scale10;
  }
}

TEST_F(RandomCells, OfTextsArePaddedAndNeverCut) {
  rep_sMetricDescriptor metric{};
  for (int i = 0; i < kCells / 10; ++i) {
    metric.DataType =
        static_cast<std::int16_t>(below(2) == 0 ? 3 + static_cast<int>(below(100)) : -1);
    metric.ColumnWidth = static_cast<std::uint16_t>(below(70'000));
    std::string text(below(600), ' ');
    std::string shown;
    for (char& c : text) {
      c = static_cast<char>(1 + below(126));
      shown += c < ' ' ? '?' : c;
    }
    std::string cell;
    append_data_value(cell, metric, 0, text.c_str());
    ASSERT_EQ(padded(shown, std::min<std::size_t>(metric.ColumnWidth, 1023)), cell);
  }
}

}  // namespace
