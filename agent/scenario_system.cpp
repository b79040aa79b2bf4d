// SPDX-License-Identifier: Apache-2.0
// [[system]]: its address and its servers.

#include <algorithm>
#include <charconv>
#include <set>

#include "agent/endpoint_map.h"
#include "agent/scenario_parser.h"
#include "platform/rpc/names/tower.h"
#include "platform/rpc/rpc.h"

namespace agent {

namespace {

constexpr std::uint32_t kAnyLoopback = 0x7F000001;

void parse_source_name(TableReader& reader, const DataSources& sources, RepositoryServer& result) {
  reader.required_text("source", result.source_key, kNameLength);
  if (const auto found = sources.find(result.source_key); found != sources.end()) {
    result.source = found->second;
    result.registration.annotation = found->second->label;
  } else if (reader.has_text("source")) {
    reader.refuse("source",
                  "expected a data source of this file, found " + quoted(result.source_key));
  }
}

void parse_repository(TableReader& reader, RepositoryServer& result) {
  parse_server(reader, ServerKind::repository, result.server);
  parse_state(reader, result.server.state);
  parse_registration(reader, result.registration);
}

RegisteredSystem parse_registered(const toml::table& table, ErrorList& errors) {
  TableReader reader(table, "system.alarm.system", errors);
  RegisteredSystem result;
  std::string address;
  reader.required_text("address", address, 15);
  if (const auto parsed = parse_address(address))
    result.address = *parsed;
  else if (reader.has_text("address"))
    reader.refuse("address", "expected an IPv4 address, found " + quoted(address));
  reader.flag("console", result.console);
  reader.integer("console_error", result.console_error);
  reader.flag("snmp", result.snmp);
  reader.integer("snmp_error", result.snmp_error);
  reader.finish();
  return result;
}

void parse_alarm(TableReader& reader, AlarmServer& result) {
  parse_server(reader, ServerKind::alarm, result.server);
  parse_state(reader, result.server.state);
  parse_registration(reader, result.registration);
  reader.integer("version", result.version);
  reader.uuid("general_object", result.object);
  reader.integer("evc_flag", result.evc_flag);
  reader.integer("exec_flag", result.exec_flag);
  reader.integer("interval", result.interval);
  reader.integer("evc_error", result.evc_error);
  // In an event the key names the system that changes.
  if (!reader.has("system") || reader.has_text("system"))
    return;
  result.systems.clear();
  std::set<std::uint32_t> seen;
  for (const toml::table* one : reader.tables("system", kMostSystems)) {
    result.systems.push_back(parse_registered(*one, reader.errors()));
    if (!seen.insert(result.systems.back().address).second)
      reader.errors().add(one->source(), "system.alarm.system.address: expected each address once");
  }
}

// A name of the product's interfaces, or any UUID.
void parse_interface(TableReader& reader, uuid_t& id) {
  std::string text;
  reader.required_text("interface", text, 36);
  for (const auto& known : kInterfaces)
    if (text == known.name) {
      UuidFromStringA(known.value, &id);
      return;
    }
  if (reader.has_text("interface") && UuidFromStringA(text.c_str(), &id) != RPC_S_OK)
    reader.refuse("interface",
                  "expected a UUID or an interface such as \"rep\", found " + quoted(text));
}

MapElement parse_element(const toml::table& table, ErrorList& errors) {
  TableReader reader(table, "system.mapper.element", errors);
  MapElement result;
  if (reader.has("tower")) {
    std::string hex;
    reader.text("tower", hex, 16384);
    result.tower = parse_hex(hex);
    if (!result.tower)
      reader.refuse("tower", "expected pairs of hexadecimal digits");
  } else {
    parse_interface(reader, result.interface_id);
    reader.version("version", result.major, result.minor);
    reader.choice<std::string>("protocol", result.protocol,
                               {{rpc::protseq::kUdp, rpc::protseq::kUdp},
                                {rpc::protseq::kTcp, rpc::protseq::kTcp},
                                {rpc::protseq::kNamedPipe, rpc::protseq::kNamedPipe},
                                {rpc::protseq::kLocal, rpc::protseq::kLocal},
                                {rpc::protseq::kHttp, rpc::protseq::kHttp},
                                {rpc::protseq::kIpx, rpc::protseq::kIpx},
                                {rpc::protseq::kSpx, rpc::protseq::kSpx}});
    reader.text("address", result.address, 255);
    reader.required_text("endpoint", result.endpoint, 255);
    if (reader.has_text("endpoint") && !rpc::encode_tower(element_tower(result, kAnyLoopback)))
      reader.refuse("endpoint",
                    "expected an address and an endpoint that " + result.protocol + " has");
  }
  reader.uuid("object", result.object);
  reader.text("annotation", result.annotation, kAnnotationLength);
  reader.integer("copies", result.copies, {1, static_cast<std::int64_t>(kMostElements)});
  reader.flag("first", result.first);
  reader.finish();
  return result;
}

void parse_mapper_mode(TableReader& reader, EndpointMapper& mapper) {
  enum class Mode { normal, refused, silent, rejecting };
  Mode mode = Mode::normal;
  reader.choice<Mode>("mode", mode,
                      {{"normal", Mode::normal},
                       {"refused", Mode::refused},
                       {"silent", Mode::silent},
                       {"rejecting", Mode::rejecting}});
  if (!reader.has("mode"))
    return;
  mapper.rejecting = mode == Mode::rejecting;
  mapper.server.state = mode == Mode::refused  ? ServerState::dead
                        : mode == Mode::silent ? ServerState::mute
                                               : ServerState::alive;
}

void parse_mapper(TableReader& reader, EndpointMapper& result) {
  parse_mapper_mode(reader, result);
  reader.integer("batch", result.batch, {1, 100'000});
  if (reader.has("fail_after"))
    reader.integer("fail_after", result.fail_after.emplace());
  reader.choice<MapperFailure>(
      "fail", result.failure,
      {{"status", MapperFailure::status}, {"silent", MapperFailure::silent}});
  if (reader.has("fail") && !result.fail_after)
    reader.refuse("fail", "expected \"fail_after\" beside it: without a number it never fails");
  parse_server(reader, ServerKind::mapper, result.server);
  if (!reader.has("element"))
    return;
  result.elements.clear();
  std::size_t elements = 0;
  for (const toml::table* one : reader.tables("element", kMostElements)) {
    result.elements.push_back(parse_element(*one, reader.errors()));
    elements += result.elements.back().copies;
  }
  if (elements > kMostElements)
    reader.refuse("element", "expected at most " + std::to_string(kMostElements) + " in all");
}

// Two servers that ask for one port would only fail when they are started.
void compare_ports(TableReader& reader, const System& system) {
  std::set<std::uint16_t> ports;
  const auto claim = [&](const ServerSettings& server, std::string_view key) {
    if (server.port != 0 && server.state != ServerState::dead && !ports.insert(server.port).second)
      reader.refuse(key, "expected ports of their own, but UDP port " +
                             std::to_string(server.port) + " is asked for twice");
  };
  claim(system.mapper.server, "mapper");
  for (const RepositoryServer& repository : system.repositories)
    claim(repository.server, "repository");
  if (system.alarm)
    claim(system.alarm->server, "alarm");
}

}  // namespace

System parse_system(TableReader& reader, const DataSources& sources, bool anywhere) {
  System system;
  std::string address;
  reader.required_text("address", address, 15);
  const auto parsed = parse_address(address);
  if (parsed && (*parsed >> 24 == 127 || anywhere))
    system.address = *parsed;
  else if (reader.has_text("address"))
    reader.refuse("address", "expected an address in 127.0.0.0/8, found " + quoted(address));
  system.name = address;
  reader.text("name", system.name, kNameLength);

  ServerSettings defaults;
  parse_network(reader, defaults.network);
  const auto part = [&reader](const toml::table& table, const std::string& key, auto parse) {
    TableReader one(table, "system." + key, reader.errors());
    parse(one);
    one.finish();
  };
  if (const toml::table* table = reader.table("broker"))
    part(*table, "broker", [&](TableReader& one) { parse_broker(one, system.broker); });
  system.mapper.server = defaults;
  system.mapper.server.port = kEndpointMapperPort;
  if (const toml::table* table = reader.table("mapper"))
    part(*table, "mapper", [&](TableReader& one) { parse_mapper(one, system.mapper); });
  for (const toml::table* table : reader.tables("repository", kMostServers))
    part(*table, "repository", [&](TableReader& one) {
      RepositoryServer& added = system.repositories.emplace_back();
      added.server = defaults;
      parse_source_name(one, sources, added);
      parse_repository(one, added);
    });
  if (const toml::table* table = reader.table("alarm"))
    part(*table, "alarm", [&](TableReader& one) {
      system.alarm.emplace().server = defaults;
      system.alarm->registration.annotation = "almserver";
      parse_alarm(one, *system.alarm);
    });
  compare_ports(reader, system);
  return system;
}

bool parse_change(TableReader& reader, const std::string& server, const DataSources& sources,
                  System& system) {
  if (server == "broker") {
    parse_broker(reader, system.broker);
    return true;
  }
  if (server == "mapper") {
    parse_mapper(reader, system.mapper);
    return true;
  }
  if (server == "alarm" && system.alarm) {
    parse_alarm(reader, *system.alarm);
    return true;
  }
  const auto found =
      std::find_if(system.repositories.begin(), system.repositories.end(),
                   [&server](const RepositoryServer& one) { return one.source_key == server; });
  if (found == system.repositories.end()) {
    reader.refuse("server",
                  "expected \"broker\", \"mapper\", \"alarm\" or the source of a "
                  "repository server that the system has, found " +
                      quoted(server));
    return false;
  }
  if (reader.has("source"))
    parse_source_name(reader, sources, *found);
  parse_repository(reader, *found);
  return true;
}

std::optional<std::uint32_t> parse_address(std::string_view text) {
  std::uint32_t address = 0;
  for (int part = 0; part < 4; ++part) {
    if (part > 0) {
      if (text.empty() || text.front() != '.')
        return std::nullopt;
      text.remove_prefix(1);
    }
    std::uint8_t byte = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), byte);
    if (error != std::errc{})
      return std::nullopt;
    address = address << 8 | byte;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  }
  return text.empty() ? std::optional(address) : std::nullopt;
}

}  // namespace agent
