// SPDX-License-Identifier: Apache-2.0
// What the simulated agents are to be: systems with their servers, data sources with their data,
// and everything that goes wrong. Values only; docs/formats/scenario.md describes the file.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>
#include <vector>

#include "platform/rpc/names/protocol_sequence.h"
#include "platform/rpc/names/uuid.h"
#include "platform/rpc/server/fault_injection.h"

namespace agent {

// --- Data sources.

// How a metric's values come about. `row` counts from 0 at the class's first row, `instance` from 0
// at its first instance; numbers are what travels, before any scaling by the client.
struct ConstantModel {
  std::int64_t value = 0;
  bool operator==(const ConstantModel&) const = default;
};
// from, from + step, ... up to `to`, then from `from` again.
struct RampModel {
  std::int64_t from = 0;
  std::int64_t to = 0;
  std::int64_t step = 1;
  bool operator==(const RampModel&) const = default;
};
// A triangle between low and high; a full swing takes `period` rows.
struct WaveModel {
  std::int64_t low = 0;
  std::int64_t high = 0;
  std::uint32_t period = 1;
  bool operator==(const WaveModel&) const = default;
};
struct ValuesModel {
  std::vector<std::int64_t> values;  // in turn, never empty
  bool operator==(const ValuesModel&) const = default;
};
struct TextsModel {
  std::vector<std::string> texts;  // in turn, never empty
  bool operator==(const TextsModel&) const = default;
};
// The name or label of the row's instance.
struct InstanceModel {
  bool label = false;
  bool operator==(const InstanceModel&) const = default;
};
using ValueModel =
    std::variant<ConstantModel, RampModel, WaveModel, ValuesModel, TextsModel, InstanceModel>;

// How rows of an interval are put together.
enum class Summary : std::int16_t { average = 0, sum = 1, greatest = 2, least = 3, last = 4 };

inline constexpr std::int16_t kTextType = 3;
inline constexpr std::uint32_t kNoDiscriminator = 0xFFFFFFFF;
inline constexpr std::int16_t kSummarizableFlag = 1;
inline constexpr std::int16_t kInstancesFlag = 2;

struct Metric {
  std::uint32_t id = 0;
  std::string name;
  std::string label;
  std::uint32_t denominator = 0;
  std::int16_t data_type = 0;  // 0, 1 and 2 are numbers, every other is text
  std::uint16_t length = 4;
  std::uint16_t column_width = 10;
  std::int16_t summary = 0;  // a Summary; any other number counts as the last value
  std::int16_t base_scale = 0;
  std::int16_t scale10 = 0;
  std::array<std::string, 2> headings;
  ValueModel model;

  bool is_text() const { return data_type < 0 || data_type > 2; }
  bool operator==(const Metric&) const = default;
};

struct Instance {
  std::uint32_t id = 0;
  std::string name;
  std::string label;
  std::int32_t birth = 0;
  std::int32_t death = 0x7FFFFFFF;
  bool operator==(const Instance&) const = default;
};

using Cell = std::variant<std::int64_t, std::string>;

// A row that the file spells out. On a class with instances, row k of a time is instance k's.
struct ExplicitRow {
  std::uint32_t time = 0;
  std::vector<Cell> cells;  // one per metric
  bool operator==(const ExplicitRow&) const = default;
};

struct ClassData {
  std::uint32_t id = 0;
  std::string name;
  std::string label;
  std::uint32_t type_id = 0;
  std::uint32_t discriminator = kNoDiscriminator;
  std::int32_t interval = 300;  // seconds between two rows
  std::int16_t interval_units = 0;
  std::int16_t flags = 0;
  std::int32_t first_x = 0;  // what the descriptor says, 0 for a class without data
  std::int32_t last_x = 0;
  std::vector<Metric> metrics;
  std::vector<Instance> instances;

  // Either rows by model, at first_time and every interval after it ...
  std::uint32_t first_time = 0;
  std::uint32_t row_count = 0;
  bool live = false;  // rows go on after the last one as time goes by
  // ... or rows as the file has them, in rising order of time.
  std::vector<ExplicitRow> rows;
  bool operator==(const ClassData&) const = default;
};

struct DataSource {
  std::uint32_t id = 0;
  std::string name;
  std::string label;
  std::int32_t version = 1;
  std::string path;
  std::vector<ClassData> classes;
  bool operator==(const DataSource&) const = default;
};

// --- Servers.

// What an operation does instead of, or before, its work. Counted over the calls of the operation:
// the first `after` calls are left alone, then `times` calls behave so.
struct OperationBehaviour {
  std::string operation;  // "rep_LookupTable"; empty for every operation of the server
  std::uint32_t late_ms = 0;
  std::optional<std::uint32_t> status;          // the operation's own status, nothing done
  std::optional<std::uint32_t> fault;           // a fault packet
  std::optional<std::uint32_t> reject;          // a reject packet
  std::optional<std::vector<std::byte>> reply;  // these bytes as the reply's body
  bool silent = false;                          // never answered
  bool die = false;                             // the server's socket is closed
  bool restart = false;                         // a new boot time, everything is forgotten
  bool working = false;                         // says "working" for ever
  bool no_call = false;                         // says "no call" for ever
  std::uint32_t working_ms = 0;                 // says so, then answers
  std::uint32_t no_call_ms = 0;
  std::uint32_t cut = 0;  // octets at the end of a good reply
  struct Patch {
    std::uint32_t at = 0;
    std::vector<std::byte> octets;
    bool operator==(const Patch&) const = default;
  };
  std::optional<Patch> patch;  // octets of a good reply replaced
  std::uint32_t after = 0;
  std::uint32_t times = 0xFFFFFFFF;

  bool operator==(const OperationBehaviour&) const = default;
};

enum class ServerState {
  alive,
  dead,  // registered, nobody listens
  mute,  // the socket is there and swallows everything
};

enum class Listening { yes, no, mute, absent };  // what the management interface says
enum class CallBackKind { none, who_are_you, who_are_you2 };

struct NetworkFaults {
  std::optional<rpc::server::FaultPlan> incoming;
  std::optional<rpc::server::FaultPlan> outgoing;

  bool operator==(const NetworkFaults&) const = default;
};

// What every datagram server has.
struct ServerSettings {
  std::uint16_t port = 0;  // 0: any free one
  ServerState state = ServerState::alive;
  bool little_endian = true;
  CallBackKind call_back = CallBackKind::who_are_you2;
  bool call_back_from_other_port = false;
  std::uint32_t call_back_limit = 30;  // seconds; a call whose question gets no answer is rejected
  Listening listening = Listening::yes;
  std::vector<OperationBehaviour> behaviours;
  NetworkFaults network;
  std::uint32_t client_silence = 600;  // seconds; a client that is not heard is forgotten
  std::uint32_t fragment_size = 1464;  // of replies, header included
  std::uint32_t max_activities = 1024;

  bool operator==(const ServerSettings&) const = default;
};

// How a server stands in the endpoint map.
struct Registration {
  bool registered = true;
  std::uint32_t copies = 1;
  uuid_t object{};
  std::string annotation;
  bool operator==(const Registration&) const = default;
};

struct RepositoryServer {
  std::shared_ptr<const DataSource> source;  // shared by the servers of one file that name it
  std::string source_key;
  ServerSettings server;
  Registration registration;
};

struct RegisteredSystem {
  std::uint32_t address = 0;  // IPv4, host order
  bool console = false;
  std::uint32_t console_error = 0;
  bool snmp = false;
  std::uint32_t snmp_error = 0;
  bool operator==(const RegisteredSystem&) const = default;
};

struct AlarmServer {
  ServerSettings server;
  Registration registration;
  std::uint32_t version = 2;
  uuid_t object{};  // of the general information
  std::uint32_t evc_flag = 0;
  std::uint32_t exec_flag = 0;
  std::uint32_t interval = 300;
  std::uint32_t evc_error = 0;
  std::vector<RegisteredSystem> systems;
  // Whether what it was told to begin with is the same.
  bool same_contents(const AlarmServer& other) const {
    return std::tie(version, object, evc_flag, exec_flag, interval, evc_error, systems) ==
           std::tie(other.version, other.object, other.evc_flag, other.exec_flag, other.interval,
                    other.evc_error, other.systems);
  }
  bool operator==(const AlarmServer&) const = default;
};

enum class BrokerMode {
  normal,
  refused,     // nobody listens
  unanswered,  // neither accepts nor refuses
  closing,     // closes at the first request
  reset,       // resets the connection at the first request
  silent,      // accepts and never answers
  slow,        // answers some bytes a second
  malformed,   // answers what no daemon should
};

enum class Malformation {
  identifier,    // another identifier than 0x00 H X A
  length_zero,   // length field 0
  length_short,  // a length less than the message
  length_huge,   // a length of 65,535 and data without end
  too_many_words,
  data_too_long,  // a byte count beyond the message
  cut,            // half a message, then the end of the connection
  garbage,        // random bytes
};

struct BrokerEntry {
  std::string name;
  std::string path;
  uuid_t type{};
  uuid_t object{};
  bool active = false;
  bool operator==(const BrokerEntry&) const = default;
};

struct LocationBroker {
  std::uint16_t port = 382;
  BrokerMode mode = BrokerMode::normal;
  std::uint16_t major = 2;
  std::uint16_t minor = 0;
  std::uint16_t status = 0;  // of every reply
  std::uint32_t bytes_per_second = 1;
  Malformation malformation = Malformation::garbage;
  std::uint32_t idle_seconds = 60;   // a connection that says nothing for so long is closed
  std::vector<BrokerEntry> servers;  // registered from the start
  bool operator==(const LocationBroker&) const = default;
};

// An element of the endpoint map that no server of the system put there.
struct MapElement {
  uuid_t interface_id{};
  std::uint16_t major = 2;
  std::uint16_t minor = 0;
  std::string protocol = rpc::protseq::kUdp;
  std::string address;   // empty: the system's own
  std::string endpoint;  // a port, or a pipe's name
  uuid_t object{};
  std::string annotation;
  std::optional<std::vector<std::byte>> tower;  // these bytes instead
  std::uint32_t copies = 1;
  bool first = false;  // before the servers' own elements
  bool operator==(const MapElement&) const = default;
};

inline constexpr std::uint16_t kEndpointMapperPort = 135;

// How a mapper that fails within a listing does so.
enum class MapperFailure { status, silent };

struct EndpointMapper {
  ServerSettings server;
  bool rejecting = false;                   // does not know the endpoint mapper's interface
  std::uint32_t batch = 64;                 // most elements of one reply
  std::optional<std::uint32_t> fail_after;  // elements of a listing, then it fails
  MapperFailure failure = MapperFailure::status;
  std::vector<MapElement> elements;
  bool operator==(const EndpointMapper&) const = default;
};

struct System {
  std::string name;
  std::uint32_t address = 0;  // host order, in 127.0.0.0/8
  LocationBroker broker;
  EndpointMapper mapper;
  std::vector<RepositoryServer> repositories;
  std::optional<AlarmServer> alarm;
};

// A change by the clock: what a system is from then on.
struct ScenarioEvent {
  std::uint32_t at = 0;   // seconds after the agents were ready
  std::size_t index = 0;  // of the system
  System system;
  std::string server;  // which one changes: as the file names it
  std::string text;    // what changes, for the log
};

struct Scenario {
  std::vector<System> systems;
  std::vector<ScenarioEvent> events;  // in rising order of time
};

// --- Reading.

struct ScenarioError {
  std::uint32_t line = 0;    // from 1; 0 when the file as a whole is meant
  std::uint32_t column = 0;  // from 1
  std::string text;
};

struct ParsedScenario {
  Scenario scenario;                  // complete only without errors
  std::vector<ScenarioError> errors;  // at most 20
};

// `now` (seconds since 1970) is what the file's relative times count from.
// Addresses beyond 127.0.0.0/8 are errors unless they may be `anywhere`.
ParsedScenario parse_scenario(std::string_view toml, std::uint32_t now, bool anywhere = false);
// Reads the file first; one that cannot be read is an error of line 0.
ParsedScenario load_scenario(const std::string& path, std::uint32_t now, bool anywhere = false);
// "demo.toml:3:7: text"
std::string error_text(const std::string& path, const ScenarioError& error);

}  // namespace agent
