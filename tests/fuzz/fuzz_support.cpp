// SPDX-License-Identifier: Apache-2.0
// The tokenizers, the line reader and the readers of dates and times, over any text. The buffers
// have exactly the sizes that the callers promise.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "shared/general/SHcontrolObj.h"
#include "source/support/ZTsupport_procs.h"
#include "tests/fuzz/require.h"

namespace {

// A control object with the date format that the input names.
class FormatControl : public BASE_CONTROL_OBJ {
 public:
  explicit FormatControl(const std::string& format) {
    ++UseCount;
    DateFormatString = format;
  }
};

void tokens_of_string(const char* text, int limit) {
  std::vector<char> token(static_cast<std::size_t>(limit) + 1);
  const char* const end = text + std::strlen(text);
  int position = 0;
  while (const int length = GetToken(text, token.data(), position, limit)) {
    fuzz::require(length > 0 && length <= limit && position >= 0);
    fuzz::require(static_cast<std::size_t>(length) == std::strlen(token.data()));
    text += position + length;
    fuzz::require(text <= end);
    ParseToken(token.data());
  }
}

template <typename Read>
void over_stream(const std::string& text, Read read) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(
      ::fmemopen(const_cast<char*>(text.data()), text.size(), "r"), std::fclose);
  for (std::size_t calls = 0; read(stream.get()) != 0; ++calls)
    fuzz::require(calls <= text.size());
}

}  // namespace

// The first byte is a limit, the text up to the first newline a date format, the rest is read.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2)
    return 0;
  const int limit = data[0];
  const std::string whole(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::string format = whole.substr(0, whole.find('\n'));
  const std::string text = whole.substr(std::min(format.size() + 1, whole.size()));

  tokens_of_string(text.c_str(), limit);
  if (!text.empty()) {
    std::vector<char> token(static_cast<std::size_t>(limit) + 1);
    for (const int interactive : {0, 1})
      over_stream(text, [&](std::FILE* stream) {
        return GetToken(stream, token.data(), limit, interactive);
      });
    std::vector<char> fixed(256);
    over_stream(text, [&](std::FILE* stream) { return GetToken(stream, fixed.data()); });
    // A limit of no characters takes none, so that its lines never end.
    std::vector<char> line(static_cast<std::size_t>(limit) + 3);
    over_stream(text,
                [&](std::FILE* stream) { return CopyToNewLine(line.data(), stream, limit + 1); });
  }

  const FormatControl control(format.c_str());
  int places[3] = {};
  LocalDateSequence(&places[0], &places[1], &places[2]);
  fuzz::require((1 << places[0] | 1 << places[1] | 1 << places[2]) == 7);
  int month = 0;
  int day = 0;
  int year = 0;
  if (ReadDate(text.c_str(), month, day, year) != 0)
    fuzz::require(month >= 0 && day >= 0);
  int minute = 0;
  int hour = 0;
  if (ReadTime(text.c_str(), minute, hour) != 0)
    fuzz::require(minute >= 0 && hour >= 0);
  return 0;
}
