// SPDX-License-Identifier: Apache-2.0
// What -v prints: one line for each packet, call and connection.

#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace agent {

class Log {
 public:
  // Nothing is printed without a stream, which is not owned.
  explicit Log(std::FILE* stream = nullptr) : stream_(stream) {}

  // Callers ask first where composing a line would cost.
  bool enabled() const { return stream_ != nullptr; }
  // "12:03:44.120 healthy 127.0.1.1:135 text"; control characters print as '?'.
  void line(std::string_view where, std::string_view text) const;

 private:
  std::FILE* stream_;
};

}  // namespace agent
