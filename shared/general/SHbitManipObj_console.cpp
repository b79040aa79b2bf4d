// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): changes to bit
// fields.

#include <cstring>

#include "shared/general/SHbitManipObj.h"

int BIT_MANIPULATION_OBJECT::SetBitField(int bitfieldnumber, int fieldvalue) {
  if (!InRange(bitfieldnumber))
    return -1;
  const auto value = static_cast<std::uint32_t>(fieldvalue);
  if (value > MaxFieldValue)
    return -2;
  const Place place = PlaceOf(bitfieldnumber);
  BitArray[place.word] &= ~(MaxFieldValue << place.shift);
  BitArray[place.word] |= value << place.shift;
  return 0;
}

int BIT_MANIPULATION_OBJECT::ClearBitField(int bitfieldnumber) {
  return SetBitField(bitfieldnumber, 0);
}

void BIT_MANIPULATION_OBJECT::GetBitArray(void* bitarray) const {
  if (MaxFieldsInArray > 0)
    std::memcpy(bitarray, BitArray.data(), static_cast<std::size_t>(NumberOfCharacterToMove));
}
