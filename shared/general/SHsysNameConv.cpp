// SPDX-License-Identifier: Apache-2.0
#include "shared/general/SHsysNameConv.h"

#include <cstdio>
#include <cstring>
#include <optional>

#include "platform/sys/sockets.h"

namespace {

// The key of an entry's first address; the others are of no interest.
SystemKey FirstKey(const std::optional<sockets::HostEntry>& entry) {
  return entry && entry->h_addr_list.front() != 0
             ? static_cast<SystemKey>(entry->h_addr_list.front())
             : kNoSystemKey;
}

ptc_KeyConversion_struct Conversion(SystemKey key) {
  ptc_KeyConversion_struct conversion;
  conversion.Int = static_cast<std::uint32_t>(key);
  return conversion;
}

}  // namespace

void SHformatSystemKey(ptc_KeyConversion_struct key, char* output, logical_flag includePoundSign) {
  std::snprintf(output, kKeyTextSize, "%s%d.%d.%d.%d", includePoundSign == myTrue ? "#" : "",
                key.Char[0], key.Char[1], key.Char[2], key.Char[3]);
}

void SystemKeyToIPAddr(SystemKey key, char* output) {
  SHformatSystemKey(Conversion(key), output, myFalse);
}

int ARPANameToSystemKey(char* name, SystemKey& key) {
  std::vector<SystemKey> keys;
  return ARPANameToSystemKeys(name, key, keys);
}

int ARPANameToSystemKeys(char* name, SystemKey& key, std::vector<SystemKey>& keys) {
  std::size_t length = std::strlen(name);
  while (length > 0 && name[length - 1] == ' ')
    name[--length] = '\0';

  keys.clear();
  key = static_cast<SystemKey>(sockets::inet_addr(name));
  if (key == 0) {
    key = kNoSystemKey;
  } else if (key != kNoSystemKey) {
    keys.push_back(key);
  } else if (const auto entry = sockets::gethostbyname(name)) {
    key = FirstKey(entry);
    for (const std::uint32_t address : entry->h_addr_list)
      keys.push_back(static_cast<SystemKey>(address));
  }
  return key == kNoSystemKey ? -1 : 0;
}

bool SystemHasOtherFamily(const char* name) {
  return sockets::has_other_family(name);
}

int GetLocalSystemKey(SystemKey& key) {
  char name[kHostNameSize];
  if (sockets::gethostname(name, sizeof(name)) < 0)
    return -1;
  const SystemKey found = FirstKey(sockets::gethostbyname(name));
  if (found == kNoSystemKey)
    return -2;
  key = found;
  return 0;
}

int SystemKeyToARPAName(SystemKey key, char* output, std::int32_t size) {
  if (key == kNoSystemKey)
    return -1;
  const std::optional<sockets::HostEntry> entry =
      sockets::gethostbyaddr(static_cast<std::uint32_t>(key));
  if (!entry || size <= 0 || entry->h_name.size() >= static_cast<std::size_t>(size))
    return -1;
  std::memcpy(output, entry->h_name.c_str(), entry->h_name.size() + 1);
  return 0;
}
