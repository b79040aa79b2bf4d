// SPDX-License-Identifier: Apache-2.0
#include "shared/general/SHbitManipObj.h"

#include <climits>
#include <cstring>

namespace {

constexpr int kBitsInWord = 32;
constexpr int kBytesInWord = 4;

bool supported(int bitfieldsize, int maxfields) {
  return bitfieldsize > 0 && bitfieldsize <= kBitsInWord && kBitsInWord % bitfieldsize == 0 &&
         maxfields > 0 && maxfields <= INT_MAX / kBitsInWord &&
         maxfields * bitfieldsize % CHAR_BIT == 0;
}

}  // namespace

BIT_MANIPULATION_OBJECT::BIT_MANIPULATION_OBJECT(const void* bitarray, int bitfieldsize,
                                                 int maxfields) {
  if (!supported(bitfieldsize, maxfields))
    return;
  BitFieldSize = bitfieldsize;
  MaxFieldsInArray = maxfields;
  NumberOfCharacterToMove = maxfields * bitfieldsize / CHAR_BIT;
  MaxFieldValue = 0xFFFFFFFFU >> (kBitsInWord - bitfieldsize);
  BitArray.resize(
      static_cast<std::size_t>((NumberOfCharacterToMove + kBytesInWord - 1) / kBytesInWord));
  std::memcpy(BitArray.data(), bitarray, static_cast<std::size_t>(NumberOfCharacterToMove));
}

bool BIT_MANIPULATION_OBJECT::InRange(int bitfieldnumber) const {
  return bitfieldnumber >= 0 && bitfieldnumber < MaxFieldsInArray;
}

BIT_MANIPULATION_OBJECT::Place BIT_MANIPULATION_OBJECT::PlaceOf(int bitfieldnumber) const {
  const int bit = bitfieldnumber * BitFieldSize;
  return {static_cast<std::size_t>(bit / kBitsInWord), static_cast<unsigned>(bit % kBitsInWord)};
}

int BIT_MANIPULATION_OBJECT::GetBitField(int bitfieldnumber) const {
  if (!InRange(bitfieldnumber))
    return -1;
  const Place place = PlaceOf(bitfieldnumber);
  return static_cast<int>((BitArray[place.word] >> place.shift) & MaxFieldValue);
}

void BIT_MANIPULATION_OBJECT::GetBitArray(int* bitarray) const {
  for (int field = 0; field < MaxFieldsInArray; ++field)
    bitarray[field] = GetBitField(field);
}
