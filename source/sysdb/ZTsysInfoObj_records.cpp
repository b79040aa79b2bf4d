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

namespace {

constexpr std::array<const char*, 7> SystemTypes = {
    "ALDER full function", "ALDER desktop", "BIRCH/OS full function",
    "BIRCH/OS desktop",    "CDR/XS",        "DUN/DNX full function",
    "DUN/DNX desktop"};
constexpr std::array<const char*, 7> SystemCodes = {"ALDER",  "ALDRDT", "Birch", "BIRDT",
                                                    "CDR/XS", "DNX",    "DNXDT"};
constexpr std::array<const char*, 2> AgentCodes = {"ZTFF", "ZTDT"};
constexpr std::array<const char*, 2> AgentTypes = {"Full Function Agent", "Desktop Agent"};

// Fills a text field, cut to its size, zero behind the text.
template <std::size_t size>
void StoreText(char (&field)[size], std::string_view text) {
  const std::size_t length = std::min(text.size(), size - 1);
  std::fill(std::copy_n(text.data(), length, field), field + size, '\0');
}

// The text of a field that may come from a damaged file, without a terminator.
template <std::size_t size>
std::string_view FieldText(const char (&field)[size]) {
  return {field, strnlen(field, size)};
}

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

int GetHostName(SystemKey system_key, char* system_name, int system_name_size) {
  return SystemKeyToARPAName(system_key, system_name, system_name_size) == 0 ? 1 : 0;
}

int ReturnSupportedSystemTypeCount() {
  return static_cast<int>(SystemTypes.size());
}

int ReturnSupportedAgentCount() {
  return static_cast<int>(AgentCodes.size());
}

const char* const* ReturnSystemTypeNames() {
  return SystemTypes.data();
}

const char* const* ReturnSystemTypeCodes() {
  return SystemCodes.data();
}

const char* const* ReturnAgentTypeCodes() {
  return AgentCodes.data();
}

const char* const* ReturnAgentTypeNames() {
  return AgentTypes.data();
}

const char* ReturnSystemTypeCode(int system_type) {
  if (system_type < 1 || system_type > ReturnSupportedSystemTypeCount())
    return nullptr;
  return SystemCodes[static_cast<std::size_t>(system_type - 1)];
}

zt_SystemInfo_class::zt_SystemInfo_class(const zt_SystemInfo_struct& info, SystemKey key)
    : fSystemKey(key), fSystemInfo(info) {
  StoreText(fSystemInfo.fSystemName, FieldText(info.fSystemName));
  StoreText(fSystemInfo.fGroupName, FieldText(info.fGroupName));
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

zt_SystemInfo_class::zt_SystemInfo_class(const char* system_name) {
  if (system_name == nullptr)
    return;
  StoreText(fSystemInfo.fSystemName, system_name);
  zt_SystemDBAccess_class access;
  fSystemKey = access.ReturnSystemKey(system_name);
}

zt_SystemInfo_class::zt_SystemInfo_class(const char* system_name, const char* group_name)
    : zt_SystemInfo_class(system_name) {
  SetGroupName(group_name);
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

const char* zt_SystemInfo_class::ReturnBackConnectName() const {
  zt_SystemDBAccess_class access;
  return access.ReturnBackConnectName(fSystemKey);
}

void zt_SystemInfo_class::SetSystemName(const char* system_name) {
  if (system_name == nullptr)
    return;
  zt_SystemDBAccess_class access;
  int error = 0;
  const SystemKey key = access.ReturnSystemKey(system_name, error);
  if (error == 0 && key == fSystemKey)
    StoreText(fSystemInfo.fSystemName, system_name);
}

void zt_SystemInfo_class::SetGroupName(const char* group_name) {
  if (group_name != nullptr)
    StoreText(fSystemInfo.fGroupName, group_name);
}

void zt_SystemInfo_class::SetAlarmMonitorStatus(int status) {
  fSystemInfo.fAlarmMonitorStatus = static_cast<signed char>(status);
  if (status == 0)
    fSystemInfo.fMonitorAlarms = 0;
}

void zt_SystemInfo_class::SetMonitorAlarms(int set) {
  fSystemInfo.fMonitorAlarms = static_cast<signed char>((set > 0) - (set < 0));
}

void zt_SystemInfo_class::SetAlarmMgrError(int error) {
  fSystemInfo.fAlarmMgrError = Narrow(error);
}

void zt_SystemInfo_class::SetAlarmCount(int count) {
  fSystemInfo.fAlarmCount = Narrow(count);
}

void zt_SystemInfo_class::SetSystemType(int type) {
  fSystemInfo.fSystemType = Narrow(type);
}

int zt_SystemInfo_class::ReturnAlarmState(int alarmnumber) const {
  const int state = BIT_MANIPULATION_OBJECT(fSystemInfo.fAlarmStates, kBitsPerAlarm, kMaxAlarms)
                        .GetBitField(alarmnumber);
  return std::max(state, 0);
}

void zt_SystemInfo_class::GetAlarmArray(int* alarm_array) const {
  BIT_MANIPULATION_OBJECT(fSystemInfo.fAlarmStates, kBitsPerAlarm, kMaxAlarms)
      .GetBitArray(alarm_array);
}

void zt_SystemInfo_class::SetAlarmState(int alarm_state, int alarm_number) {
  BIT_MANIPULATION_OBJECT states(fSystemInfo.fAlarmStates, kBitsPerAlarm, kMaxAlarms);
  states.SetBitField(alarm_number, alarm_state);
  states.GetBitArray(static_cast<void*>(fSystemInfo.fAlarmStates));
}

void zt_SystemInfo_class::ResetAlarmStates() {
  std::fill(std::begin(fSystemInfo.fAlarmStates), std::end(fSystemInfo.fAlarmStates),
            static_cast<unsigned char>(0));
}
