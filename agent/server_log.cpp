// SPDX-License-Identifier: Apache-2.0
#include "agent/server_log.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "platform/numbers/status.h"
#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/names/uuid.h"
#include "platform/rpc/wire/conversation.h"
#include "platform/rpc/wire/pdu.h"

namespace agent {

namespace {

using rpc::server::CoreEvent;
using rpc::server::DatagramReport;
using rpc::server::Direction;
using rpc::server::FaultInjector;
using rpc::server::Outcome;

constexpr std::size_t kMostDamaged = 1'024;

constexpr std::string_view kPacketNames[] = {"request", "ping",   "response",  "fault",
                                             "working", "nocall", "reject",    "ack",
                                             "cancel",  "fack",   "cancel_ack"};

// What every server speaks beside its own interfaces (C706 appendices P and Q).
struct CommonInterface {
  uuid_t id;
  std::string_view name;
  std::array<std::string_view, 5> operations;
};
constexpr CommonInterface kCommonInterfaces[] = {
    {{0xafa8bd80, 0x7d8a, 0x11c9, 0xbe, 0xf4, {0x08, 0x00, 0x2b, 0x10, 0x29, 0x89}},
     "mgmt",
     {"mgmt_inq_if_ids", "mgmt_inq_stats", "mgmt_is_server_listening", "mgmt_stop_server_listening",
      "mgmt_inq_princ_name"}},
    {rpc::conversation::kOfClients,
     "conv",
     {"conv_who_are_you", "conv_who_are_you2", "conv_are_you_there"}},
    {rpc::conversation::kOfServers, "convc", {"convc_indy"}},
};

// What the bad network did to one delivery: "held back 13 ms, cut to 40 octets, octet 7 changed".
std::string fate_of(const FaultInjector::Delivery& delivery, rpc::Time now) {
  std::string text;
  const auto say = [&text](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
  const auto held = std::chrono::duration_cast<std::chrono::microseconds>(delivery.time - now);
  if (held.count() > 0) {
    char number[32];
    std::snprintf(number, sizeof number, "held back %.1f ms",
                  static_cast<double>(held.count()) / 1000);
    say(number);
  }
  if (delivery.cut_to)
    say("cut to " + std::to_string(*delivery.cut_to) + " octets");
  for (const std::size_t at : delivery.flipped)
    say("octet " + std::to_string(at) + " changed");
  return text;
}

struct Fate {
  bool lost = false;
  bool doubled = false;
  bool damaged = false;
  std::string text;
};

Fate fate_of(const DatagramReport& report) {
  Fate fate;
  if (report.deliveries == nullptr)
    return fate;
  const auto& all = *report.deliveries;
  fate.lost = all.empty();
  fate.doubled = !all.empty() && all.back().copy;
  for (const FaultInjector::Delivery& each : all) {
    fate.damaged = fate.damaged || each.cut_to || !each.flipped.empty();
    std::string text = fate_of(each, report.now);
    if (each.copy)
      text = (all.size() > 1 ? "doubled" : "lost, but its double came through") +
             (text.empty() ? "" : ": " + text);
    if (!text.empty())
      fate.text += (fate.text.empty() ? "" : "; ") + text;
  }
  return fate;
}

}  // namespace

std::string ServerLog::operation_name(const rpc::PacketHeader& header,
                                      std::string* interface) const {
  *interface = rpc::uuid_to_text(header.interface_id);
  for (const rpc::server::Interface* each : interfaces_)
    if (each->spec().id == header.interface_id) {
      *interface = each->spec().name;
      if (const rpc::OperationSpec* known = each->operation(header.opnum))
        return known->name;
    }
  for (const CommonInterface& each : kCommonInterfaces)
    if (each.id == header.interface_id) {
      *interface = each.name;
      if (header.opnum < each.operations.size() && !each.operations[header.opnum].empty())
        return std::string(each.operations[header.opnum]);
    }
  return "operation " + std::to_string(header.opnum);
}

void ServerLog::name_packet(LogEvent& event, const rpc::Packet& packet) const {
  const rpc::PacketHeader& header = packet.header;
  event.text("packet", std::string(kPacketNames[static_cast<std::size_t>(header.type)]));
  std::string interface;
  const std::string operation = operation_name(header, &interface);
  event.text("interface", interface);
  event.text("operation", operation);
  event.number("call", header.sequence);
  if ((header.flags1 & rpc::kFlagFragment) != 0)
    event.number("fragment", header.fragment);
  if (header.type == rpc::PacketType::fault || header.type == rpc::PacketType::reject)
    if (const auto status =
            rpc::decode_status_body(packet.body, header.representation.little_endian))
      event.status("status", *status);
}

void ServerLog::datagram(const DatagramReport& report) {
  const bool in = report.direction == Direction::received;
  const Fate fate = fate_of(report);
  heard_ = true;
  const auto packet = rpc::decode_packet(report.bytes);
  if (in && fate.damaged && packet) {
    if (damaged_.size() >= kMostDamaged)
      damaged_.clear();
    damaged_.insert(packet->header.activity);
  }
  if (fate.lost || fate.doubled) {
    OperationCounters& counters = packet ? counters_of(packet->header) : nameless_;
    (in ? counters.lost_in : counters.lost_out) += fate.lost ? 1 : 0;
    counters.doubled += fate.doubled ? 1 : 0;
  }
  if (!log_.enabled())
    return;
  const char* kind = in ? "received" : "sent";
  if (fate.lost)
    kind = in ? "lost_in" : "lost_out";
  else if (report.swallowed)
    kind = "swallowed";
  LogEvent event(kind, name_);
  if (packet)
    name_packet(event, *packet);
  else
    event.text("packet", "no packet");
  event.number("octets", report.bytes.size());
  event.text("peer", rpc::to_text(report.peer));
  event.text("fate", fate.text);
  log_.write(event);
}

// What strangers make up has no counter of its own.
ServerLog::OperationCounters& ServerLog::counters_of(const rpc::PacketHeader& header) {
  std::string interface;
  std::string name = operation_name(header, &interface);
  return name.find(' ') != std::string::npos ? nameless_ : operations_[std::move(name)];
}

void ServerLog::call(const rpc::server::CallInfo& call, const rpc::OperationSpec& operation,
                     const Outcome& outcome) {
  OperationCounters& counters = operations_[operation.name];
  ++counters.calls;
  counters.contexts += fresh_contexts_.size();
  for (const uuid_t& id : fresh_contexts_)
    made_by_[id] = operation.name;
  fresh_contexts_.clear();
  const bool damaged = damaged_.erase(call.activity) != 0;
  counters.faults += outcome.kind == Outcome::Kind::fault ? 1 : 0;
  counters.rejects += outcome.kind == Outcome::Kind::reject ? 1 : 0;
  if (!log_.enabled())
    return;
  const auto violation = [&](const std::string& detail) {
    log_.write(LogEvent(damaged ? "damaged" : "violation", name_)
                   .text("detail", detail)
                   .text("operation", operation.name)
                   .text("peer", rpc::to_text(call.peer)));
  };
  LogEvent event("call", name_);
  event.text("operation", operation.name);
  std::string arguments;
  if (call.record != nullptr) {
    for (const auto& argument : call.record->arguments)
      ((arguments += arguments.empty() ? "" : ", ") += argument.name) += " " + argument.text;
    if (call.record->octets_left_over != 0)
      violation(std::to_string(call.record->octets_left_over) +
                " octets are left over behind the parameters");
  }
  event.text("arguments", arguments);
  event.text("peer", rpc::to_text(call.peer));
  switch (outcome.kind) {
    case Outcome::Kind::reply:
      event.text("outcome", "is answered");
      if (call.record != nullptr && call.record->status)
        event.status("status", *call.record->status);
      event.number("octets", outcome.reply.size());
      break;
    case Outcome::Kind::fault:
      event.text("outcome", "ends with fault").status("number", outcome.status);
      break;
    case Outcome::Kind::reject:
      event.text("outcome", "is rejected with").status("number", outcome.status);
      break;
    case Outcome::Kind::none:
      event.text("outcome", "is not answered");
      break;
  }
  log_.write(event);
  if (outcome.kind == Outcome::Kind::fault && outcome.status == rpc::nca::kContextMismatch)
    violation("the context is not known, or not this client's");
  if (outcome.kind == Outcome::Kind::reject && outcome.status == rpc::nca::kProtocolError)
    violation("the parameters cannot be decoded");
}

void ServerLog::behaviour(const rpc::server::CallInfo& call, const rpc::OperationSpec& operation,
                          const OperationScript::Choice& choice) {
  using Action = rpc::server::Verdict::Action;
  const Action action = choice.verdict.action;
  const bool comes_to_an_end =
      action == Action::run ||
      (action == Action::no_call && choice.verdict.delay != std::chrono::milliseconds(0));
  if (!comes_to_an_end)
    ++operations_[operation.name].calls;
  if (log_.enabled())
    log_.write(LogEvent("behaviour", name_)
                   .text("operation", operation.name)
                   .text("peer", rpc::to_text(call.peer))
                   .number("rule", choice.rule)
                   .text("action", choice.action));
}

void ServerLog::event(const CoreEvent& event) {
  using Kind = CoreEvent::Kind;
  if (event.kind == Kind::repeated) {
    ++operations_[std::string(event.detail)].repeats;
    return;
  }
  if (event.kind == Kind::rejected || event.kind == Kind::call_back_failed)
    ++nameless_.rejects;
  if (!log_.enabled())
    return;
  struct Words {
    Kind kind;
    const char* event;
    const char* outcome;
  };
  static constexpr Words kWords[] = {
      {Kind::violation, "violation", ""},
      {Kind::rejected, "rejected", ""},
      {Kind::cancelled, "cancelled", ""},
      {Kind::call_back_began, "call_back", "asked"},
      {Kind::call_back_confirmed, "call_back", "confirms the call"},
      {Kind::call_back_stale, "call_back", "is in another call"},
      {Kind::call_back_failed, "call_back", "does not answer, or does not know the call"},
  };
  const auto words = std::find_if(std::begin(kWords), std::end(kWords),
                                  [&](const Words& each) { return each.kind == event.kind; });
  LogEvent told(event.damaged && event.kind == Kind::violation ? "damaged" : words->event, name_);
  told.text("peer", rpc::to_text(event.peer));
  told.text("outcome", words->outcome);
  told.text("detail", std::string(event.detail));
  if (event.status != 0)
    told.status("number", event.status);
  log_.write(told);
}

void ServerLog::context(std::string_view object, const uuid_t& id, std::string_view change) {
  if (change == "made") {
    fresh_contexts_.push_back(id);
  } else if (const auto made = made_by_.find(id); made != made_by_.end()) {
    --operations_[made->second].contexts;
    made_by_.erase(made);
  }
  if (log_.enabled())
    log_.write(LogEvent("context", name_)
                   .text("object", std::string(object))
                   .text("context", rpc::uuid_to_text(id))
                   .text("change", "is " + std::string(change)));
}

void ServerLog::state(const std::string& change) const {
  if (log_.enabled())
    log_.write(LogEvent("state", name_).text("change", change));
}

ServerLog::OperationCounters& ServerLog::OperationCounters::operator+=(
    const OperationCounters& other) {
  calls += other.calls;
  repeats += other.repeats;
  lost_in += other.lost_in;
  lost_out += other.lost_out;
  doubled += other.doubled;
  faults += other.faults;
  rejects += other.rejects;
  contexts += other.contexts;
  return *this;
}

void ServerLog::write_counters(const Log& log, const std::string& operation,
                               const OperationCounters& counters) const {
  LogEvent event("counters", name_);
  if (!operation.empty())
    event.text("operation", operation);
  log.write(event.number("calls", counters.calls)
                .number("repeats", counters.repeats)
                .number("lost_in", counters.lost_in)
                .number("lost_out", counters.lost_out)
                .number("doubled", counters.doubled)
                .number("faults", counters.faults)
                .number("rejects", counters.rejects)
                .number("contexts", counters.contexts));
}

void ServerLog::write_counters(const Log& log) const {
  if (!heard_)
    return;
  OperationCounters sum = nameless_;
  for (const auto& [operation, counters] : operations_) {
    sum += counters;
    write_counters(log, operation, counters);
  }
  write_counters(log, {}, sum);
}

}  // namespace agent
