// SPDX-License-Identifier: Apache-2.0
// The tokenizers of strings and streams, and the line reader.

#include <cstring>
#include <string_view>

#include "source/support/ZTsupport_procs.h"

namespace {

constexpr std::string_view kStringOperators = "()*+-/<=>";
constexpr std::string_view kStreamOperators = "<=>";

bool IsOneOf(int c, std::string_view set) {
  return c != EOF && set.find(static_cast<char>(c)) != std::string_view::npos;
}

bool IsWhite(int c) {
  return IsOneOf(c, " \t\n");
}
bool IsQuote(int c) {
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

// The characters of a string one by one, EOF at its end.
class StringSource {
 public:
  explicit StringSource(const char* text) : next_(text) {}
  int take() { return *next_ == '\0' ? EOF : static_cast<unsigned char>(*next_++); }

 private:
  const char* next_;
};

class StreamSource {
 public:
  explicit StreamSource(std::FILE* stream) : stream_(stream) {}
  int take() { return std::getc(stream_); }
  void put_back(int c) {
    if (c != EOF)
      std::ungetc(c, stream_);
  }

 private:
  std::FILE* stream_;
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

}  // namespace

int GetToken(const char* input_string, char* token, int& token_position, int max_token_size) {
  const std::size_t start = std::strspn(input_string, " \t\n");
  Token result(token, max_token_size);
  if (input_string[start] == '\0' || result.full())
    return 0;
  token_position = static_cast<int>(start);

  StringSource source(input_string + start);
  int c = source.take();
  result.add(c);
  if (IsOneOf(c, kStringOperators)) {
    if (c != '=' && source.take() == '=' && !result.full())
      result.add('=');
  } else if (IsQuote(c)) {
    ReadQuoted(source, c, result);
  } else {
    while (!result.full()) {
      c = source.take();
      if (c == EOF || IsWhite(c) || IsOneOf(c, kStringOperators))
        break;
      result.add(c);
    }
  }
  return result.length();
}

namespace {

// The tokens of a stream. Operators end an unquoted token only where they are asked to; 0 at the
// end of the stream.
int ReadStreamToken(std::FILE* stream, Token& token, bool newline_is_token,
                    std::string_view ending_operators) {
  StreamSource source(stream);
  int c = source.take();
  while (c == ' ' || c == '\t' || (c == '\n' && !newline_is_token))
    c = source.take();
  if (c == EOF)
    return 0;
  if (token.full()) {
    source.put_back(c);
    return 0;
  }

  token.add(c);
  if (c == '\n')
    return 1;
  if (IsOneOf(c, kStreamOperators)) {
    const int next = c == '=' ? EOF : source.take();
    if (next == '=' && !token.full())
      token.add(next);
    else
      source.put_back(next);
    return 1;
  }
  if (IsQuote(c)) {
    const int next = newline_is_token && !token.full() ? source.take() : EOF;
    if (next == '\n') {
      token.add(next);
      return 1;
    }
    source.put_back(next);
    ReadQuoted(source, c, token);
    return 1;
  }
  while (!token.full()) {
    c = source.take();
    if (c == '\n' || IsOneOf(c, ending_operators))
      source.put_back(c);
    if (c == EOF || IsWhite(c) || IsOneOf(c, ending_operators))
      break;
    token.add(c);
  }
  return 1;
}

}  // namespace

int GetToken(std::FILE* stream, char* token, int max_token_size, int interactive) {
  Token result(token, max_token_size);
  return stream == nullptr ? 0
                           : ReadStreamToken(stream, result, interactive != 0, kStreamOperators);
}

int GetToken(std::FILE* stream, char* token) {
  constexpr int kTooLong = 255;
  Token result(token, kTooLong);
  return stream != nullptr && ReadStreamToken(stream, result, false, "") != 0 &&
         result.length() < kTooLong;
}

void PutToken(std::FILE* stream, const char* token) {
  const std::size_t length = std::strlen(token);
  if (length == 0)
    return;
  std::ungetc(' ', stream);
  for (std::size_t i = length; i > 0; --i)
    std::ungetc(static_cast<unsigned char>(token[i - 1]), stream);
}

void IgnoreToNewLine(std::FILE* stream) {
  for (int c = std::getc(stream); c != EOF && c != '\n';)
    c = std::getc(stream);
}

int CopyToNewLine(char* buffer, std::FILE* stream, int count) {
  int stored = 0;
  while (stored < count) {
    const int c = std::getc(stream);
    if (c == EOF)
      return 0;
    if (c == '\n')
      break;
    if (c != ' ' || stored > 0)
      buffer[stored++] = static_cast<char>(c);
  }
  buffer[stored] = '\n';
  buffer[stored + 1] = '\0';
  return 1;
}
