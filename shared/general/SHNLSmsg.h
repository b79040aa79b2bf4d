// SPDX-License-Identifier: Apache-2.0
// Messages from the catalog by set and number, and the substitution of a parameter for the first
// exclamation mark of a text. One catalog serves the whole process.

#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

class NLS_MESSAGE_OBJ {
 public:
  // Opens the catalog of that path. A catalog that cannot be opened is reported by no one: every
  // message then reads as its fallback.
  explicit NLS_MESSAGE_OBJ(const char* catalog_path);
  ~NLS_MESSAGE_OBJ();
  NLS_MESSAGE_OBJ(const NLS_MESSAGE_OBJ&) = delete;
  NLS_MESSAGE_OBJ& operator=(const NLS_MESSAGE_OBJ&) = delete;

  // The catalog's own text, or default_text (which may be null) when there is none. Good until the
  // catalog is closed.
  static const char* GetNLSmessage(int set, int message, const char* default_text);

  // The text with the parameter, its trailing blanks cut off, in place of the first '!'. A null or
  // empty parameter leaves the text as it is. A missing message gives
  // "<message catalog missing message %d in set %d>".
  static std::string FormatNLSmessage(int set, int message, const char* parameter);

  // The text formatted with further arguments by printf's rules; without a catalog the default
  // text, unformatted. A catalog text whose conversions are not those of the default text would
  // read arguments that were never passed; the default text is formatted in its place.
  static std::string CreateNLSmessage(int set, int message, const char* default_text, ...);
  static std::string CreateNLSmessage_valist(int set, int message, const char* default_text,
                                             std::va_list arguments);

  // The current local date and time, in a buffer that the next call overwrites.
  static const char* GetNLSDateTime();

  // What FormatNLSmessage makes of a catalog text.
  static std::string SubstituteParameter(std::string_view text, std::string_view parameter);

 private:
  static int NLScatd;
  static const char* NLSmessage;
  static char NLSDateTime[31];
};
