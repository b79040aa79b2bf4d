// SPDX-License-Identifier: Apache-2.0
// Any text as a back-connect file.

#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>

#include "shared/general/nt/SHderControlObj.h"
#include "source/sysdb/ZTsysInfoObj.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/scratch_folder.h"

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
  return 0;
}
