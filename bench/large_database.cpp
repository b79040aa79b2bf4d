// SPDX-License-Identifier: Apache-2.0
#include "bench/large_database.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace bench {

SystemKey key_of(int system) {
  return static_cast<SystemKey>(static_cast<std::uint32_t>(system + 1) * 2654435761U);
}

zt_SystemInfo_struct record_of(int system) {
  zt_SystemInfo_struct record{};
  std::snprintf(record.fSystemName, sizeof record.fSystemName, "system%06d.example.org", system);
  return record;
}

void make_database(const std::string& path, int systems) {
  for (const char* companion : {"", ".lk", ".sem"})
    std::filesystem::remove(path + companion);
  std::ofstream file(path, std::ios::binary);
  std::string slot(kSlotSize, '\0');
  slot[1 + sizeof(SystemKey)] = kCurrentSysDBVersion;
  file << slot;
  for (int i = 0; i < systems; ++i) {
    const SystemKey key = key_of(i);
    const zt_SystemInfo_struct record = record_of(i);
    std::memcpy(slot.data() + 1, &key, sizeof key);
    std::memcpy(slot.data() + 1 + sizeof key, &record, sizeof record);
    file << slot;
  }
}

}  // namespace bench
