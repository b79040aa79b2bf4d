// SPDX-License-Identifier: Apache-2.0
// What one datagram server says of its packets, calls, clients and contexts, and what it counts.

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "agent/context_observer.h"
#include "agent/log.h"
#include "agent/operation_script.h"
#include "platform/rpc/server/server_host.h"

namespace agent {

class ServerLog {
 public:
  // The log is not owned.
  ServerLog(const Log& log, std::string name) : log_(log), name_(std::move(name)) {}

  const std::string& name() const { return name_; }
  bool enabled() const { return log_.enabled(); }
  // Whose interfaces packets are named by; not owned.
  void set_interfaces(std::vector<rpc::server::Interface*> interfaces) {
    interfaces_ = std::move(interfaces);
  }

  void datagram(const rpc::server::DatagramReport& report);
  void call(const rpc::server::CallInfo& call, const rpc::OperationSpec& operation,
            const rpc::server::Outcome& outcome);
  void behaviour(const rpc::server::CallInfo& call, const rpc::OperationSpec& operation,
                 const OperationScript::Choice& choice);
  void event(const rpc::server::CoreEvent& event) const;
  void context(std::string_view object, const uuid_t& id, std::string_view change);
  void state(const std::string& change) const;

  // One event for the server and one for each operation that was called; nothing of a server that
  // heard nothing. `repeats` are the requests that came again.
  void write_counters(const Log& log, std::uint64_t repeats) const;

 private:
  struct OperationCounters {
    std::uint64_t calls = 0;
    std::uint64_t faults = 0;
    std::uint64_t rejects = 0;
  };

  void name_packet(LogEvent& event, std::span<const std::byte> bytes) const;

  const Log& log_;
  const std::string name_;
  std::vector<rpc::server::Interface*> interfaces_;
  std::map<std::string_view, OperationCounters> operations_;
  std::uint64_t datagrams_ = 0;
  std::uint64_t lost_in_ = 0;
  std::uint64_t lost_out_ = 0;
  std::uint64_t doubled_ = 0;
  std::uint64_t contexts_ = 0;
};

}  // namespace agent
