// SPDX-License-Identifier: Apache-2.0
// What the tokenizers of strings and of streams share.

#pragma once

#include <cstdio>
#include <string_view>

namespace tokens {

inline bool IsOneOf(int c, std::string_view set) {
  return c != EOF && set.find(static_cast<char>(c)) != std::string_view::npos;
}

inline bool IsWhite(int c) {
  return IsOneOf(c, " \t\n");
}
inline bool IsQuote(int c) {
  return IsOneOf(c, "\"'");
}

// A token in the caller's buffer, which never grows beyond its limit.
class Token {
 public:
  Token(char* text, int limit) : text_(text), limit_(limit) {}
  ~Token() { text_[length_] = '\0'; }
  Token(const Token&) = delete;
  Token& operator=(const Token&) = delete;

  bool full() const { return length_ >= limit_; }
  void add(int c) { text_[length_++] = static_cast<char>(c); }
  int length() const { return length_; }

 private:
  char* text_;
  int limit_;
  int length_ = 0;
};

// Behind an opening quote, to the closing one. Tabs and newlines inside are dropped; whatever
// follows one is taken as it is.
template <typename Source>
void ReadQuoted(Source& source, int quote, Token& token) {
  while (!token.full()) {
    int c = source.take();
    if (c == '\t' || c == '\n')
      c = source.take();
    if (c == EOF)
      return;
    token.add(c);
    if (c == quote)
      return;
  }
}

}  // namespace tokens
