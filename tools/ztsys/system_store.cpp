// SPDX-License-Identifier: Apache-2.0
#include "tools/ztsys/system_store.h"

#include <cstddef>
#include <cstring>

namespace ztsys {

namespace {

constexpr unsigned kBlockBits = 20;
constexpr std::size_t kBlockSize = std::size_t{1} << kBlockBits;

// A record is its key, the fields that are kept as they stand (three runs of octets), and three
// texts of a length of their own: the name, the group and the alarm states up to the last that is
// not zero.
constexpr std::size_t kFirstRun = offsetof(zt_SystemInfo_struct, fAlarmMonitorStatus);
constexpr std::size_t kFirstRunSize = offsetof(zt_SystemInfo_struct, fGroupName) - kFirstRun;
constexpr std::size_t kSecondRun = offsetof(zt_SystemInfo_struct, fAlarmSequenceNumber);
constexpr std::size_t kSecondRunSize = offsetof(zt_SystemInfo_struct, fAlarmStates) - kSecondRun;
constexpr std::size_t kThirdRun = offsetof(zt_SystemInfo_struct, fSystemType);
constexpr std::size_t kThirdRunSize = sizeof(zt_SystemInfo_struct) - kThirdRun;

struct Field {
  std::size_t at;
  std::size_t size;
};
constexpr Field kFixed[] = {
    {kFirstRun, kFirstRunSize}, {kSecondRun, kSecondRunSize}, {kThirdRun, kThirdRunSize}};
constexpr Field kTexts[] = {
    {offsetof(zt_SystemInfo_struct, fSystemName), kSystemNameSize - 1},
    {offsetof(zt_SystemInfo_struct, fGroupName), kGroupNameSize - 1},
    {offsetof(zt_SystemInfo_struct, fAlarmStates), sizeof(zt_SystemInfo_struct::fAlarmStates)}};

// Octets of a field up to the last that is not zero.
std::size_t Length(const char* field, std::size_t size) {
  if (const void* zero = std::memchr(field, 0, size); zero != nullptr) {
    const auto first = static_cast<std::size_t>(static_cast<const char*>(zero) - field);
    if (first + 1 >= size || std::memcmp(field + first, field + first + 1, size - first - 1) == 0)
      return first;
  }
  while (size > 0 && field[size - 1] == 0)
    --size;
  return size;
}

}  // namespace

void SystemStore::Add(const zt_SystemInfo_class& info) {
  constexpr std::size_t kMost = sizeof(SystemKey) + sizeof(zt_SystemInfo_struct) + 6;
  if (blocks_.empty() || used_ + kMost > kBlockSize) {
    blocks_.push_back(std::make_unique_for_overwrite<char[]>(kBlockSize));
    used_ = 0;
  }
  char* const block = blocks_.back().get();
  at_.push_back(static_cast<std::uint32_t>((blocks_.size() - 1) << kBlockBits | used_));
  SystemKey key = kNoSystemKey;
  const zt_SystemInfo_struct record = info.ReturnStruct(key);
  const char* const bytes = reinterpret_cast<const char*>(&record);
  const auto put = [&](const void* from, std::size_t size) {
    std::memcpy(block + used_, from, size);
    used_ += size;
  };
  put(&key, sizeof key);
  for (const Field& field : kFixed)
    put(bytes + field.at, field.size);
  for (const Field& field : kTexts) {
    const auto length = static_cast<std::uint16_t>(Length(bytes + field.at, field.size));
    put(&length, sizeof length);
    put(bytes + field.at, length);
  }
}

zt_SystemInfo_class SystemStore::operator[](std::size_t index) const {
  const std::uint32_t at = at_[index];
  const char* from = blocks_[at >> kBlockBits].get() + (at & (kBlockSize - 1));
  SystemKey key = kNoSystemKey;
  zt_SystemInfo_struct record{};
  char* const bytes = reinterpret_cast<char*>(&record);
  const auto take = [&](void* to, std::size_t size) {
    std::memcpy(to, from, size);
    from += size;
  };
  take(&key, sizeof key);
  for (const Field& field : kFixed)
    take(bytes + field.at, field.size);
  for (const Field& field : kTexts) {
    std::uint16_t length = 0;
    take(&length, sizeof length);
    take(bytes + field.at, length);
  }
  return {record, key};
}

}  // namespace ztsys
