// SPDX-License-Identifier: Apache-2.0
// The interface `ag` of the alarm server: its settings and the systems that receive its alarms.

#pragma once

#include <cstdint>
#include <map>

#include "ag_server.h"
#include "agent/scenario.h"

namespace agent {

// The alarm server's own statuses.
inline constexpr error_status_t kAlarmUnknownSystem = 0x4C010001;
inline constexpr error_status_t kAlarmUnknownType = 0x4C010002;
inline constexpr error_status_t kAlarmFull = 0x4C010007;

class AlarmInterface : public ag_Server {
 public:
  using CallInfo = rpc::server::CallInfo;

  static constexpr std::size_t kMostSystems = 32'768;

  explicit AlarmInterface(const AlarmServer& settings);
  // Begins with other settings and systems.
  void reset(const AlarmServer& settings);

  void Register(const CallInfo&, std::int32_t key, ag_eSystemType type,
                error_status_t* status) override {
    *status = add(key, registration_of(type));
  }
  void Unregister(const CallInfo&, std::int32_t key, ag_eSystemType type,
                  error_status_t* status) override {
    *status = remove(key, registration_of(type));
  }
  void RegisterZT(const CallInfo&, std::int32_t key, error_status_t* status) override {
    *status = add(key, &RegisteredSystem::console);
  }
  void UnregisterZT(const CallInfo&, std::int32_t key, error_status_t* status) override {
    *status = remove(key, &RegisteredSystem::console);
  }
  void RegisterSNMP(const CallInfo&, std::int32_t key, error_status_t* status) override {
    *status = add(key, &RegisteredSystem::snmp);
  }
  void UnregisterSNMP(const CallInfo&, std::int32_t key, error_status_t* status) override {
    *status = remove(key, &RegisteredSystem::snmp);
  }
  // Unlike Unregister, takes the console off the list however it stands there.
  void DeleteZT(const CallInfo& call, std::int32_t key, error_status_t* status) override;

  void SetEvCFlag(const CallInfo&, std::uint32_t flag, error_status_t*) override {
    set(&AlarmServer::evc_flag, flag);
  }
  void GetEvCFlag(const CallInfo&, std::uint32_t* flag, error_status_t*) override {
    *flag = state_.evc_flag;
  }
  void SetExecFlag(const CallInfo&, std::uint32_t flag, error_status_t*) override {
    set(&AlarmServer::exec_flag, flag);
  }
  void GetExecFlag(const CallInfo&, std::uint32_t* flag, error_status_t*) override {
    *flag = state_.exec_flag;
  }
  void SetInterval(const CallInfo&, std::uint32_t interval, error_status_t*) override {
    set(&AlarmServer::interval, interval);
  }
  void GetInterval(const CallInfo&, std::uint32_t* interval, error_status_t*) override {
    *interval = state_.interval;
  }
  void SetEvCError(const CallInfo&, std::uint32_t error, error_status_t*) override {
    set(&AlarmServer::evc_error, error);
  }
  void GetEvCError(const CallInfo&, std::uint32_t* error, error_status_t*) override {
    *error = state_.evc_error;
  }
  void GetGeneralInfo(const CallInfo& call, ag_GeneralInfo_struct* info,
                      error_status_t* status) override;

  void SetZTError(const CallInfo&, std::int32_t key, std::uint32_t error,
                  error_status_t* status) override {
    *status = set_error(key, &RegisteredSystem::console_error, error);
  }
  void SetSNMPError(const CallInfo&, std::int32_t key, std::uint32_t error,
                    error_status_t* status) override {
    *status = set_error(key, &RegisteredSystem::snmp_error, error);
  }
  // The error value is an in-parameter, so all that the caller learns is whether the system is
  // known.
  void GetZTError(const CallInfo&, std::int32_t key, const std::uint32_t*,
                  error_status_t* status) override {
    *status = known(key);
  }
  void GetSNMPError(const CallInfo&, std::int32_t key, const std::uint32_t*,
                    error_status_t* status) override {
    *status = known(key);
  }
  // Lists the systems from the lookup handle on (0 at first), in the order of their addresses; a
  // key other than 0 asks for that system alone. The handle that comes back goes on behind the last
  // one sent, or is 0 at the end.
  void GetSystems(const CallInfo& call, std::int32_t key, std::uint16_t* lookup_handle,
                  std::uint16_t max_index, std::uint16_t* last_index, std::uint16_t* num_results,
                  rpc::server::Results<ag_SystemInfo_struct>& results,
                  error_status_t* status) override;

  void Ping(const CallInfo&, error_status_t*) override {}
  // 1 when settings or systems have changed since the last call of this operation, else 0.
  void DBChanged(const CallInfo& call, std::int32_t* changed, error_status_t* status) override;

 private:
  using Setting = std::uint32_t AlarmServer::*;
  // The two ways of receiving alarms, and the error of each.
  using Registration = bool RegisteredSystem::*;
  using ErrorValue = std::uint32_t RegisteredSystem::*;

  void set(Setting setting, std::uint32_t value) {
    state_.*setting = value;
    changed_ = true;
  }
  static Registration registration_of(ag_eSystemType type);
  // A null registration is an unknown type.
  error_status_t add(std::int32_t key, Registration registration);
  error_status_t remove(std::int32_t key, Registration registration);
  error_status_t set_error(std::int32_t key, ErrorValue error, std::uint32_t value);
  RegisteredSystem* find(std::int32_t key);
  error_status_t known(std::int32_t key) { return find(key) != nullptr ? 0 : kAlarmUnknownSystem; }

  AlarmServer state_;  // the settings as they are now; its list of systems is not used
  std::map<std::uint32_t, RegisteredSystem> systems_;  // by address
  bool changed_ = false;
};

}  // namespace agent
