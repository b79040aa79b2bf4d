// SPDX-License-Identifier: Apache-2.0
#include "present/util/value.h"

#include <cstring>

#include "present/util/util.h"

Value::Value() : type(kScaledInteger), numeric(0), initialized(0), localstring(0), scale(0) {
  intval = 0;
}

void Value::ReleaseText() {
  if (localstring && type == kText)
    delete[] strval;
}

void Value::SetScaledVal(short newScale, int integer) {
  *this = integer;
  scale = static_cast<unsigned>(newScale) & 0x3FF;
}

Value& Value::operator=(int integer) {
  ReleaseText();
  intval = integer;
  numeric = 1;
  type = kScaledInteger;
  scale = 0;
  return *this;
}

Value& Value::operator=(const char* text) {
  ReleaseText();
  strval = text;
  if (localstring) {
    const std::size_t size = std::strlen(text) + 1;
    char* const copy = new char[size];
    std::memcpy(copy, text, size);
    strval = copy;
  }
  numeric = 0;
  type = kText;
  return *this;
}

double Value::number() const {
  if (!numeric)
    Fatal(__FILE__, __LINE__, "Invalid operation on Value type");
  if (type == kReal)
    return realval;
  double result = intval;
  for (unsigned places = 0; places < scale; ++places)
    result /= 10;
  return result;
}
