// SPDX-License-Identifier: Apache-2.0
// The file as a whole: sources first, then systems, with `count` applied and addresses compared.

#include "agent/scenario.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <utility>

#include "agent/scenario_parser.h"
#include "agent/scenario_reader.h"
#include "platform/rpc/names/socket_address.h"

namespace agent {

namespace {

constexpr std::size_t kLargestFile = 64 * 1024 * 1024;
constexpr std::uint32_t kLoopbackNet = 0x7F000000;

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
  SystemAdder(Scenario& scenario, Budget& budget) : scenario_(scenario), budget_(budget) {}

  void add(TableReader& reader, const System& first, std::uint32_t count) {
    if (scenario_.systems.size() + count > kMostSystems)
      return reader.refuse("count",
                           "expected at most " + std::to_string(kMostSystems) + " systems in all");
    if (!budget_.take(weight(first), count))
      return reader.refuse("count", "expected at most " + std::to_string(Budget::kMostParts) +
                                        " parts in the whole scenario");
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t address = first.address + i;
      if (!loopback(address))
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
    }
  }

 private:
  Scenario& scenario_;
  Budget& budget_;
  std::map<std::uint32_t, std::uint32_t> taken_;  // address to line
};

void parse_systems(TableReader& top, const DataSources& sources, Budget& budget,
                   Scenario& scenario) {
  top.require("system");
  SystemAdder adder(scenario, budget);
  for (const toml::table* table : top.tables("system", kMostSystems)) {
    TableReader reader(*table, "system", top.errors());
    std::uint32_t count = 1;
    reader.integer("count", count, {1, kMostSystems});
    const std::size_t errors_before = top.errors().count();
    const System system = parse_system(reader, sources);
    reader.finish();
    if (top.errors().count() == errors_before)
      adder.add(reader, system, count);
    if (top.errors().full())
      return;
  }
}

}  // namespace

ParsedScenario parse_scenario(std::string_view text, std::uint32_t now) {
  ParsedScenario result;
  ErrorList errors;
  try {
    const toml::table file = toml::parse(text);
    TableReader top(file, "scenario", errors);
    Budget budget;
    const DataSources sources = parse_sources(top, now, budget);
    parse_systems(top, sources, budget, result.scenario);
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

ParsedScenario load_scenario(const std::string& path, std::uint32_t now) {
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
    return {{}, {{0, 0, "the file cannot be read"}}};
  return parse_scenario(text, now);
}

std::string error_text(const std::string& path, const ScenarioError& error) {
  if (error.line == 0)
    return path + ": " + error.text;
  return path + ":" + std::to_string(error.line) + ":" + std::to_string(error.column) + ": " +
         error.text;
}

}  // namespace agent
