// SPDX-License-Identifier: Apache-2.0
// A tagged value: scaled integer, real, text or unsigned size.

#pragma once

class Value {
 public:
  Value();
  ~Value() { ReleaseText(); }
  Value(const Value&) = delete;
  Value& operator=(const Value&) = delete;

  // The number integer / 10^scale; the scale is taken to 10 bits.
  void SetScaledVal(short newScale, int integer);
  Value& operator=(int integer);
  // Borrows the text, which must outlive the value.
  Value& operator=(const char* text);

  double number() const;  // Fatal when the value is no number

 private:
  friend class Variable;
  enum Type { kScaledInteger = 0, kReal = 1, kText = 2, kSize = 3 };

  void ReleaseText();

  signed int type : 4;
  unsigned int numeric : 1;
  unsigned int initialized : 1;
  unsigned int localstring : 1;  // the text is an owned copy
  unsigned int scale : 10;
  union {
    int intval;
    double realval;
    const char* strval;
    unsigned int sizeval;
  };
};
