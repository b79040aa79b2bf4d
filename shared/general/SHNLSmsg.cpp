// SPDX-License-Identifier: Apache-2.0
#include "shared/general/SHNLSmsg.h"

#include "platform/sys/catalog.h"

int NLS_MESSAGE_OBJ::NLScatd = -1;
const char* NLS_MESSAGE_OBJ::NLSmessage = nullptr;
char NLS_MESSAGE_OBJ::NLSDateTime[31];

namespace {

constexpr char kMarker = '!';

std::string MissingMessage(int set, int message) {
  return "<message catalog missing message " + std::to_string(message) + " in set " +
         std::to_string(set) + ">";
}

// The parameter without its trailing blanks; one of blanks only stays as it is.
std::string_view TrimmedParameter(std::string_view parameter) {
  const std::size_t last = parameter.find_last_not_of(' ');
  return last == std::string_view::npos ? parameter : parameter.substr(0, last + 1);
}

}  // namespace

NLS_MESSAGE_OBJ::NLS_MESSAGE_OBJ(const char* catalog_path) {
  NLScatd = catalog::catopen(catalog_path, 0);
}

NLS_MESSAGE_OBJ::~NLS_MESSAGE_OBJ() {
  catalog::catclose(NLScatd);
  NLScatd = -1;
  NLSmessage = nullptr;
}

std::string NLS_MESSAGE_OBJ::FormatNLSmessage(int set, int message, const char* parameter) {
  const char* const text = catalog::catgets(NLScatd, set, message, nullptr);
  if (text == nullptr)
    return MissingMessage(set, message);
  return SubstituteParameter(text, parameter == nullptr ? "" : parameter);
}

std::string NLS_MESSAGE_OBJ::SubstituteParameter(std::string_view text,
                                                 std::string_view parameter) {
  std::string result;
  bool marker_left = !parameter.empty();
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == kMarker && marker_left) {
      result += TrimmedParameter(parameter);
      marker_left = false;
      continue;
    }
    result += text[i];
    // Catalog texts are printf formats: a percent sign stands there doubled.
    if (text.substr(i, 2) == "%%")
      ++i;
  }
  return result;
}
