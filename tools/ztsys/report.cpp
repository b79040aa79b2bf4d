// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdio>

#include "source/support/ZTprintable.h"
#include "tools/ztsys/ztsys.h"

namespace ztsys {

namespace {

constexpr auto kPluginUnknown = static_cast<Status>(3);
bool as_plugin = false;

}  // namespace

void Tell(const std::string& line) {
  std::fflush(stdout);
  std::fprintf(stderr, "ztsys: %s\n", printable(line).c_str());
}

Status Fail(const std::string& message, Status status) {
  Tell(message);
  if (!as_plugin)
    return status;
  std::printf("ZENTRACE UNKNOWN - %s\n", PluginText(message).c_str());
  return kPluginUnknown;
}

std::string PluginText(std::string_view text) {
  std::string clean = printable(text);
  std::replace(clean.begin(), clean.end(), '|', '?');
  return clean;
}

void FailAsPlugin() {
  as_plugin = true;
}

Status FailUsage(const std::string& message) {
  return Fail(message + "; see ztsys --help", kUsage);
}

}  // namespace ztsys
