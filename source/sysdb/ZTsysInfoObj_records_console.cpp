// SPDX-License-Identifier: Apache-2.0
// What the console calls and no program of ours does (docs/console-surface.md): systems made from
// names, alarm states, tables of types.

#include <algorithm>
#include <array>

#include "shared/general/SHbitManipObj.h"
#include "source/sysdb/ZTsysInfoObj.h"
#include "source/sysdb/ZTsysInfoObj_fields.h"

namespace {

constexpr std::array<const char*, 2> kAgentCodes = {"ZTFF", "ZTDT"};
constexpr std::array<const char*, 2> kAgentTypes = {"Full Function Agent", "Desktop Agent"};

}  // namespace

int GetHostName(SystemKey system_key, char* system_name, int system_name_size) {
  return SystemKeyToARPAName(system_key, system_name, system_name_size) == 0 ? 1 : 0;
}

int ReturnSupportedAgentCount() {
  return static_cast<int>(kAgentCodes.size());
}

const char* const* ReturnSystemTypeCodes() {
  return kSystemCodes.data();
}

const char* const* ReturnAgentTypeCodes() {
  return kAgentCodes.data();
}

const char* const* ReturnAgentTypeNames() {
  return kAgentTypes.data();
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

void zt_SystemInfo_class::SetAlarmMonitorStatus(int status) {
  fSystemInfo.fAlarmMonitorStatus = static_cast<signed char>(status);
  if (status == 0)
    fSystemInfo.fMonitorAlarms = 0;
}

void zt_SystemInfo_class::SetAlarmMgrError(int error) {
  fSystemInfo.fAlarmMgrError = static_cast<std::int16_t>(error);
}

int zt_SystemInfo_class::ReturnAlarmState(int alarmnumber) const {
  const int state = BIT_MANIPULATION_OBJECT(fSystemInfo.fAlarmStates, kBitsPerAlarm, kMaxAlarms)
                        .GetBitField(alarmnumber);
  return std::max(state, 0);
}

void zt_SystemInfo_class::SetAlarmState(int alarm_state, int alarm_number) {
  BIT_MANIPULATION_OBJECT states(fSystemInfo.fAlarmStates, kBitsPerAlarm, kMaxAlarms);
  states.SetBitField(alarm_number, alarm_state);
  states.GetBitArray(static_cast<void*>(fSystemInfo.fAlarmStates));
}
