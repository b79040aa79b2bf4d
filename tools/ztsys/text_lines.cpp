// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/text_lines.h"

namespace ztsys {

bool ReadLine(std::istream& in, std::string& line) {
  line.clear();
  for (char c = 0; in.get(c);) {
    if (c == '\n')
      return true;
    line += c;
    if (line.size() > kLongestLine)
      return true;
  }
  return !line.empty();
}

}  // namespace ztsys
