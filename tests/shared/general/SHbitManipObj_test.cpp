// SPDX-License-Identifier: Apache-2.0
#include "shared/general/SHbitManipObj.h"

#include <gtest/gtest.h>

#include <utility>

TEST(BitFields, PackFourBitFieldsLowHalfFirst) {
  unsigned char packed[200] = {};
  BIT_MANIPULATION_OBJECT bits(packed, 4, 400);
  EXPECT_EQ(bits.SetBitField(3, 2), 0);
  EXPECT_EQ(bits.SetBitField(0, 15), 0);
  EXPECT_EQ(bits.SetBitField(0, 1), 0);
  EXPECT_EQ(bits.SetBitField(399, 9), 0);
  EXPECT_EQ(bits.SetBitField(3, 16), -2);
  EXPECT_EQ(bits.SetBitField(3, -1), -2);
  EXPECT_EQ(bits.SetBitField(400, 1), -1);
  EXPECT_EQ(bits.ClearBitField(-1), -1);
  EXPECT_EQ(bits.GetBitField(-1), -1);
  EXPECT_EQ(bits.GetBitField(399), 9);
  EXPECT_EQ(packed[1], 0) << "works on a copy";
  bits.GetBitArray(static_cast<void*>(packed));
  EXPECT_EQ(packed[0], 0x01);
  EXPECT_EQ(packed[1], 0x20);
  EXPECT_EQ(packed[199], 0x90);
}

TEST(BitFields, RefuseShapesThatDoNotFitWords) {
  const unsigned char packed[8] = {};
  for (const auto& [width, fields] : {std::pair{3, 8}, {0, 8}, {33, 8}, {4, 3}, {4, 0}, {-4, 8}})
    EXPECT_EQ(BIT_MANIPULATION_OBJECT(packed, width, fields).ReturnMaxFieldsInArray(), 0)
        << width << " x " << fields;
}
