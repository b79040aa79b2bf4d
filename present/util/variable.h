// SPDX-License-Identifier: Apache-2.0
// A named metric value with its display description.

#pragma once

#include <string>

#include "present/util/value.h"

// How a metric is shown.
struct FieldParm {
  int metricNo = 0;
  unsigned int numeric : 2 = 0;   // 1 for a number, 0 for text
  unsigned int leftJust : 2 = 0;  // 1 for left alignment
  unsigned int width : 10 = 0;    // column width
  unsigned int dec : 3 = 0;       // decimal places shown
  unsigned int scale : 10 = 0;    // implied decimal places of the raw integer
  unsigned int spec : 4 = 0;
  const char* h1 = nullptr;  // heading texts
  const char* h2 = nullptr;
  const char* h3 = nullptr;
  short r = 0;
  short c = 0;
  void* link = nullptr;
};

// Using a variable against the kind that its description gives it ends the program through Fatal.
class Variable {
 public:
  Variable(const char* metric_name, const FieldParm& description, int class_type);

  unsigned char numeric() const { return static_cast<unsigned char>(fp.numeric); }
  Variable& operator=(int integer);       // scaled by the description
  Variable& operator=(const char* text);  // borrowed, must outlive the variable
  double GetNumber() const;
  const char* GetString() const;  // empty before the first assignment

 protected:
  unsigned char workvar = 0;
  std::string name;
  int classtype;
  int classidx = -1;
  FieldParm fp;
  Value val;
};
