// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): the tokenizer
// of streams.

#include <cstring>

#include "source/support/ZTsupport_procs.h"
#include "source/support/ZTtoken_reader.h"

namespace {

using namespace tokens;

constexpr std::string_view kStreamOperators = "<=>";

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
