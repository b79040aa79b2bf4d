// SPDX-License-Identifier: Apache-2.0
// Classes and instances as replies describe them, and found by a name that a user typed.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "source/domain/ZTrepInterface.h"
#include "source/support/ZTsupport_procs.h"

// A flag of a class.
inline constexpr std::int16_t kMultiInstance = 2;

// Matches a label first, then a name, then a name in upper case.
inline bool is_named(const rep_sDescriptor& descriptor, const char* name,
                     const std::string& upper) {
  return std::strcmp(name, descriptor.Label) == 0 || std::strcmp(name, descriptor.fName) == 0 ||
         upper == descriptor.fName;
}

// The index of the first of that name; -1 without one.
template <typename Elements>
int find_named(const Elements& elements, const char* name) {
  std::string upper = name;
  Upshift(upper);
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const auto& element = elements[i];
    if constexpr (requires { element.ClassInfo; }) {
      if (is_named(element.ClassInfo.Descriptor, name, upper))
        return static_cast<int>(i);
    } else {
      if (is_named(element.Descriptor, name, upper))
        return static_cast<int>(i);
    }
  }
  return -1;
}
