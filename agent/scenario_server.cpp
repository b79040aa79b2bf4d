// SPDX-License-Identifier: Apache-2.0
// What all servers have: settings, registration, behaviours, a bad network; and the location
// broker's own keys.

#include <algorithm>
#include <iterator>
#include <limits>
#include <span>

#include "agent/scenario_parser.h"

namespace agent {

namespace {

using rpc::server::FaultPlan;

constexpr std::uint32_t kEndless = 0xFFFFFFFF;  // of `times`

constexpr std::string_view kRepositoryOperations[] = {
    "rep_LookupRepository",
    "rep_LookupTable",
    "rep_LookupInstance",
    "rep_LookupMetric",
    "repView_Create",
    "repView_Destroy",
    "repView_GetFirstPosition",
    "repView_GetLastPosition",
    "repView_GetPosition",
    "repView_SetPosition",
    "repView_GetXInterval",
    "repView_Read",
    "repTimeFilter_Create",
    "repTimeFilter_Destroy",
    "repTimeFilter_Copy",
    "repFilteredView_Create",
    "repFilteredView_Destroy",
    "repFilteredView_GetFirstPosition",
    "repFilteredView_GetLastPosition",
    "repFilteredView_GetPosition",
    "repFilteredView_SetPosition",
    "repFilteredView_GetXInterval",
    "repFilteredView_Read",
    "repTemporalView_Create",
    "repTemporalView_Destroy",
    "repTemporalView_GetFirstPosition",
    "repTemporalView_GetLastPosition",
    "repTemporalView_GetPosition",
    "repTemporalView_SetPosition",
    "repTemporalView_GetXInterval",
    "repTemporalView_SetXInterval",
    "repTemporalView_Read",
};
constexpr std::string_view kAlarmOperations[] = {
    "ag_Register",     "ag_Unregister",   "ag_SetEvCFlag",     "ag_GetEvCFlag",
    "ag_SetExecFlag",  "ag_GetExecFlag",  "ag_SetInterval",    "ag_GetInterval",
    "ag_SetEvCError",  "ag_GetEvCError",  "ag_GetGeneralInfo", "ag_RegisterZT",
    "ag_UnregisterZT", "ag_RegisterSNMP", "ag_UnregisterSNMP", "ag_SetZTError",
    "ag_GetZTError",   "ag_SetSNMPError", "ag_GetSNMPError",   "ag_GetSystems",
    "ag_Ping",         "ag_DBChanged",    "ag_DeleteZT",
};
constexpr std::string_view kMapperOperations[] = {
    "ept_insert",     "ept_delete",     "ept_lookup", "ept_map", "ept_lookup_handle_free",
    "ept_inq_object", "ept_mgmt_delete"};

// Those of the interfaces that a server of the kind has.
std::span<const std::string_view> operations_of(ServerKind kind) {
  switch (kind) {
    case ServerKind::mapper:
      return kMapperOperations;
    case ServerKind::alarm:
      return kAlarmOperations;
    case ServerKind::repository:
      break;
  }
  return kRepositoryOperations;
}

void optional_status(TableReader& reader, std::string_view key,
                     std::optional<std::uint32_t>& status) {
  if (!reader.has(key))
    return;
  std::uint32_t value = 0;
  reader.integer(key, value);
  status = value;
}

void parse_operation(TableReader& reader, ServerKind kind, std::string& operation) {
  reader.text("operation", operation, kNameLength);
  const auto known = operations_of(kind);
  if (operation.empty() || std::find(known.begin(), known.end(), operation) != known.end())
    return;
  std::string names;
  for (const std::string_view one : known)
    (names += names.empty() ? "" : ", ") += one;
  reader.refuse("operation", "expected an operation of this server, found " + quoted(operation) +
                                 "; it has " + names);
}

std::optional<std::vector<std::byte>> parse_octets(TableReader& reader, std::string_view key) {
  if (!reader.has(key))
    return std::nullopt;
  std::string hex;
  reader.text(key, hex, 1'000'000);
  auto octets = parse_hex(hex);
  if (reader.has_text(key) && !octets)
    reader.refuse(key, "expected pairs of hexadecimal digits");
  return octets;
}

void parse_patch(TableReader& reader, OperationBehaviour& rule) {
  const toml::table* table = reader.table("patch");
  if (table == nullptr)
    return;
  TableReader patch(*table, reader.name() + ".patch", reader.errors());
  OperationBehaviour::Patch result;
  patch.required_integer("at", result.at);
  patch.require("hex");
  result.octets = parse_octets(patch, "hex").value_or(std::vector<std::byte>());
  patch.finish();
  rule.patch = std::move(result);
}

// A rule has one way to end a call at most, and does something.
void check_outcome(TableReader& reader, const OperationBehaviour& rule) {
  const bool ends[] = {rule.status.has_value(),
                       rule.fault.has_value(),
                       rule.reject.has_value(),
                       rule.reply.has_value(),
                       rule.silent,
                       rule.die,
                       rule.restart,
                       rule.working,
                       rule.no_call};
  const auto endings = std::count(std::begin(ends), std::end(ends), true);
  const bool spoils = rule.cut != 0 || rule.patch;
  if (endings + (spoils ? 1 : 0) > 1)
    reader.refuse_table(
        "expected one of status, fault, reject, reply, silent, die, restart, working, no_call, "
        "and cut with patch; found several");
  const bool waits = rule.late_ms != 0 || rule.working_ms != 0 || rule.no_call_ms != 0;
  if (endings == 0 && !spoils && !waits)
    reader.refuse_table("expected an outcome such as status, fault, silent or late_ms, found none");
}

OperationBehaviour parse_behaviour(TableReader& reader, ServerKind kind) {
  OperationBehaviour result;
  const std::size_t errors_before = reader.errors().count();
  parse_operation(reader, kind, result.operation);
  reader.integer("late_ms", result.late_ms, {0, 3'600'000});
  reader.integer("working_ms", result.working_ms, {0, 3'600'000});
  reader.integer("no_call_ms", result.no_call_ms, {0, 3'600'000});
  optional_status(reader, "status", result.status);
  optional_status(reader, "fault", result.fault);
  optional_status(reader, "reject", result.reject);
  result.reply = parse_octets(reader, "reply");
  reader.flag("silent", result.silent);
  reader.flag("die", result.die);
  reader.flag("restart", result.restart);
  reader.flag("working", result.working);
  reader.flag("no_call", result.no_call);
  reader.integer("cut", result.cut, {1, 1'000'000});
  parse_patch(reader, result);
  reader.integer("after", result.after);
  reader.integer("times", result.times, {1, std::numeric_limits<std::uint32_t>::max()});
  if (reader.errors().count() == errors_before)
    check_outcome(reader, result);
  reader.finish();
  return result;
}

// A rule that an earlier one without end always takes the calls from would never happen.
bool hides(const OperationBehaviour& earlier, const OperationBehaviour& later) {
  const bool same_calls = earlier.operation.empty() || earlier.operation == later.operation;
  return same_calls && earlier.times == kEndless && earlier.after <= later.after;
}

void parse_behaviours(TableReader& reader, ServerKind kind,
                      std::vector<OperationBehaviour>& behaviours) {
  if (!reader.has("behaviour"))
    return;
  behaviours.clear();
  for (const toml::table* table : reader.tables("behaviour", kMostBehaviours)) {
    TableReader one(*table, reader.name() + ".behaviour", reader.errors());
    OperationBehaviour rule = parse_behaviour(one, kind);
    const auto hiding = std::find_if(behaviours.begin(), behaviours.end(),
                                     [&rule](const auto& earlier) { return hides(earlier, rule); });
    if (hiding != behaviours.end())
      one.refuse_table("expected a rule that can happen, but rule " +
                       std::to_string(hiding - behaviours.begin() + 1) +
                       " of this server takes every such call");
    behaviours.push_back(std::move(rule));
  }
}

std::optional<FaultPlan> parse_direction(TableReader& network, std::string_view key,
                                         std::uint64_t seed) {
  const toml::table* table = network.table(key);
  if (table == nullptr)
    return std::nullopt;
  TableReader reader(*table, network.name() + "." + std::string(key), network.errors());
  FaultPlan plan;
  plan.seed = seed;
  reader.number("loss", plan.loss, 0, 1);
  reader.number("duplication", plan.duplication, 0, 1);
  reader.number("reordering", plan.reordering, 0, 1);
  reader.number("truncation", plan.truncation, 0, 1);
  reader.number("byte_flips", plan.byte_flips, 0, 1);
  const auto milliseconds = [&](std::string_view name, std::chrono::microseconds& value) {
    double read = static_cast<double>(value.count()) / 1000;
    reader.number(name, read, 0, 60'000);
    value = std::chrono::microseconds(static_cast<std::int64_t>(read * 1000));
  };
  milliseconds("delay_ms", plan.delay_min);
  plan.delay_max = plan.delay_min;
  milliseconds("delay_max_ms", plan.delay_max);
  milliseconds("reordering_ms", plan.reordering_hold);
  if (plan.delay_max < plan.delay_min)
    reader.refuse("delay_max_ms", "expected a time not below \"delay_ms\"");
  reader.finish();
  return plan;
}

int digit(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

}  // namespace

void parse_network(TableReader& reader, NetworkFaults& network) {
  const toml::table* table = reader.table("network");
  if (table == nullptr)
    return;
  TableReader one(*table, reader.name() + ".network", reader.errors());
  std::uint32_t seed = 1;
  one.integer("seed", seed);
  network.incoming = parse_direction(one, "incoming", std::uint64_t{seed} * 2);
  network.outgoing = parse_direction(one, "outgoing", std::uint64_t{seed} * 2 + 1);
  one.finish();
}

void parse_server(TableReader& reader, ServerKind kind, ServerSettings& server) {
  reader.integer("port", server.port);
  reader.choice<bool>("byte_order", server.little_endian, {{"little", true}, {"big", false}});
  reader.choice<CallBackKind>("call_back", server.call_back,
                              {{"none", CallBackKind::none},
                               {"who_are_you", CallBackKind::who_are_you},
                               {"who_are_you2", CallBackKind::who_are_you2}});
  reader.flag("call_back_from_other_port", server.call_back_from_other_port);
  reader.choice("listening", server.listening, kListenings);
  reader.integer("call_back_s", server.call_back_limit, {1, 3600});
  reader.integer("client_silence_s", server.client_silence, {1, 86'400});
  reader.integer("fragment_size", server.fragment_size, {200, 8'000});
  reader.integer("max_activities", server.max_activities, {1, 65'536});
  parse_behaviours(reader, kind, server.behaviours);
  parse_network(reader, server.network);
}

void parse_state(TableReader& reader, ServerState& state) {
  reader.choice<ServerState>(
      "state", state,
      {{"alive", ServerState::alive}, {"dead", ServerState::dead}, {"mute", ServerState::mute}});
}

void parse_registration(TableReader& reader, Registration& registration) {
  reader.flag("registered", registration.registered);
  reader.integer("copies", registration.copies, {1, 1'000});
  reader.uuid("object", registration.object);
  reader.text("annotation", registration.annotation, kAnnotationLength);
}

void parse_broker(TableReader& reader, LocationBroker& broker) {
  reader.integer("port", broker.port, {1, 65'535});
  reader.choice("mode", broker.mode, kBrokerModes);
  reader.version("version", broker.major, broker.minor);
  reader.integer("status", broker.status);
  reader.integer("bytes_per_second", broker.bytes_per_second, {1, 1'000'000});
  reader.integer("idle_broker_s", broker.idle_seconds, {1, 86'400});
  reader.choice("malformation", broker.malformation, kMalformations);
  // In an event the key names the server that changes.
  if (!reader.has("server") || reader.has_text("server"))
    return;
  broker.servers.clear();
  for (const toml::table* one : reader.tables("server", kMostServers)) {
    TableReader server(*one, "system.broker.server", reader.errors());
    BrokerEntry& added = broker.servers.emplace_back();
    server.required_text("name", added.name, kNameLength);
    server.text("path", added.path, kPathLength);
    server.require("type");
    server.uuid("type", added.type);
    server.uuid("object", added.object);
    server.flag("active", added.active);
    server.finish();
  }
}

std::optional<std::vector<std::byte>> parse_hex(std::string_view text) {
  std::vector<std::byte> result;
  int high = -1;
  for (const char c : text) {
    if (c == ' ' || c == '\n' || c == '\r' || c == '\t') {
      if (high >= 0)
        return std::nullopt;
      continue;
    }
    const int value = digit(c);
    if (value < 0)
      return std::nullopt;
    if (high < 0) {
      high = value;
    } else {
      result.push_back(static_cast<std::byte>(high << 4 | value));
      high = -1;
    }
  }
  if (high >= 0)
    return std::nullopt;
  return result;
}

}  // namespace agent
