// SPDX-License-Identifier: Apache-2.0
// The catalog has a usable text for every message that can be recorded, and for no other.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <string>
#include <utility>

#include "shared/general/SHNLSmsg.h"

namespace {

// Set and number of every message, and whether it is recorded with a parameter.
const std::map<std::pair<int, int>, bool>& messages() {
  static const std::map<std::pair<int, int>, bool> all = {
      {{11, 4}, true},    {{11, 31}, true},   {{11, 32}, true},   {{11, 33}, true},
      {{11, 34}, true},   {{11, 43}, true},   {{13, 2}, true},    {{13, 3}, false},
      {{13, 4}, false},   {{13, 5}, false},   {{13, 6}, false},   {{13, 7}, false},
      {{13, 8}, false},   {{13, 9}, false},   {{13, 10}, false},  {{13, 17}, false},
      {{13, 18}, false},  {{13, 19}, true},   {{13, 90}, true},   {{13, 101}, true},
      {{13, 120}, false}, {{13, 300}, false}, {{13, 301}, true},  {{13, 303}, true},
      {{13, 304}, true},  {{13, 305}, true},  {{13, 306}, true},  {{13, 307}, true},
      {{13, 308}, true},  {{13, 309}, true},  {{17, 6}, false},   {{20, 1}, true},
      {{20, 2}, true},    {{20, 9}, true},    {{20, 100}, false}, {{20, 101}, true},
      {{20, 102}, false}, {{20, 103}, false}, {{20, 104}, true},  {{20, 105}, true},
      {{20, 106}, false}, {{20, 107}, true},  {{20, 108}, true},  {{20, 110}, false},
      {{20, 111}, true},  {{20, 112}, false}, {{20, 114}, false}, {{20, 115}, true},
      {{20, 116}, true},  {{20, 117}, true},  {{20, 118}, false}, {{20, 121}, false},
      {{20, 122}, true},  {{20, 123}, true},  {{20, 124}, true},  {{20, 125}, true},
      {{20, 126}, true},  {{20, 127}, false}, {{20, 128}, false}, {{20, 129}, true},
      {{20, 130}, true},  {{20, 131}, true},  {{20, 132}, true},  {{20, 133}, true},
      {{20, 134}, true},  {{20, 135}, true},  {{20, 137}, false}, {{20, 138}, false},
      {{20, 139}, false}, {{20, 200}, false}, {{20, 201}, true},  {{20, 202}, false},
      {{20, 203}, true},  {{20, 204}, false}, {{20, 205}, true},  {{100, 4}, false},
  };
  return all;
}

TEST(Catalog, HasATextForEveryMessage) {
  const NLS_MESSAGE_OBJ catalog(ZT_CATALOG);
  for (const auto& [key, parameter] : messages()) {
    const char* found = NLS_MESSAGE_OBJ::GetNLSmessage(key.first, key.second, nullptr);
    ASSERT_NE(nullptr, found) << key.first << " " << key.second;
    const std::string text = found;
    EXPECT_EQ(parameter ? 1 : 0, std::count(text.begin(), text.end(), '!')) << text;
    EXPECT_EQ(std::string::npos, text.find_first_of("\n%")) << text;
    EXPECT_GE(text.size(), 10U);
  }
}

TEST(Catalog, HasNoTextThatNothingRecords) {
  std::ifstream source(ZT_CATALOG_SOURCE);
  std::string line;
  int set = 0;
  std::size_t texts = 0;
  while (std::getline(source, line)) {
    if (line.starts_with("$set "))
      set = std::stoi(line.substr(5));
    if (line.empty() || line[0] == '$')
      continue;
    ++texts;
    EXPECT_TRUE(messages().contains({set, std::stoi(line)})) << line;
  }
  EXPECT_EQ(messages().size(), texts);
}

}  // namespace
