// SPDX-License-Identifier: Apache-2.0
#include "tools/zidl/reporter.h"

#include <algorithm>
#include <span>

#include "platform/sys/printable.h"

namespace zidl {

namespace {

// A file that is no definition can have an error at every octet of one long line.
constexpr std::size_t kMostErrors = 100;
constexpr std::size_t kMostOfLine = 200;  // octets, the half of them before the place

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
  const std::size_t most = std::min(errors_.size(), kMostErrors);
  for (const auto& [at, message] : std::span(errors_).first(most)) {
    stream << file_ << ':' << at.line << ':' << at.column << ": error: " << sys::printable(message)
           << '\n';
    std::string_view line = line_of(source_, at.line);
    std::size_t before = at.column - 1;
    if (line.size() > kMostOfLine && before > kMostOfLine / 2) {
      line.remove_prefix(std::min(before - kMostOfLine / 2, line.size()));
      before = kMostOfLine / 2;
    }
    line = line.substr(0, kMostOfLine);
    std::string caret;
    for (std::size_t i = 0; i < before; ++i)
      caret += i < line.size() && line[i] == '\t' ? '\t' : ' ';
    stream << shown(line) << '\n' << caret << "^\n";
  }
  if (most < errors_.size())
    stream << file_ << ": " << errors_.size() - most << " further errors are not shown\n";
  return errors_.size();
}

}  // namespace zidl
