// SPDX-License-Identifier: Apache-2.0
#include "tools/zidl/reporter.h"

#include <algorithm>

#include "platform/sys/printable.h"

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

// The line as a terminal may have it: tabs stay.
std::string shown(std::string_view line) {
  std::string text;
  for (std::size_t tab; (tab = line.find('\t')) != std::string_view::npos;) {
    text += sys::printable(line.substr(0, tab)) + '\t';
    line.remove_prefix(tab + 1);
  }
  return text + sys::printable(line);
}

}  // namespace

void SourceReporter::error(Location at, const std::string& message) {
  errors_.emplace_back(at, message);
}

std::size_t SourceReporter::print(std::ostream& stream) {
  std::stable_sort(errors_.begin(), errors_.end(), [](const auto& a, const auto& b) {
    return std::pair(a.first.line, a.first.column) < std::pair(b.first.line, b.first.column);
  });
  for (const auto& [at, message] : errors_) {
    stream << file_ << ':' << at.line << ':' << at.column << ": error: " << sys::printable(message)
           << '\n';
    const std::string_view line = line_of(source_, at.line);
    std::string caret;
    for (unsigned column = 1; column < at.column; ++column)
      caret += column <= line.size() && line[column - 1] == '\t' ? '\t' : ' ';
    stream << shown(line) << '\n' << caret << "^\n";
  }
  return errors_.size();
}

}  // namespace zidl
