// SPDX-License-Identifier: Apache-2.0
// System records: keys, type tables, and one system in memory.

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <ctime>
#include <string_view>

#include "shared/general/SHbitManipObj.h"
#include "source/sysdb/ZTsysInfoObj.h"
#include "source/sysdb/ZTsysInfoObj_fields.h"

namespace {

constexpr std::array<const char*, 7> SystemTypes = {
    "ALDER full function", "ALDER desktop", "BIRCH/OS full function",
    "BIRCH/OS desktop",    "CDR/XS",        "DUN/DNX full function",
    "DUN/DNX desktop"};

std::int16_t Narrow(int value) {
  return static_cast<std::int16_t>(value);
}

}  // namespace

FileKind KindOfFile(std::string_view start) {
  constexpr std::size_t kVersionAt = 1 + sizeof(SystemKey);
  if (start.size() < kSlotSize) {
    std::array<char, kSlotSize> expected{};
    expected[kVersionAt] = kCurrentSysDBVersion;
    return std::equal(start.begin(), start.end(), expected.begin()) ? FileKind::kNew
                                                                    : FileKind::kForeign;
  }
  std::int32_t version = 0;
  std::memcpy(&version, start.data() + kVersionAt, sizeof version);
  // A deleted version record would be the next insert's place.
  if (start[0] == kIndexSlotDeleted)
    return FileKind::kForeign;
  if (version == kCurrentSysDBVersion)
    return start[0] == kSlotInOlderLayout ? FileKind::kOlder : FileKind::kCurrent;
  return version == kPreviousSysDBVersion ? FileKind::kOlder : FileKind::kForeign;
}

SystemKey ConvertSystemKey(const char* system_key) {
  SystemKey key;
  std::memcpy(&key, system_key, sizeof key);
  return key;
}

void FormatSystemKey(SystemKey system_key, char* format_buffer) {
  const KEY_CONVERSION octets{static_cast<std::uint32_t>(system_key)};
  char* at = format_buffer;
  for (const std::uint8_t octet : octets.Char) {
    at = std::to_chars(at, at + 3, octet).ptr;
    *at++ = '.';
  }
  at[-1] = '\0';
}

int ReturnSupportedSystemTypeCount() {
  return static_cast<int>(SystemTypes.size());
}

const char* const* ReturnSystemTypeNames() {
  return SystemTypes.data();
}

const char* ReturnSystemTypeCode(int system_type) {
  if (system_type < 1 || system_type > ReturnSupportedSystemTypeCount())
    return nullptr;
  return kSystemCodes[static_cast<std::size_t>(system_type - 1)];
}

zt_SystemInfo_class::zt_SystemInfo_class(const zt_SystemInfo_struct& info, SystemKey key)
    : fSystemKey(key), fSystemInfo(info) {
  EndText(fSystemInfo.fSystemName);
  EndText(fSystemInfo.fGroupName);
}

zt_SystemInfo_class::zt_SystemInfo_class(const V3_SYSTEM_INFO& info, SystemKey key)
    : fSystemKey(key) {
  StoreText(fSystemInfo.fSystemName, FieldText(info.fSystemName));
  fSystemInfo.fAlarmMonitorStatus = static_cast<signed char>(info.fAlarmMonitorStatus);
  fSystemInfo.fAlarmSequenceNumber = info.fAlarmSequenceNumber;
  fSystemInfo.fRecUpdateTime = info.fRecUpdateTime;
  fSystemInfo.fAlarmMgrError = info.fAlarmMgrError;
  fSystemInfo.fSystemType = info.fSystemType;
  fSystemInfo.fMapEnabled = 1;
  fSystemInfo.fOldSystem = 1;
  fSystemInfo.fMonitorAlarms = 1;
}

zt_SystemInfo_struct zt_SystemInfo_class::ReturnStruct(SystemKey& key) const {
  key = fSystemKey;
  return fSystemInfo;
}

V3_SYSTEM_INFO zt_SystemInfo_class::ReturnV3Struct(SystemKey& key) const {
  V3_SYSTEM_INFO info{};
  StoreText(info.fSystemName, FieldText(fSystemInfo.fSystemName));
  info.fAlarmSequenceNumber = fSystemInfo.fAlarmSequenceNumber;
  info.fRecUpdateTime = static_cast<std::int32_t>(std::time(nullptr));
  info.fSystemType = fSystemInfo.fSystemType;
  info.fAlarmMgrError = fSystemInfo.fAlarmMgrError;
  info.fAlarmMonitorStatus = 1;
  key = fSystemKey;
  return info;
}

void zt_SystemInfo_class::SetGroupName(const char* group_name) {
  if (group_name != nullptr)
    StoreText(fSystemInfo.fGroupName, group_name);
}

void zt_SystemInfo_class::SetMonitorAlarms(int set) {
  fSystemInfo.fMonitorAlarms = static_cast<signed char>((set > 0) - (set < 0));
}

void zt_SystemInfo_class::SetAlarmCount(int count) {
  fSystemInfo.fAlarmCount = Narrow(count);
}

void zt_SystemInfo_class::SetSystemType(int type) {
  fSystemInfo.fSystemType = Narrow(type);
}

void zt_SystemInfo_class::GetAlarmArray(int* alarm_array) const {
  BIT_MANIPULATION_OBJECT(fSystemInfo.fAlarmStates, kBitsPerAlarm, kMaxAlarms)
      .GetBitArray(alarm_array);
}

void zt_SystemInfo_class::ResetAlarmStates() {
  std::fill(std::begin(fSystemInfo.fAlarmStates), std::end(fSystemInfo.fAlarmStates),
            static_cast<unsigned char>(0));
}
