// SPDX-License-Identifier: Apache-2.0
#include "tests/endtoend/catalog_text.h"

#include <fstream>
#include <stdexcept>

namespace endtoend {

std::string message(int set, int number, std::string_view parameter) {
  std::ifstream source(ZT_CATALOG_SOURCE);
  const std::string wanted_set = "$set " + std::to_string(set);
  const std::string wanted_number = std::to_string(number) + " ";
  bool in_set = false;
  for (std::string line; std::getline(source, line);) {
    if (line.starts_with("$set "))
      in_set = line == wanted_set;
    if (!in_set || !line.starts_with(wanted_number))
      continue;
    std::string text = line.substr(wanted_number.size());
    const std::size_t marker = text.find('!');
    if (marker != std::string::npos && !parameter.empty())
      text.replace(marker, 1, parameter);
    return text + "\n";
  }
  throw std::runtime_error("no message " + std::to_string(number) + " in set " +
                           std::to_string(set));
}

}  // namespace endtoend
