// SPDX-License-Identifier: Apache-2.0
// What all servers have: settings, registration, behaviours, a bad network; and the location
// broker's own keys.

#include <algorithm>
#include <array>

#include "agent/scenario_parser.h"

namespace agent {

namespace {

using rpc::server::FaultPlan;

constexpr std::array kOperations = std::to_array<std::string_view>({
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
    "ag_Register",
    "ag_Unregister",
    "ag_SetEvCFlag",
    "ag_GetEvCFlag",
    "ag_SetExecFlag",
    "ag_GetExecFlag",
    "ag_SetInterval",
    "ag_GetInterval",
    "ag_SetEvCError",
    "ag_GetEvCError",
    "ag_GetGeneralInfo",
    "ag_RegisterZT",
    "ag_UnregisterZT",
    "ag_RegisterSNMP",
    "ag_UnregisterSNMP",
    "ag_SetZTError",
    "ag_GetZTError",
    "ag_SetSNMPError",
    "ag_GetSNMPError",
    "ag_GetSystems",
    "ag_Ping",
    "ag_DBChanged",
    "ag_DeleteZT",
    "ept_lookup",

    "ept_lookup_handle_free",
});

void optional_status(TableReader& reader, std::string_view key,
                     std::optional<std::uint32_t>& status) {
  if (!reader.has(key))
    return;
  std::uint32_t value = 0;
  reader.integer(key, value);
  status = value;
}

OperationBehaviour parse_behaviour(const toml::table& table, const std::string& name,
                                   ErrorList& errors) {
  TableReader reader(table, name + ".behaviour", errors);
  OperationBehaviour result;
  reader.text("operation", result.operation, kNameLength);
  if (!result.operation.empty() &&
      std::find(kOperations.begin(), kOperations.end(), result.operation) == kOperations.end())
    reader.refuse("operation", "expected an operation such as \"rep_LookupTable\", found " +
                                   quoted(result.operation));
  reader.integer("late_ms", result.late_ms, {0, 3'600'000});
  optional_status(reader, "status", result.status);
  optional_status(reader, "fault", result.fault);
  optional_status(reader, "reject", result.reject);
  if (reader.has("reply")) {
    std::string hex;
    reader.text("reply", hex, 1'000'000);
    result.reply = parse_hex(hex);
    if (reader.has_text("reply") && !result.reply)
      reader.refuse("reply", "expected pairs of hexadecimal digits");
  }
  reader.flag("silent", result.silent);
  reader.flag("die", result.die);
  reader.integer("after", result.after);
  reader.integer("times", result.times);
  const int endings = int{result.status.has_value()} + int{result.fault.has_value()} +
                      int{result.reject.has_value()} + int{result.reply.has_value()} +
                      int{result.silent} + int{result.die};
  if (endings > 1)
    errors.add(reader.where(), reader.name() +
                                   ": expected one of status, fault, reject, reply, silent and "
                                   "die, found several");
  reader.finish();
  return result;
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

void parse_server(TableReader& reader, ServerSettings& server) {
  reader.integer("port", server.port);
  reader.choice<ServerState>(
      "state", server.state,
      {{"alive", ServerState::alive}, {"dead", ServerState::dead}, {"mute", ServerState::mute}});
  reader.choice<bool>("byte_order", server.little_endian, {{"little", true}, {"big", false}});
  reader.choice<CallBackKind>("call_back", server.call_back,
                              {{"none", CallBackKind::none},
                               {"who_are_you", CallBackKind::who_are_you},
                               {"who_are_you2", CallBackKind::who_are_you2}});
  reader.flag("call_back_from_other_port", server.call_back_from_other_port);
  reader.choice<Listening>("listening", server.listening,
                           {{"yes", Listening::yes},
                            {"no", Listening::no},
                            {"mute", Listening::mute},
                            {"absent", Listening::absent}});
  for (const toml::table* one : reader.tables("behaviour", kMostBehaviours))
    server.behaviours.push_back(parse_behaviour(*one, reader.name(), reader.errors()));
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

LocationBroker parse_broker(TableReader& reader) {
  LocationBroker broker;
  reader.integer("port", broker.port, {1, 65'535});
  reader.choice<BrokerMode>("mode", broker.mode,
                            {{"normal", BrokerMode::normal},
                             {"refused", BrokerMode::refused},
                             {"unanswered", BrokerMode::unanswered},
                             {"closing", BrokerMode::closing},
                             {"reset", BrokerMode::reset},
                             {"silent", BrokerMode::silent},
                             {"slow", BrokerMode::slow},
                             {"malformed", BrokerMode::malformed}});
  reader.version("version", broker.major, broker.minor);
  reader.integer("status", broker.status);
  reader.integer("bytes_per_second", broker.bytes_per_second, {1, 1'000'000});
  reader.integer("idle_broker_s", broker.idle_seconds, {1, 86'400});
  reader.choice<Malformation>("malformation", broker.malformation,
                              {{"identifier", Malformation::identifier},
                               {"length_zero", Malformation::length_zero},
                               {"length_short", Malformation::length_short},
                               {"length_huge", Malformation::length_huge},
                               {"too_many_words", Malformation::too_many_words},
                               {"data_too_long", Malformation::data_too_long},
                               {"cut", Malformation::cut},
                               {"garbage", Malformation::garbage}});
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
  return broker;
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
