// SPDX-License-Identifier: Apache-2.0
// Where errors of a definition go: each names a place in the source.

#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zidl {

// Line and column of a character, both counted from 1.
struct Location {
  unsigned line = 1;
  unsigned column = 1;
};

class Reporter {
 public:
  virtual ~Reporter() = default;
  virtual void error(Location at, const std::string& message) = 0;
};

// Keeps the errors of a file, which its steps find in an order of their own. `source` must outlive
// the reporter.
class SourceReporter : public Reporter {
 public:
  SourceReporter(std::string file, std::string_view source)
      : file_(std::move(file)), source_(source) {}

  void error(Location at, const std::string& message) override;
  // Writes "file:line:column: error: message", the line and a caret below the column for each, in
  // the order of the source: for the first hundred, and of a long line what is around the place.
  // How many there are.
  std::size_t print(std::ostream& stream);

 private:
  std::string file_;
  std::string_view source_;
  std::vector<std::pair<Location, std::string>> errors_;
};

}  // namespace zidl
