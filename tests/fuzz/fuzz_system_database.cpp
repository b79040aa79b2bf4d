// SPDX-License-Identifier: Apache-2.0
// Any bytes as a system database: it opens or is refused untouched, and what opens keeps its
// promises under lookups, stores and deletions.

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "shared/general/nt/SHderControlObj.h"
#include "source/sysdb/ZTsysInfoObj.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/scratch_folder.h"

namespace {

constexpr std::size_t kSlotSize = 501;
constexpr std::size_t kMaxFile = 40 * kSlotSize;

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<SystemKey> Walk(zt_SystemDBMgt_class& manager) {
  std::vector<SystemKey> keys;
  zt_SystemInfo_class info;
  for (int status = manager.GetFirstSystemRec(info); status == 0;
       status = manager.GetNextSystemRec(info)) {
    keys.push_back(info.ReturnSystemKey());
    fuzz::require(std::string(info.ReturnSystemName()).size() < kSystemNameSize);
    fuzz::require(std::string(info.ReturnGroupName()).size() < kGroupNameSize);
  }
  return keys;
}

// Every system is found, stored in place and deleted, down to an empty database.
void Use(zt_SystemDBMgt_class& manager, const std::string& path) {
  const std::vector<SystemKey> keys = Walk(manager);
  fuzz::require(manager.GetSystemRecCount() == static_cast<int>(keys.size()));
  for (const SystemKey key : keys) {
    zt_SystemInfo_class info;
    fuzz::require(manager.GetSystemRec(key, info) == 0 && info.ReturnSystemKey() == key);
    fuzz::require(manager.ReturnGroupName(key) != nullptr);
    if (key != kNoSystemKey)
      fuzz::require(manager.PutSystemRec(info) == 0);
  }
  const std::size_t size = ReadFile(path).size();
  zt_SystemInfo_struct record{};
  const std::set<SystemKey> known(keys.begin(), keys.end());
  SystemKey added = 1;
  while (known.count(added) != 0)
    ++added;
  fuzz::require(manager.PutSystemRec({record, added}) == 0);
  fuzz::require(ReadFile(path).size() <= size + kSlotSize);
  fuzz::require(manager.DeleteSystemRec(added) == 0);
  for (const SystemKey key : keys)
    fuzz::require(manager.DeleteSystemRec(key) == 0);
  fuzz::require(Walk(manager).empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string folder = fuzz::scratch_folder();
  static const CONTROL_OBJ control;
  BASE_CONTROL_OBJ::SetDirectory(folder.c_str());
  const std::string path = folder + "/ztdb";
  if (size > kMaxFile)
    return 0;
  const std::string input(reinterpret_cast<const char*>(data), size);
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(input.data(), static_cast<std::streamsize>(input.size()));

  bool valid = false;
  {
    zt_SystemDBMgt_class manager(path.c_str());
    valid = manager.ValidObj() != 0;
    if (!valid)
      fuzz::require(manager.ReturnError() != 0 && ReadFile(path) == input);
  }
  if (valid) {
    const std::string opened = ReadFile(path);
    zt_SystemDBMgt_class manager(path.c_str());
    fuzz::require(manager.ValidObj() != 0 && ReadFile(path) == opened);
    Use(manager, path);
  }
  return 0;
}
