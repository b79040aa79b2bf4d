// SPDX-License-Identifier: Apache-2.0
#include "source/support/ZTsupport_procs.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>

namespace {

std::string Lowered(std::string_view text) {
  std::string lowered(text);
  std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lowered;
}

}  // namespace

std::string strrtrim(const char* input_string) {
  std::string text = input_string;
  text.resize(text.find_last_not_of(' ') + 1);
  return text;
}

void Upshift(char* string) {
  for (; *string != '\0'; ++string)
    *string = static_cast<char>(std::toupper(static_cast<unsigned char>(*string)));
}

void Upshift(std::string& string) {
  Upshift(string.data());
}

int ptc_strcasecmp(const char* string1, const char* string2) {
  const std::size_t length1 = std::strlen(string1);
  const std::size_t length2 = std::strlen(string2);
  if (length1 != length2)
    return length1 < length2 ? -1 : 1;
  return Lowered(string1).compare(Lowered(string2));
}
