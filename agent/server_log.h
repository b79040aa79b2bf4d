// SPDX-License-Identifier: Apache-2.0
// What one datagram server says of its packets, calls, clients and contexts, and what it counts.

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
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
  void event(const rpc::server::CoreEvent& event);
  void context(std::string_view object, const uuid_t& id, std::string_view change);
  void state(const std::string& change) const;

  // One event for each operation that was heard of, and one for the server; nothing of a server
  // that heard nothing.
  void write_counters(const Log& log) const;

 private:
  struct OperationCounters {
    std::uint64_t calls = 0;
    std::uint64_t repeats = 0;  // requests that came again
    std::uint64_t lost_in = 0;
    std::uint64_t lost_out = 0;
    std::uint64_t doubled = 0;
    std::uint64_t faults = 0;
    std::uint64_t rejects = 0;
    std::uint64_t contexts = 0;  // alive, of those that it made

    OperationCounters& operator+=(const OperationCounters& other);
  };

  void name_packet(LogEvent& event, const rpc::Packet& packet) const;
  OperationCounters& counters_of(const rpc::PacketHeader& header);
  std::string operation_name(const rpc::PacketHeader& header, std::string* interface) const;
  void write_counters(const Log& log, const std::string& operation,
                      const OperationCounters& counters) const;

  const Log& log_;
  const std::string name_;
  std::vector<rpc::server::Interface*> interfaces_;
  std::map<std::string, OperationCounters, std::less<>> operations_;
  OperationCounters nameless_;  // of packets of no known operation
  // Activities of whose next call a packet was changed by the scenario: what is wrong with it is no
  // fault of the client's.
  std::set<uuid_t> damaged_;
  bool heard_ = false;                     // anything at all
  std::vector<uuid_t> fresh_contexts_;     // of the operation that runs now
  std::map<uuid_t, std::string> made_by_;  // of the contexts alive
};

}  // namespace agent
