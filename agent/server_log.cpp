// SPDX-License-Identifier: Apache-2.0
#include "agent/server_log.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "platform/numbers/status.h"
#include "platform/rpc/names/socket_address.h"
#include "platform/rpc/names/uuid.h"
#include "platform/rpc/wire/pdu.h"

namespace agent {

namespace {

using rpc::server::CoreEvent;
using rpc::server::DatagramReport;
using rpc::server::Direction;
using rpc::server::FaultInjector;
using rpc::server::Outcome;

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
    {{0x333a2276, 0x0000, 0x0000, 0x0d, 0x00, {0x00, 0x80, 0x9c, 0x00, 0x00, 0x00}},
     "conv",
     {"conv_who_are_you", "conv_who_are_you2", "conv_are_you_there"}},
};

std::string peer_text(const rpc::server::CallInfo& call) {
  return call.client_address + ":" + std::to_string(call.client_port);
}

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

void ServerLog::name_packet(LogEvent& event, std::span<const std::byte> bytes) const {
  const auto packet = rpc::decode_packet(bytes);
  if (!packet) {
    event.text("packet", "no packet");
    return;
  }
  const rpc::PacketHeader& header = packet->header;
  event.text("packet", std::string(kPacketNames[static_cast<std::size_t>(header.type)]));
  std::string interface = rpc::uuid_to_text(header.interface_id);
  std::string operation = "operation " + std::to_string(header.opnum);
  for (const rpc::server::Interface* each : interfaces_)
    if (each->spec().id == header.interface_id) {
      interface = each->spec().name;
      if (const rpc::OperationSpec* known = each->operation(header.opnum))
        operation = known->name;
    }
  for (const CommonInterface& each : kCommonInterfaces)
    if (each.id == header.interface_id) {
      interface = each.name;
      if (header.opnum < each.operations.size() && !each.operations[header.opnum].empty())
        operation = each.operations[header.opnum];
    }
  event.text("interface", interface);
  const bool named = !operation.starts_with("operation ");
  event.text("operation", named ? operation : interface + " " + operation);
  event.number("call", header.sequence);
  if ((header.flags1 & rpc::kFlagFragment) != 0)
    event.number("fragment", header.fragment);
  if (header.type == rpc::PacketType::fault || header.type == rpc::PacketType::reject)
    if (const auto status =
            rpc::decode_status_body(packet->body, header.representation.little_endian))
      event.status("status", *status);
}

void ServerLog::datagram(const DatagramReport& report) {
  const bool in = report.direction == Direction::received;
  const Fate fate = fate_of(report);
  ++datagrams_;
  (in ? lost_in_ : lost_out_) += fate.lost ? 1 : 0;
  doubled_ += fate.doubled ? 1 : 0;
  if (!log_.enabled())
    return;
  const char* kind = in ? "received" : "sent";
  if (fate.lost)
    kind = in ? "lost_in" : "lost_out";
  else if (report.swallowed)
    kind = "swallowed";
  LogEvent event(kind, name_);
  name_packet(event, report.bytes);
  event.number("octets", report.bytes.size());
  event.text("peer", rpc::to_text(report.peer));
  event.text("fate", fate.text);
  log_.write(event);
}

void ServerLog::call(const rpc::server::CallInfo& call, const rpc::OperationSpec& operation,
                     const Outcome& outcome) {
  OperationCounters& counters = operations_[operation.name];
  ++counters.calls;
  counters.faults += outcome.kind == Outcome::Kind::fault ? 1 : 0;
  counters.rejects += outcome.kind == Outcome::Kind::reject ? 1 : 0;
  if (!log_.enabled())
    return;
  const auto violation = [&](const std::string& detail) {
    log_.write(LogEvent("violation", name_)
                   .text("detail", detail)
                   .text("operation", operation.name)
                   .text("peer", peer_text(call)));
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
  // Without arguments the parentheses are there all the same.
  event.text("arguments", arguments.empty() ? " " : arguments);
  event.text("peer", peer_text(call));
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
  // Such a call does not come to an end.
  if (choice.verdict.action == rpc::server::Verdict::Action::silent ||
      choice.verdict.action == rpc::server::Verdict::Action::working)
    ++operations_[operation.name].calls;
  if (log_.enabled())
    log_.write(LogEvent("behaviour", name_)
                   .text("operation", operation.name)
                   .text("peer", peer_text(call))
                   .number("rule", choice.rule)
                   .text("action", choice.action));
}

void ServerLog::event(const CoreEvent& event) const {
  if (!log_.enabled())
    return;
  using Kind = CoreEvent::Kind;
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
  LogEvent told(words->event, name_);
  told.text("peer", rpc::to_text(event.peer));
  told.text("outcome", words->outcome);
  told.text("detail", std::string(event.detail));
  if (event.status != 0)
    told.status("number", event.status);
  log_.write(told);
}

void ServerLog::context(std::string_view object, const uuid_t& id, std::string_view change) {
  change == "made" ? ++contexts_ : --contexts_;
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

void ServerLog::write_counters(const Log& log, std::uint64_t repeats) const {
  if (datagrams_ == 0)
    return;
  OperationCounters sum;
  for (const auto& [name, counters] : operations_) {
    sum.calls += counters.calls;
    sum.faults += counters.faults;
    sum.rejects += counters.rejects;
    log.write(LogEvent("counters", name_)
                  .text("operation", std::string(name))
                  .number("calls", counters.calls)
                  .number("faults", counters.faults)
                  .number("rejects", counters.rejects));
  }
  log.write(LogEvent("counters", name_)
                .number("calls", sum.calls)
                .number("repeats", repeats)
                .number("lost_in", lost_in_)
                .number("lost_out", lost_out_)
                .number("doubled", doubled_)
                .number("faults", sum.faults)
                .number("rejects", sum.rejects)
                .number("contexts", contexts_));
}

}  // namespace agent
