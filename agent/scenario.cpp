// SPDX-License-Identifier: Apache-2.0
// The file as a whole: sources first, then systems, with `count` applied and addresses compared.

#include "agent/scenario.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "agent/scenario_parser.h"
#include "agent/scenario_reader.h"
#include "platform/rpc/names/socket_address.h"

namespace agent {

namespace {

constexpr std::size_t kLargestFile = 64 * 1024 * 1024;
constexpr std::uint32_t kLoopbackNet = 0x7F000000;
constexpr std::size_t kMostEvents = 1'000;
constexpr std::int64_t kLatestEvent = 30 * 86'400;  // seconds

bool loopback(std::uint32_t address) {
  return (address & 0xFF000000) == kLoopbackNet;
}

DataSources parse_sources(TableReader& top, std::uint32_t now, Budget& budget) {
  DataSources sources;
  const toml::table* all = top.table("source");
  if (all == nullptr)
    return sources;
  for (const auto& [key, node] : *all) {
    if (const auto* table = node.as_table())
      sources[std::string(key.str())] = std::make_shared<const DataSource>(
          parse_source(*table, std::string(key.str()), now, budget, top.errors()));
    else
      top.errors().add(node.source(), "source." + std::string(key.str()) +
                                          ": expected a table, found " +
                                          std::string(type_name(node)));
  }
  return sources;
}

// How many parts of the budget a copy costs.
std::size_t weight(const System& system) {
  std::size_t sum = 4 + system.broker.servers.size();
  const auto add = [&](const ServerSettings& server) { sum += 1 + server.behaviours.size(); };
  add(system.mapper.server);
  for (const MapElement& element : system.mapper.elements)
    sum += element.copies;
  for (const RepositoryServer& repository : system.repositories) {
    add(repository.server);
    sum += repository.registration.copies;
  }
  if (system.alarm) {
    add(system.alarm->server);
    sum += system.alarm->registration.copies + system.alarm->systems.size();
  }
  return sum;
}

// Adds `count` systems on addresses that follow one another.
class SystemAdder {
 public:
  SystemAdder(Scenario& scenario, Budget& budget, bool anywhere)
      : scenario_(scenario), budget_(budget), anywhere_(anywhere) {}

  void add(TableReader& reader, const System& first, std::uint32_t count) {
    if (scenario_.systems.size() + count > kMostSystems)
      return reader.refuse("count",
                           "expected at most " + std::to_string(kMostSystems) + " systems in all");
    if (!budget_.take(weight(first), count))
      return reader.refuse("count", "expected at most " + std::to_string(Budget::kMostParts) +
                                        " parts in the whole scenario");
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t address = first.address + i;
      if (!anywhere_ && !loopback(address))
        return reader.refuse("count", "the addresses run out of 127.0.0.0/8");
      const auto [other, fresh] = taken_.emplace(address, reader.where().begin.line);
      if (!fresh)
        return reader.refuse(
            "address", "expected an address of its own, but " + rpc::dotted(address) +
                           " is taken by the system of line " + std::to_string(other->second));
      System& system = scenario_.systems.emplace_back(first);
      system.address = address;
      if (count > 1)
        system.name += "-" + std::to_string(i + 1);
      if (!names_.insert(system.name).second)
        return reader.refuse("name", "expected a name of its own, but " + quoted(system.name) +
                                         " is the name of another system");
    }
  }

 private:
  Scenario& scenario_;
  Budget& budget_;
  const bool anywhere_;
  std::map<std::uint32_t, std::uint32_t> taken_;  // address to line
  std::unordered_set<std::string> names_;
};

void parse_systems(TableReader& top, const DataSources& sources, Budget& budget, bool anywhere,
                   Scenario& scenario) {
  top.require("system");
  SystemAdder adder(scenario, budget, anywhere);
  for (const toml::table* table : top.tables("system", kMostSystems)) {
    TableReader reader(*table, "system", top.errors());
    std::uint32_t count = 1;
    reader.integer("count", count, {1, kMostSystems});
    const std::size_t errors_before = top.errors().count();
    const System system = parse_system(reader, sources, anywhere);
    reader.finish();
    if (top.errors().count() == errors_before)
      adder.add(reader, system, count);
    if (top.errors().full())
      return;
  }
}

// One [[event]] over what the earlier ones have made of the system.
void parse_event(TableReader& reader, const DataSources& sources,
                 std::unordered_map<std::string, std::size_t>& by_name,
                 std::vector<System>& current, Scenario& scenario) {
  ScenarioEvent event;
  std::string system;
  std::string server;
  reader.required_integer("at", event.at, {0, kLatestEvent});
  reader.required_text("system", system, kNameLength);
  reader.required_text("server", server, kNameLength);
  const auto found = by_name.find(system);
  if (found == by_name.end()) {
    if (reader.has_text("system"))
      reader.refuse("system",
                    "expected the name of a system of this file, found " + quoted(system));
    return;
  }
  event.index = found->second;
  if (!reader.has_text("server") || !parse_change(reader, server, sources, current[event.index]))
    return;
  reader.finish();
  event.system = current[event.index];
  event.server = server;
  event.text = "event at " + std::to_string(event.at) + " s: " + server + " changes";
  scenario.events.push_back(std::move(event));
}

void parse_events(TableReader& top, const DataSources& sources, Scenario& scenario) {
  std::vector<const toml::table*> tables = top.tables("event", kMostEvents);
  if (tables.empty())
    return;
  std::stable_sort(tables.begin(), tables.end(), [](const auto* a, const auto* b) {
    return (*a)["at"].value_or(std::int64_t{0}) < (*b)["at"].value_or(std::int64_t{0});
  });
  std::unordered_map<std::string, std::size_t> by_name;
  for (std::size_t i = 0; i < scenario.systems.size(); ++i)
    by_name.emplace(scenario.systems[i].name, i);
  std::vector<System> current = scenario.systems;
  for (const toml::table* table : tables) {
    TableReader reader(*table, "event", top.errors());
    parse_event(reader, sources, by_name, current, scenario);
  }
}

}  // namespace

ParsedScenario parse_scenario(std::string_view text, std::uint32_t now, bool anywhere) {
  ParsedScenario result;
  ErrorList errors;
  try {
    const toml::table file = toml::parse(text);
    TableReader top(file, "scenario", errors);
    Budget budget;
    const DataSources sources = parse_sources(top, now, budget);
    parse_systems(top, sources, budget, anywhere, result.scenario);
    parse_events(top, sources, result.scenario);
    top.finish();
  } catch (const toml::parse_error& error) {
    errors.add(error.source(), std::string(error.description()));
  }
  result.errors = errors.take();
  std::stable_sort(result.errors.begin(), result.errors.end(),
                   [](const ScenarioError& a, const ScenarioError& b) {
                     return std::pair(a.line, a.column) < std::pair(b.line, b.column);
                   });
  return result;
}

ParsedScenario load_scenario(const std::string& path, std::uint32_t now, bool anywhere) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  std::string text;
  if (file) {
    char block[65536];
    while (file.read(block, sizeof block) || file.gcount() > 0) {
      text.append(block, static_cast<std::size_t>(file.gcount()));
      if (text.size() > kLargestFile)
        return {{}, {{0, 0, "the file is larger than 64 MiB"}}};
    }
  }
  if (!file.eof())
    return {{}, {{0, 0, std::string("the file cannot be read: ") + std::strerror(errno)}}};
  return parse_scenario(text, now, anywhere);
}

std::string error_text(const std::string& path, const ScenarioError& error) {
  if (error.line == 0)
    return path + ": " + error.text;
  return path + ":" + std::to_string(error.line) + ":" + std::to_string(error.column) + ": " +
         error.text;
}

}  // namespace agent
