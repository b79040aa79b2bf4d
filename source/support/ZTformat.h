// SPDX-License-Identifier: Apache-2.0
// Formatting by printf's rules into a text that is as long as it needs to be.

#pragma once

#include <cstdarg>
#include <string>

// Appends the formatted text.
[[gnu::format(printf, 2, 3)]] void append_text(std::string& text, const char* format, ...);
[[gnu::format(printf, 1, 2)]] std::string format_text(const char* format, ...);
[[gnu::format(printf, 1, 0)]] std::string format_text(const char* format, std::va_list arguments);
