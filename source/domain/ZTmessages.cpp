// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTmessages.h"

#include <cstdio>

#include "shared/general/SHNLSmsg.h"
#include "source/support/ZTprintable.h"

std::string message_text(MessageId message, std::string_view parameter) {
  return NLS_MESSAGE_OBJ::FormatNLSmessage(message.set, message.number,
                                           printable(parameter).c_str());
}

bool output_is_whole() {
  return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

void show_message(MessageId message, std::string_view parameter) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s\n", message_text(message, parameter).c_str());
  std::fflush(stderr);
}
