// SPDX-License-Identifier: Apache-2.0
// Where errors of a definition go: each names a place in the source.

#pragma once

#include <ostream>
#include <string>
#include <string_view>

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

// Writes "file:line:column: error: message", the line and a caret below the column. `source` must
// outlive the reporter.
class SourceReporter : public Reporter {
 public:
  SourceReporter(std::string file, std::string_view source, std::ostream& stream)
      : file_(std::move(file)), source_(source), stream_(stream) {}

  void error(Location at, const std::string& message) override;
  unsigned errors() const { return errors_; }

 private:
  std::string file_;
  std::string_view source_;
  std::ostream& stream_;
  unsigned errors_ = 0;
};

}  // namespace zidl
