// SPDX-License-Identifier: Apache-2.0
// Unsigned bit fields of one width, packed into an array of 32-bit words: field n starts at bit
// n * width, counted from the least significant bit of the first word, words in machine order.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Works on a copy of the caller's packed array: a caller that wants its changes back calls
// GetBitArray(void*).
class BIT_MANIPULATION_OBJECT {
 public:
  // Copies maxfields * bitfieldsize / 8 bytes from `bitarray`. A shape whose fields would cross a
  // word, or that does not fill whole bytes, is refused: the object then has no fields.
  BIT_MANIPULATION_OBJECT(const void* bitarray, int bitfieldsize, int maxfields);

  // 0; -1: no such field; -2: the value, taken as unsigned, does not fit. A failure changes
  // nothing.
  int SetBitField(int bitfieldnumber, int fieldvalue);
  // 0; -1: no such field.
  int ClearBitField(int bitfieldnumber);
  // The field's value; -1: no such field.
  int GetBitField(int bitfieldnumber) const;

  // Every field as an int of its own, in field order.
  void GetBitArray(int* bitarray) const;
  // The packed array, as many bytes as the constructor took.
  void GetBitArray(void* bitarray) const;

  int ReturnMaxFieldsInArray() const { return MaxFieldsInArray; }

 private:
  struct Place {
    std::size_t word;
    unsigned shift;
  };

  bool InRange(int bitfieldnumber) const;
  Place PlaceOf(int bitfieldnumber) const;

  std::uint32_t MaxFieldValue = 0;
  std::vector<std::uint32_t> BitArray;
  int NumberOfCharacterToMove = 0;
  int MaxFieldsInArray = 0;
  int BitFieldSize = 0;
};
