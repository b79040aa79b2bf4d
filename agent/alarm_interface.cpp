// SPDX-License-Identifier: Apache-2.0
#include "agent/alarm_interface.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/rpc/names/socket_address.h"

namespace agent {

namespace {

// A system key's lowest byte is the address's first octet.
std::uint32_t address_of(std::int32_t key) {
  return __builtin_bswap32(static_cast<std::uint32_t>(key));
}

std::int32_t key_of(std::uint32_t address) {
  return static_cast<std::int32_t>(__builtin_bswap32(address));
}

void put(ag_SystemInfo_struct& result, const RegisteredSystem& system) {
  const std::string text = "#" + rpc::dotted(system.address);
  result.SystemKey = key_of(system.address);
  result.ZTSystem = system.console ? 1 : 0;
  result.ZTError = system.console_error;
  result.SNMPSystem = system.snmp ? 1 : 0;
  result.SNMPError = system.snmp_error;
  result.SocketStrLen = static_cast<std::uint16_t>(text.size());
  std::memcpy(result.SocketString, text.data(), text.size());
}

}  // namespace

AlarmInterface::AlarmInterface(const AlarmServer& settings) {
  reset(settings);
}

void AlarmInterface::reset(const AlarmServer& settings) {
  state_ = settings;
  systems_.clear();
  for (const RegisteredSystem& system : settings.systems)
    systems_[system.address] = system;
}

AlarmInterface::Registration AlarmInterface::registration_of(ag_eSystemType type) {
  if (type == ag_cSystemZT)
    return &RegisteredSystem::console;
  return type == ag_cSystemSNMP ? &RegisteredSystem::snmp : nullptr;
}

RegisteredSystem* AlarmInterface::find(std::int32_t key) {
  const auto found = systems_.find(address_of(key));
  return found != systems_.end() ? &found->second : nullptr;
}

error_status_t AlarmInterface::add(std::int32_t key, Registration registration) {
  if (registration == nullptr)
    return kAlarmUnknownType;
  if (find(key) == nullptr && systems_.size() == kMostSystems)
    return kAlarmFull;
  RegisteredSystem& system = systems_[address_of(key)];
  system.address = address_of(key);
  system.*registration = true;
  changed_ = true;
  return 0;
}

error_status_t AlarmInterface::remove(std::int32_t key, Registration registration) {
  if (registration == nullptr)
    return kAlarmUnknownType;
  RegisteredSystem* system = find(key);
  if (system == nullptr || !(system->*registration))
    return kAlarmUnknownSystem;
  system->*registration = false;
  if (!system->console && !system->snmp)
    systems_.erase(address_of(key));
  changed_ = true;
  return 0;
}

error_status_t AlarmInterface::set_error(std::int32_t key, ErrorValue error, std::uint32_t value) {
  RegisteredSystem* system = find(key);
  if (system == nullptr)
    return kAlarmUnknownSystem;
  system->*error = value;
  changed_ = true;
  return 0;
}

void AlarmInterface::GetGeneralInfo(const CallInfo&, ag_GeneralInfo_struct* general_info,
                                    error_status_t*) {
  general_info->Version = state_.version;
  general_info->ObjectId = state_.object;
  general_info->EvC = state_.evc_flag;
  general_info->Exec = state_.exec_flag;
  general_info->Interval = state_.interval;
  general_info->EvCError = state_.evc_error;
}

void AlarmInterface::GetSystems(const CallInfo&, std::int32_t system_key,
                                std::uint16_t* lookup_handle, std::uint16_t max_index,
                                std::uint16_t* last_index, std::uint16_t* num_results,
                                rpc::server::Results<ag_SystemInfo_struct>& results,
                                error_status_t* status) {
  // num_results has 16 bits as well: it cannot say 65,536.
  const std::size_t room = std::min<std::size_t>(std::size_t{max_index} + 1, 0xFFFF);
  const std::size_t first = *lookup_handle;
  std::size_t index = 0;
  std::size_t filled = 0;
  *lookup_handle = 0;
  for (const auto& [address, system] : systems_) {
    if (system_key != 0 && address != address_of(system_key))
      continue;
    if (index++ < first)
      continue;
    if (filled == room) {
      *lookup_handle = static_cast<std::uint16_t>(first + filled);
      break;
    }
    put(results[filled++], system);
  }
  *num_results = static_cast<std::uint16_t>(filled);
  if (filled == 0)
    *status = kAlarmUnknownSystem;
  else
    *last_index = static_cast<std::uint16_t>(filled - 1);
}

void AlarmInterface::DBChanged(const CallInfo&, std::int32_t* db_changed, error_status_t*) {
  *db_changed = changed_ ? 1 : 0;
  changed_ = false;
}

// Unlike Unregister, takes the console off the list however it stands there.
void AlarmInterface::DeleteZT(const CallInfo&, std::int32_t system_key, error_status_t* status) {
  RegisteredSystem* system = find(system_key);
  if (system == nullptr) {
    *status = kAlarmUnknownSystem;
    return;
  }
  system->console = false;
  system->console_error = 0;
  if (!system->snmp)
    systems_.erase(address_of(system_key));
  changed_ = true;
}

}  // namespace agent
