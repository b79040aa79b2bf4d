// SPDX-License-Identifier: Apache-2.0
// The tokenizer of strings, and the line reader.

#include <cstring>

#include "source/support/ZTsupport_procs.h"
#include "source/support/ZTtoken_reader.h"

namespace {

constexpr std::string_view kStringOperators = "()*+-/<=>";

// The characters of a string one by one, EOF at its end.
class StringSource {
 public:
  explicit StringSource(const char* text) : next_(text) {}
  int take() { return *next_ == '\0' ? EOF : static_cast<unsigned char>(*next_++); }

 private:
  const char* next_;
};

}  // namespace

int GetToken(const char* input_string, char* token, int& token_position, int max_token_size) {
  const std::size_t start = std::strspn(input_string, " \t\n");
  tokens::Token result(token, max_token_size);
  if (input_string[start] == '\0' || result.full())
    return 0;
  token_position = static_cast<int>(start);

  StringSource source(input_string + start);
  int c = source.take();
  result.add(c);
  if (tokens::IsOneOf(c, kStringOperators)) {
    if (c != '=' && source.take() == '=' && !result.full())
      result.add('=');
  } else if (tokens::IsQuote(c)) {
    tokens::ReadQuoted(source, c, result);
  } else {
    while (!result.full()) {
      c = source.take();
      if (c == EOF || tokens::IsWhite(c) || tokens::IsOneOf(c, kStringOperators))
        break;
      result.add(c);
    }
  }
  return result.length();
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
