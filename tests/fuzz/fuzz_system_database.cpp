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

namespace {

constexpr std::size_t kSlotSize = 501;
constexpr std::size_t kMaxFile = 40 * kSlotSize;

void Require(bool promise) {
  if (!promise)
    std::abort();
}

std::string Folder() {
  std::string path =
      access("/dev/shm", W_OK) == 0 ? "/dev/shm/zt-fuzz-XXXXXX" : "/tmp/zt-fuzz-XXXXXX";
  Require(mkdtemp(path.data()) != nullptr);
  return path;
}

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
    Require(std::string(info.ReturnSystemName()).size() < kSystemNameSize);
    Require(std::string(info.ReturnGroupName()).size() < kGroupNameSize);
  }
  return keys;
}

// Every system is found, stored in place and deleted, down to an empty database.
void Use(zt_SystemDBMgt_class& manager, const std::string& path) {
  const std::vector<SystemKey> keys = Walk(manager);
  Require(manager.GetSystemRecCount() == static_cast<int>(keys.size()));
  for (const SystemKey key : keys) {
    zt_SystemInfo_class info;
    Require(manager.GetSystemRec(key, info) == 0 && info.ReturnSystemKey() == key);
    Require(manager.ReturnGroupName(key) != nullptr);
    if (key != kNoSystemKey)
      Require(manager.PutSystemRec(info) == 0);
  }
  const std::size_t size = ReadFile(path).size();
  zt_SystemInfo_struct record{};
  const std::set<SystemKey> known(keys.begin(), keys.end());
  SystemKey added = 1;
  while (known.count(added) != 0)
    ++added;
  Require(manager.PutSystemRec({record, added}) == 0);
  Require(ReadFile(path).size() <= size + kSlotSize);
  Require(manager.DeleteSystemRec(added) == 0);
  for (const SystemKey key : keys)
    Require(manager.DeleteSystemRec(key) == 0);
  Require(Walk(manager).empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string folder = Folder();
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
      Require(manager.ReturnError() != 0 && ReadFile(path) == input);
  }
  if (valid) {
    const std::string opened = ReadFile(path);
    zt_SystemDBMgt_class manager(path.c_str());
    Require(manager.ValidObj() != 0 && ReadFile(path) == opened);
    Use(manager, path);
  }
  return 0;
}
