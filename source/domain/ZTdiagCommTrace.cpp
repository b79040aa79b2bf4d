// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTdiagCommTrace.h"

#include <cstdarg>
#include <cstdio>
#include <string>

#include "present/util/util.h"
#include "source/support/ZTformat.h"

int zt_DiagCommTrace_class::fDebugOn = 0;
int zt_DiagCommTrace_class::fDebugLevel = 0;
zt_DiagCommTrace_class gTraceObj;

namespace {

constexpr int kIndentation = 3;  // columns per level

void write_line(int level, const std::string& text) {
  DateTime now;
  now.SetTimeNow();
  const char* time = now.FmtTime();
  const char* date = now.FmtMdy();
  std::fprintf(stderr, "%s %s [%2d]%*s%s\n", date, time, level, kIndentation * level, " ",
               text.c_str());
  std::fflush(stderr);
}

}  // namespace

void zt_DiagCommTrace_class::TraceEnter(const char* operation) {
  if (!fDebugOn)
    return;
  write_line(fDebugLevel, std::string("Enter ") + operation);
  ++fDebugLevel;
}

void zt_DiagCommTrace_class::TraceExit(const char* operation) {
  if (!fDebugOn)
    return;
  --fDebugLevel;
  write_line(fDebugLevel, std::string("Exit  ") + operation);
}

void zt_DiagCommTrace_class::LogMsg(const char* format, ...) {
  if (!fDebugOn)
    return;
  std::va_list arguments;
  va_start(arguments, format);
  const std::string text = format_text(format, arguments);
  va_end(arguments);
  write_line(fDebugLevel, text);
}
