// SPDX-License-Identifier: Apache-2.0
#include "tools/zidl/lexer.h"

#include <charconv>
#include <cstdio>
#include <string>

namespace zidl {

namespace {

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_hex(char c) {
  return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool is_word(char c) {
  return is_digit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

constexpr std::size_t kUuidLength = 36;

bool begins_with_uuid(std::string_view text) {
  if (text.size() < kUuidLength || (text.size() > kUuidLength && is_word(text[kUuidLength])))
    return false;
  for (std::size_t i = 0; i < kUuidLength; ++i) {
    const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    if (dash ? text[i] != '-' : !is_hex(text[i]))
      return false;
  }
  return true;
}

class Lexer {
 public:
  Lexer(std::string_view source, Reporter& reporter) : rest_(source), reporter_(reporter) {}

  std::vector<Token> run() {
    std::vector<Token> tokens;
    while (skip_blanks())
      scan(tokens);
    tokens.push_back({TokenKind::end, rest_, 0, at_});
    return tokens;
  }

 private:
  std::string_view advance(std::size_t count) {
    const std::string_view text = rest_.substr(0, count);
    for (const char c : text) {
      if (c == '\n')
        at_ = {at_.line + 1, 1};
      else
        ++at_.column;
    }
    rest_.remove_prefix(text.size());
    return text;
  }

  // True when a token or an error follows, false at the end.
  bool skip_blanks() {
    while (!rest_.empty()) {
      const char c = rest_.front();
      if (c == ' ' || c == '\t' || c == '\r' || c == '\n')
        advance(1);
      else if (rest_.starts_with("//"))
        advance(std::min(rest_.find('\n'), rest_.size()));
      else if (rest_.starts_with("/*"))
        skip_comment();
      else
        return true;
    }
    return false;
  }

  void skip_comment() {
    const std::size_t end = rest_.find("*/", 2);
    if (end == std::string_view::npos) {
      reporter_.error(at_, "comment without end");
      advance(rest_.size());
    } else {
      advance(end + 2);
    }
  }

  void scan(std::vector<Token>& tokens) {
    const Location start = at_;
    const char c = rest_.front();
    if (begins_with_uuid(rest_)) {
      tokens.push_back({TokenKind::uuid, advance(kUuidLength), 0, start});
    } else if (is_word(c)) {
      std::size_t length = 0;
      while (length < rest_.size() && is_word(rest_[length]))
        ++length;
      const std::string_view text = advance(length);
      if (is_digit(c))
        tokens.push_back({TokenKind::number, text, number(text, start), start});
      else
        tokens.push_back({TokenKind::identifier, text, 0, start});
    } else if (std::string_view("[](){},;*+-=.").find(c) != std::string_view::npos) {
      tokens.push_back({TokenKind::punctuation, advance(1), 0, start});
    } else {
      refuse(c, start);
    }
  }

  void refuse(char c, Location start) {
    if (c == '#') {
      reporter_.error(start, "preprocessor directives are not supported");
      advance(std::min(rest_.find('\n'), rest_.size()));
    } else if (c == '"') {
      reporter_.error(start, "string literals are not supported");
      const std::size_t end = rest_.find_first_of("\"\n", 1);
      advance(end == std::string_view::npos ? rest_.size() : end + (rest_[end] == '"'));
    } else {
      char quoted[16];
      const bool printable = c > ' ' && c < 0x7F;
      std::snprintf(quoted, sizeof(quoted), printable ? "'%c'" : "0x%02x",
                    static_cast<unsigned char>(c));
      reporter_.error(start, "unexpected character " + std::string(quoted));
      advance(1);
    }
  }

  std::uint64_t number(std::string_view text, Location at) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = hex ? text.substr(2) : text;
    std::uint64_t value = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
    if (error != std::errc() || end != digits.data() + digits.size())
      reporter_.error(at, "'" + std::string(text) + "' is not a number");
    return value;
  }

  std::string_view rest_;
  Reporter& reporter_;
  Location at_;
};

}  // namespace

std::vector<Token> tokenize(std::string_view source, Reporter& reporter) {
  return Lexer(source, reporter).run();
}

}  // namespace zidl
