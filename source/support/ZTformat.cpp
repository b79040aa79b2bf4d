#include "source/support/ZTformat.h"

#include <cstddef>
#include <cstdio>

std::string format_text(const char* format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  std::string text;
  if (length > 0) {
    text.resize(static_cast<std::size_t>(length));
    std::vsnprintf(text.data(), text.size() + 1, format, again);
  }
  va_end(again);
  return text;
}

std::string format_text(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::string text = format_text(format, arguments);
  va_end(arguments);
  return text;
}
