// SPDX-License-Identifier: Apache-2.0
#include "agent/log.h"

#include <algorithm>
#include <chrono>
#include <ctime>

namespace agent {

void Log::line(std::string_view where, std::string_view text) const {
  if (stream_ == nullptr)
    return;
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm parts{};
  localtime_r(&seconds, &parts);
  std::string clean(where);
  clean += ' ';
  clean += text;
  std::replace_if(
      clean.begin(), clean.end(),
      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '?');
  std::fprintf(stream_, "%02d:%02d:%02d.%03d %s\n", parts.tm_hour, parts.tm_min, parts.tm_sec,
               static_cast<int>(milliseconds), clean.c_str());
  std::fflush(stream_);
}

}  // namespace agent
