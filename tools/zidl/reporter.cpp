// SPDX-License-Identifier: Apache-2.0
#include "tools/zidl/reporter.h"

namespace zidl {

namespace {

std::string_view line_of(std::string_view source, unsigned line) {
  for (; line > 1; --line) {
    const std::size_t end = source.find('\n');
    if (end == std::string_view::npos)
      return {};
    source.remove_prefix(end + 1);
  }
  return source.substr(0, source.find('\n'));
}

}  // namespace

void SourceReporter::error(Location at, const std::string& message) {
  ++errors_;
  stream_ << file_ << ':' << at.line << ':' << at.column << ": error: " << message << '\n';
  const std::string_view line = line_of(source_, at.line);
  std::string caret;
  for (unsigned column = 1; column < at.column; ++column)
    caret += column <= line.size() && line[column - 1] == '\t' ? '\t' : ' ';
  stream_ << line << '\n' << caret << "^\n";
}

}  // namespace zidl
