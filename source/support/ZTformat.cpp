// SPDX-License-Identifier: Apache-2.0
#include "source/support/ZTformat.h"

#include <cstddef>
#include <cstdio>

namespace {

[[gnu::format(printf, 2, 0)]] void append(std::string& text, const char* format,
                                          std::va_list arguments) {
  // Most texts fit here and are formatted once.
  char buffer[256];
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
  if (length > 0 && static_cast<std::size_t>(length) < sizeof buffer) {
    text.append(buffer, static_cast<std::size_t>(length));
  } else if (length > 0) {
    const std::size_t before = text.size();
    text.resize(before + static_cast<std::size_t>(length));
    std::vsnprintf(text.data() + before, static_cast<std::size_t>(length) + 1, format, again);
  }
  va_end(again);
}

}  // namespace

void append_text(std::string& text, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  append(text, format, arguments);
  va_end(arguments);
}

std::string format_text(const char* format, std::va_list arguments) {
  std::string text;
  append(text, format, arguments);
  return text;
}

std::string format_text(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::string text = format_text(format, arguments);
  va_end(arguments);
  return text;
}
