// SPDX-License-Identifier: Apache-2.0
// Any text as a back-connect file, and the tokenizers on the same text.

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "shared/general/nt/SHderControlObj.h"
#include "source/support/ZTsupport_procs.h"
#include "source/sysdb/ZTsysInfoObj.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/scratch_folder.h"

namespace {

constexpr int kTokenSize = 40;

// A token starts inside the text, is not longer than allowed, and the walk comes to an end.
void TokenizeString(const std::string& text) {
  const char* rest = text.c_str();
  const char* end = rest + std::strlen(rest);
  std::vector<char> token(kTokenSize + 1);
  int position = 0;
  for (int length = 0; (length = GetToken(rest, token.data(), position, kTokenSize)) > 0;) {
    fuzz::require(length <= kTokenSize && position >= 0 && rest + position < end);
    fuzz::require(std::strlen(token.data()) <= static_cast<std::size_t>(length));
    rest += position + length;
    if (rest >= end)
      break;
  }
}

void TokenizeStream(const std::string& text, int interactive) {
  if (text.empty())
    return;
  std::FILE* stream = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
  fuzz::require(stream != nullptr);
  std::vector<char> token(kTokenSize + 1);
  std::size_t tokens = 0;
  while (GetToken(stream, token.data(), kTokenSize, interactive) != 0) {
    fuzz::require(std::memchr(token.data(), '\0', token.size()) != nullptr);
    fuzz::require(++tokens <= text.size());
  }
  std::fclose(stream);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string folder = fuzz::scratch_folder();
  static const CONTROL_OBJ control;
  BASE_CONTROL_OBJ::SetDirectory(folder.c_str());
  static zt_SystemDBMgt_class manager((folder + "/ztdb").c_str());
  constexpr SystemKey kKey = 0x0100000A;
  static const bool stored = [] {
    zt_SystemInfo_struct record{};
    std::strcpy(record.fSystemName, "sys1");
    return manager.PutSystemRec({record, kKey}) == 0;
  }();
  fuzz::require(stored);

  const std::string text(reinterpret_cast<const char*>(data), size);
  std::ofstream(folder + "/ztsysxref", std::ios::binary | std::ios::trunc)
      .write(text.data(), static_cast<std::streamsize>(text.size()));
  const char* name = manager.ReturnBackConnectName(kKey);
  if (name != nullptr) {
    fuzz::require(*name != '\0' && std::strlen(name) < kSystemNameSize);
    fuzz::require(text.find("sys1") != std::string::npos);
  }
  fuzz::require(manager.ReturnError() == 0);

  TokenizeString(text);
  TokenizeStream(text, 0);
  TokenizeStream(text, 1);
  return 0;
}
