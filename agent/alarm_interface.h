// SPDX-License-Identifier: Apache-2.0
// The interface `ag` of the alarm server: its settings and the systems that receive its alarms.

#pragma once

#include <cstdint>
#include <map>

#include "ag_server.h"
#include "agent/operation_script.h"
#include "agent/scenario.h"

namespace agent {

// The alarm server's own statuses.
inline constexpr error_status_t kAlarmUnknownSystem = 0x4C010001;
inline constexpr error_status_t kAlarmUnknownType = 0x4C010002;
inline constexpr error_status_t kAlarmFull = 0x4C010007;

class AlarmInterface : public Scripted<ag_Server> {
 public:
  static constexpr std::size_t kMostSystems = 32'768;

  // The script is not owned.
  AlarmInterface(OperationScript& script, const AlarmServer& settings);

  void ag_Register(const rpc::server::CallInfo& call, std::int32_t system_key,
                   ag_eSystemType system_type, error_status_t* status) override;
  void ag_Unregister(const rpc::server::CallInfo& call, std::int32_t system_key,
                     ag_eSystemType system_type, error_status_t* status) override;
  void ag_SetEvCFlag(const rpc::server::CallInfo& call, std::uint32_t flag,
                     error_status_t* status) override;
  void ag_GetEvCFlag(const rpc::server::CallInfo& call, std::uint32_t* flag,
                     error_status_t* status) override;
  void ag_SetExecFlag(const rpc::server::CallInfo& call, std::uint32_t _flag,
                      error_status_t* status) override;
  void ag_GetExecFlag(const rpc::server::CallInfo& call, std::uint32_t* flag,
                      error_status_t* status) override;
  void ag_SetInterval(const rpc::server::CallInfo& call, std::uint32_t Interval,
                      error_status_t* status) override;
  void ag_GetInterval(const rpc::server::CallInfo& call, std::uint32_t* Interval,
                      error_status_t* status) override;
  void ag_SetEvCError(const rpc::server::CallInfo& call, std::uint32_t error,
                      error_status_t* status) override;
  void ag_GetEvCError(const rpc::server::CallInfo& call, std::uint32_t* error,
                      error_status_t* status) override;
  void ag_GetGeneralInfo(const rpc::server::CallInfo& call, ag_GeneralInfo_struct* general_info,
                         error_status_t* status) override;
  void ag_RegisterZT(const rpc::server::CallInfo& call, std::int32_t system_key,
                     error_status_t* status) override;
  void ag_UnregisterZT(const rpc::server::CallInfo& call, std::int32_t system_key,
                       error_status_t* status) override;
  void ag_RegisterSNMP(const rpc::server::CallInfo& call, std::int32_t system_key,
                       error_status_t* status) override;
  void ag_UnregisterSNMP(const rpc::server::CallInfo& call, std::int32_t system_key,
                         error_status_t* status) override;
  void ag_SetZTError(const rpc::server::CallInfo& call, std::int32_t system_key,
                     std::uint32_t error, error_status_t* status) override;
  void ag_GetZTError(const rpc::server::CallInfo& call, std::int32_t system_key,
                     const std::uint32_t* error, error_status_t* status) override;
  void ag_SetSNMPError(const rpc::server::CallInfo& call, std::int32_t system_key,
                       std::uint32_t error, error_status_t* status) override;
  void ag_GetSNMPError(const rpc::server::CallInfo& call, std::int32_t system_key,
                       const std::uint32_t* error, error_status_t* status) override;
  // Lists the systems from the lookup handle on (0 at first), in the order of their addresses; a
  // system key other than 0 asks for that system alone. The handle that comes back goes on behind
  // the last one sent, or is 0 at the end.
  void ag_GetSystems(const rpc::server::CallInfo& call, std::int32_t system_key,
                     std::uint16_t* lookup_handle, std::uint16_t max_index,
                     std::uint16_t* last_index, std::uint16_t* num_results,
                     ag_SystemInfo_struct* results, error_status_t* status) override;
  void ag_Ping(const rpc::server::CallInfo& call, error_status_t* status) override;
  // 1 when settings or systems have changed since the last call of this operation, else 0.
  void ag_DBChanged(const rpc::server::CallInfo& call, std::int32_t* db_changed,
                    error_status_t* status) override;
  void ag_DeleteZT(const rpc::server::CallInfo& call, std::int32_t system_key,
                   error_status_t* status) override;

 private:
  using Setting = std::uint32_t AlarmServer::*;
  // The two ways of receiving alarms, and the error of each.
  using Registration = bool RegisteredSystem::*;
  using ErrorValue = std::uint32_t RegisteredSystem::*;

  void set(Setting setting, std::uint32_t value, error_status_t* status);
  void get(Setting setting, std::uint32_t* value, error_status_t* status) const;
  // A null registration is an unknown type.
  error_status_t add(std::int32_t key, Registration registration);
  error_status_t remove(std::int32_t key, Registration registration);
  error_status_t set_error(std::int32_t key, ErrorValue error, std::uint32_t value);
  RegisteredSystem* find(std::int32_t key);

  AlarmServer state_;  // the settings as they are now; its list of systems is not used
  std::map<std::uint32_t, RegisteredSystem> systems_;  // by address
  bool changed_ = false;
};

}  // namespace agent
