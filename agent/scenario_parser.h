// SPDX-License-Identifier: Apache-2.0
// The parts of the scenario parser: one file per kind of section.

#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "agent/scenario.h"
#include "agent/scenario_reader.h"

namespace agent {

// Limits that keep a slip of the pen from filling the memory.
inline constexpr std::size_t kMostSystems = 20'000;
inline constexpr std::size_t kMostServers = 1'000;     // repository servers of a system
inline constexpr std::size_t kMostElements = 100'000;  // of an endpoint map
inline constexpr std::size_t kMostClasses = 4'000;     // of a data source
inline constexpr std::size_t kMostMetrics = 4'000;     // of a class
inline constexpr std::size_t kMostInstances = 20'000;  // of a class
inline constexpr std::size_t kMostRows = 1'000'000;
inline constexpr std::size_t kMostBehaviours = 100;
// What the wire's structures hold, without terminator.
inline constexpr std::size_t kNameLength = 255;
inline constexpr std::size_t kLabelLength = 63;
inline constexpr std::size_t kPathLength = 1023;
inline constexpr std::size_t kHeadingLength = 79;
inline constexpr std::size_t kAnnotationLength = 63;

// What `count` and `copies` may make of a file, all together: classes, metrics, instances, rows,
// listed values, systems, servers and elements of endpoint maps.
class Budget {
 public:
  static constexpr std::size_t kMostParts = 400'000;

  // False, with nothing taken, when `count` times `weight` parts are too many.
  bool take(std::size_t weight, std::size_t count) {
    if (weight != 0 && count > left_ / weight)
      return false;
    left_ -= weight * count;
    return true;
  }

 private:
  std::size_t left_ = kMostParts;
};

using DataSources = std::map<std::string, std::shared_ptr<const DataSource>, std::less<>>;

// [source.KEY]; the key is the label unless the table gives one.
DataSource parse_source(const toml::table& table, const std::string& key, std::uint32_t now,
                        Budget& budget, ErrorList& errors);

// One [[system]] with `count` not yet applied. `anywhere` allows addresses beyond loopback.
System parse_system(TableReader& reader, const DataSources& sources, bool anywhere);
// The keys of an [[event]] for one of the system's servers, which becomes what they say. False,
// with an error, when the system has no server of the name.
bool parse_change(TableReader& reader, const std::string& server, const DataSources& sources,
                  System& system);

enum class ServerKind { mapper, repository, alarm };
// The keys that every datagram server has. Keys that are not there leave what was.
void parse_server(TableReader& reader, ServerKind kind, ServerSettings& server);
void parse_state(TableReader& reader, ServerState& state);
void parse_registration(TableReader& reader, Registration& registration);
// The table under the key "network" of a system or a server.
void parse_network(TableReader& reader, NetworkFaults& network);
void parse_broker(TableReader& reader, LocationBroker& broker);

// A dotted IPv4 address, in host order.
std::optional<std::uint32_t> parse_address(std::string_view text);
// Hexadecimal digits in pairs, blanks between them allowed.
std::optional<std::vector<std::byte>> parse_hex(std::string_view text);

}  // namespace agent
