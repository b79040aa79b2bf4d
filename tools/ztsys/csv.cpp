// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/csv.h"

namespace ztsys {

void AppendCsv(std::string& line, std::initializer_list<std::string_view> cells) {
  bool first = true;
  for (const std::string_view cell : cells) {
    if (!first)
      line += ',';
    first = false;
    // A number sign would make the line a comment.
    if (cell.find_first_of(",\"\r\n") == std::string_view::npos && !cell.starts_with('#')) {
      line += cell;
      continue;
    }
    line += '"';
    for (const char c : cell) {
      if (c == '"')
        line += '"';
      line += c;
    }
    line += '"';
  }
}

bool SplitCsv(std::string_view line, std::vector<std::string>& cells) {
  cells.assign(1, "");
  bool quoted = false;
  bool closed = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quoted) {
      const bool escaped = c == '"' && i + 1 < line.size() && line[i + 1] == '"';
      if (c == '"' && !escaped) {
        quoted = false;
        closed = true;
        continue;
      }
      i += escaped ? 1 : 0;
    } else if (c == ',') {
      cells.emplace_back();
      closed = false;
      continue;
    } else if (closed) {
      return false;
    } else if (c == '"' && cells.back().empty()) {
      quoted = true;
      continue;
    }
    cells.back() += c;
  }
  return !quoted;
}

}  // namespace ztsys
