// SPDX-License-Identifier: Apache-2.0
#include "agent/recorder/agent_walk.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "ag.h"
#include "agent/recorder/broker_question.h"
#include "agent/recorder/map_walk.h"
#include "agent/recorder/remote_call.h"
#include "agent/recorder/source_walk.h"
#include "agent/scenario_parser.h"
#include "platform/rpc/names/network_address.h"
#include "platform/rpc/names/protocol_sequence.h"
#include "platform/rpc/names/socket_address.h"
#include "rep.h"

namespace agent::recorder {

namespace {

// As the product's checks take them.
constexpr std::size_t kMostRepositories = 128;
constexpr std::size_t kMostSilentServers = 64;

struct Candidate {
  rpc::SocketAddress at;
  uuid_t object{};
};

// The servers that the map names for an interface, each place once.
std::vector<Candidate> candidates(const EndpointMapper& mapper, RPC_IF_HANDLE interface) {
  rpc_if_id_t wanted{};
  RpcIfInqId(interface, &wanted);
  std::vector<Candidate> all;
  std::set<rpc::SocketAddress> seen;
  for (const MapElement& element : mapper.elements) {
    if (element.tower || element.protocol != rpc::protseq::kUdp ||
        element.interface_id != wanted.uuid || element.major != wanted.vers_major ||
        element.minor != wanted.vers_minor)
      continue;
    const auto host = parse_address(element.address);
    const auto port = rpc::parse_port(element.endpoint);
    if (host && port && seen.insert({*host, *port}).second)
      all.push_back({{*host, *port}, element.object});
  }
  return all;
}

class AgentWalk {
 public:
  AgentWalk(const std::string& name, std::uint32_t address, const Walk& walk) : walk_(walk) {
    System& own = systems_.emplace_back();
    own.name = name;
    own.address = address;
  }

  std::vector<System> run() {
    walk_.step("location broker and endpoint map");
    systems_.front().broker = ask_broker(systems_.front().address, walk_);
    systems_.front().mapper = read_map(systems_.front().address, walk_);
    // Systems are added meanwhile.
    const EndpointMapper mapper = systems_.front().mapper;
    record_repositories(candidates(mapper, zt_v2_rep_v2_0_c_ifspec));
    record_alarm_server(candidates(mapper, zt_v2_ag_v2_0_c_ifspec));
    return std::move(systems_);
  }

 private:
  bool go_on(const std::string& what) {
    const std::string why = silent_ < kMostSilentServers
                                ? walk_.ended()
                                : std::to_string(silent_) + " servers have not answered";
    if (!why.empty())
      walk_.missing(what + ": " + why);
    return why.empty();
  }

  // The system with a server at the address; a new one for an address that none has yet.
  System& system_at(std::uint32_t address) {
    for (System& system : systems_)
      if (system.address == address)
        return system;
    const std::string name = systems_.front().name + "-" + std::to_string(systems_.size() + 1);
    System& added = systems_.emplace_back();
    added.name = name;
    added.address = address;
    added.broker.mode = BrokerMode::refused;
    added.mapper.server.port = kEndpointMapperPort;
    added.mapper.server.state = ServerState::dead;
    return added;
  }

  // Asks whether the server listens and notes what it says. Whether it is there at all: one whose
  // port is refused is an element of the map alone.
  bool ask_listening(const Server& server, const std::string& what, ServerSettings& settings) {
    const RPC_STATUS status = RpcMgmtIsServerListening(server.handle());
    const CallEnd end = end_of_call(status, false);
    settings.little_endian = !end.outcome.big_endian;
    if (end.ok())
      return true;
    if (end.answered()) {
      settings.listening = Listening::no;
    } else if (end.refused()) {
      settings.state = ServerState::dead;
    } else if (end.unanswered()) {
      ++silent_;
      settings.state = ServerState::mute;
    } else {
      settings.listening = Listening::absent;
    }
    walk_.missing(what + ": " + (end.answered() ? "it says that it does not listen" : end.words()));
    return settings.state != ServerState::dead;
  }

  void record_repositories(const std::vector<Candidate>& servers) {
    std::size_t had = 0;
    for (const Candidate& one : servers) {
      const std::string what = "repository server at " + rpc::to_text(one.at);
      if (!go_on(what))
        return;
      if (had == kMostRepositories)
        return walk_.missing(what + " and those behind it: " + std::to_string(had) +
                             " servers are enough");
      had += record_repository(one, what) ? 1 : 0;
    }
  }

  bool record_repository(const Candidate& one, const std::string& what) {
    Server server(one.at.host, one.at.port, walk_.level);
    RepositoryServer record;
    record.server.port = one.at.port;
    record.registration.registered = false;
    if (!ask_listening(server, what, record.server))
      return false;
    SourceRecord had;
    if (record.server.state == ServerState::alive && record.server.listening == Listening::yes) {
      server.set_object(one.object);
      had = record_source(server, walk_);
    }
    record.registration.object = one.object;
    record.server.behaviours = std::move(had.behaviours);
    record.source = std::make_shared<const DataSource>(std::move(had.source));
    system_at(one.at.host).repositories.push_back(std::move(record));
    return true;
  }

  // Clients take the first one that listens, and a simulated system has one.
  void record_alarm_server(const std::vector<Candidate>& servers) {
    for (const Candidate& one : servers) {
      const std::string what = "alarm server at " + rpc::to_text(one.at);
      if (!go_on(what))
        return;
      Server server(one.at.host, one.at.port, walk_.level);
      AlarmServer record;
      record.server.port = one.at.port;
      record.registration.registered = false;
      record.registration.object = one.object;
      if (!ask_listening(server, what, record.server))
        continue;
      const bool serves =
          record.server.listening == Listening::yes && record.server.state == ServerState::alive;
      if (serves) {
        server.set_object(one.object);
        walk_.step("alarm server");
        read_alarm_server(server, what, record);
      }
      AlarmServer& place = system_at(one.at.host).alarm.emplace();
      place = std::move(record);
      if (serves)
        return;
    }
  }

  void read_alarm_server(const Server& server, const std::string& what, AlarmServer& record) {
    const auto asked = [&](const char* operation, const CallEnd& end) {
      if (end.ok())
        return true;
      walk_.missing(what + ": " + operation + " ended with " + end.words());
      record.server.behaviours.push_back(end.behaviour(operation));
      return !end.unanswered();
    };
    if (!asked("ag_Ping",
               call([&](error_status_t* status) { zt_v2_ag_Ping(server.handle(), status); })))
      return;
    ag_GeneralInfo_struct info{};
    const CallEnd end = call(
        [&](error_status_t* status) { zt_v2_ag_GetGeneralInfo(server.handle(), &info, status); });
    if (!asked("ag_GetGeneralInfo", end) || !end.ok())
      return;
    record.version = info.Version;
    record.object = info.ObjectId;
    record.evc_flag = info.EvC;
    record.exec_flag = info.Exec;
    record.interval = info.Interval;
    record.evc_error = info.EvCError;
  }

  const Walk& walk_;
  std::vector<System> systems_;
  std::size_t silent_ = 0;
};

}  // namespace

std::vector<System> record_agent(const std::string& name, std::uint32_t address, const Walk& walk) {
  return AgentWalk(name, address, walk).run();
}

}  // namespace agent::recorder
