// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTagentRoad.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "source/domain/ZTmapperBinding.h"
#include "source/domain/ZTrepInterface.h"
#include "source/domain/ZTroadWords.h"
#include "source/support/ZTformat.h"

namespace {

constexpr std::uint16_t kMapperPort = 135;
constexpr std::uint16_t kLeastAgentVersion = 2;
constexpr std::size_t kMostRepositories = 128;
constexpr std::size_t kOneAlarmServer = 1;
constexpr error_status_t kTimedOut = sockets::WSAETIMEDOUT;
constexpr LostCall kNoAnswer{RPC_S_COMM_FAILURE,
                             {RpcCallOutcome::Kind::undelivered, kTimedOut, 0, 0}};
constexpr const char* kNegotiation = "tcp";  // the one thing that is asked over TCP

// The text of a field that a server filled.
template <std::size_t kSize>
std::string text_of(const char (&field)[kSize]) {
  return std::string(field, strnlen(field, kSize));
}

std::string dotted(SystemKey key) {
  char text[kKeyTextSize];
  SystemKeyToIPAddr(key, text);
  return text;
}

SystemKey key_of(const std::string& address) {
  return static_cast<SystemKey>(sockets::inet_addr(address.c_str()));
}

// What a class records for a step that failed, and what its operations return.
struct Record {
  MessageId repository;
  MessageId alarm;
  error_status_t result;  // 0: the status itself
};
constexpr Record kConnect{messages::kProbeFailed, messages::kBrokerFailed, 0};
constexpr Record kNegotiate{messages::kRequestFailed, messages::kBrokerFailed,
                            kLocationBrokerFailed};
constexpr Record kVersion{messages::kAgentTooOld, messages::kAgentTooOld, kAgentTooOld};
constexpr Record kBind{messages::kRequestFailed, messages::kNoMapperBinding, 0};
constexpr Record kRelease{messages::kRequestFailed, messages::kTextNotFreed, 0};
constexpr Record kInterface{messages::kRequestFailed, messages::kNoInterfaceId, 0};
constexpr Record kQuery{messages::kMapQueryFailed, messages::kAlarmQueryFailed, 0};
constexpr Record kUnreadMap{messages::kNoRepositoryServer, messages::kAlarmQueryFailed,
                            kRepNothingFound};
constexpr Record kAbsence{messages::kNoRepositoryServer, messages::kPingFailed, kRepNothingFound};
constexpr Record kCall{messages::kRequestFailed, messages::kPingFailed, 0};

std::string count_of_living(std::size_t live, std::size_t all) {
  const std::string count = live == 0   ? "none lives"
                            : live == 1 ? "1 lives"
                                        : format_text("%zu live", live);
  return format_text("Of the system's %zu repository servers, %s.", all, count.c_str());
}

RoadFailure recorded(RoadFailure failure, const Record& record, ZTagentRoad::Goal goal) {
  const bool alarm = goal == ZTagentRoad::Goal::alarm;
  failure.message = alarm ? record.alarm : record.repository;
  if (record.result != 0)
    failure.result = record.result;
  // The messages of these goals name a number.
  const error_status_t number = record.result != 0 ? failure.status : failure.result;
  if (failure.message != messages::kAgentTooOld && (alarm || &record == &kNegotiate))
    failure.parameter = std::to_string(static_cast<std::int32_t>(number));
  return failure;
}

}  // namespace

std::string RoadAddress::text() const {
  return port == 0 ? dotted(key) : dotted(key) + " port " + std::to_string(port);
}

RoadState RoadFailure::state() const {
  if (cause == RoadCause::too_old || cause == RoadCause::closed)
    return RoadState::not_supported;
  // Only what the probe met: a host that is there and a broker that is not, or no host at all.
  if (message != messages::kProbeFailed)
    return RoadState::failed;
  return cause == RoadCause::refused ? RoadState::no_halvex : RoadState::not_available;
}

RoadFailure road_name_failure(const std::string& name) {
  RoadFailure failure;
  failure.link = RoadLink::name;
  failure.cause = RoadCause::unknown_name;
  failure.message = {messages::kCommandSet, messages::kUnknownSystem};
  failure.parameter = name;
  failure.text = name + ": the name gives no address.";
  if (SystemHasOtherFamily(name.c_str())) {
    failure.message.number = messages::kOtherFamily;
    failure.text = name + ": there are only addresses of another family than IPv4.";
  }
  failure.advice = advice_for(RoadLink::name, RoadCause::unknown_name);
  return failure;
}

// --- Records.

RoadRecord::~RoadRecord() {
  error_status_t ignored = RPC_S_OK;
  if (record_.fBindingHandle != nullptr || record_.fStringBinding != nullptr)
    ptc_rpc_clnt_ctx_free(&record_, 1, &ignored);
}

ptc_RpcClientContextStruct RoadRecord::release() {
  return std::exchange(record_, {});
}

std::string RoadRecord::endpoint() const {
  char* endpoint = nullptr;
  RpcStringBindingParseA(record_.fStringBinding, nullptr, nullptr, nullptr, &endpoint, nullptr);
  std::string text = endpoint != nullptr ? endpoint : "";
  RpcStringFreeA(&endpoint);
  return text;
}

RoadAddress RoadRecord::address() const {
  char* address = nullptr;
  RpcStringBindingParseA(record_.fStringBinding, nullptr, nullptr, &address, nullptr, nullptr);
  const RoadAddress result{
      key_of(address != nullptr ? address : ""),
      static_cast<std::uint16_t>(std::strtol(endpoint().c_str(), nullptr, 10))};
  RpcStringFreeA(&address);
  return result;
}

// --- What is known of silence.

hublnk_Limits ZTagentRoad::limits() const {
  hublnk_Limits limits;
  if (const auto level = rpc::silence_of_level(settings_.timeout_level)) {
    limits.connect = std::min(*level, sockets::kLongestConnect);
    limits.reply = *level;
  }
  return limits;
}

std::string ZTagentRoad::waited() const {
  const auto level = rpc::silence_of_level(settings_.timeout_level);
  return level ? " within " + std::to_string(level->count()) + " s" : "";
}

KnownSilence::Thing ZTagentRoad::thing_at(const RoadAddress& at, const char* operation) {
  return {static_cast<std::uint32_t>(at.key), at.port, operation};
}

const LostCall* ZTagentRoad::known_silence(const KnownSilence::Thing& thing) const {
  return settings_.silence != nullptr ? settings_.silence->find(thing) : nullptr;
}

void ZTagentRoad::note_silence(const KnownSilence::Thing& thing, const LostCall& call) const {
  // A question that gets no answer costs the server's patience, as long as a time-out.
  if (settings_.silence != nullptr && (call.timed_out() || call.outcome.call_back_lost()))
    settings_.silence->add(thing, call);
}

BriefWait ZTagentRoad::wait_for(const KnownSilence::Thing& thing) const {
  const bool suspect = settings_.silence != nullptr && settings_.silence->suspects(thing);
  return {settings_.timeout_level, suspect ? BriefWait::kPart : 0};
}

BriefWait ZTagentRoad::wait_for_mapper() const {
  const KnownSilence::Thing mapper = thing_at(mapper_address());
  return wait_for(known_silence(mapper) != nullptr ? mapper : thing_at({key_, 0}));
}

RoadAddress ZTagentRoad::broker_address() const {
  return {key_, settings_.broker_port != 0 ? settings_.broker_port : sockets::ntohs(hublnk_Port())};
}

RoadAddress ZTagentRoad::mapper_address() const {
  return {key_, kMapperPort};
}

// --- Failures.

RoadFailure ZTagentRoad::connect_failure(error_status_t error) const {
  RoadFailure failure;
  failure.at = broker_address();
  failure.status = error;
  failure.cause = cause_of_network(error);
  // A refusal comes from a host that is up, so that only its broker is missing.
  failure.link = failure.cause == RoadCause::refused || failure.cause == RoadCause::reset
                     ? RoadLink::broker
                     : RoadLink::host;
  failure.text = failure.at.text() + ": " + words_of_network(error, limits().connect) + ".";
  failure.advice = advice_for(failure.link, failure.cause);
  return failure;
}

RoadFailure ZTagentRoad::broker_failure(Goal goal, error_status_t status) const {
  RoadFailure failure = connect_failure(status);
  failure.link = RoadLink::broker;
  if (status == kHublnkMalformed) {
    failure.cause = RoadCause::bad_answer;
    failure.text = failure.at.text() + ": answered with what is no reply of a location broker (" +
                   std::to_string(status) + ").";
  } else if (failure.cause == RoadCause::reset) {
    failure.cause = RoadCause::bad_answer;
    failure.text = failure.at.text() + ": ended the connection in the middle of its answer (" +
                   std::to_string(status) + ").";
  } else if (failure.cause == RoadCause::timed_out) {
    failure.text =
        failure.at.text() + ": took the connection, and no answer came" + waited() + " (10060).";
  }
  failure.advice = advice_for(failure.link, failure.cause);
  return recorded(std::move(failure), kNegotiate, goal);
}

RoadFailure ZTagentRoad::outcome_failure(RoadLink link, const RoadAddress& at,
                                         const LostCall& call) const {
  RoadFailure failure;
  const CallWords words = words_of_call(call, waited());
  failure.link = link;
  failure.at = at;
  failure.cause = words.cause;
  failure.status = call.outcome.network != 0 ? call.outcome.network : call.status;
  failure.call = call.outcome.status != RPC_S_OK ? call.outcome.status : call.status;
  failure.result = call.status;
  failure.text = at.text() + ": " + words.text + ".";
  failure.advice = words.advice != nullptr ? words.advice : advice_for(link, failure.cause);
  return failure;
}

RoadFailure ZTagentRoad::call_failure(RoadLink link, const RoadAddress& at, const LostCall& call,
                                      const std::string& sought) const {
  RoadFailure failure = recorded(outcome_failure(link, at, call), kCall,
                                 link == RoadLink::alarm ? Goal::alarm : Goal::repository);
  if (call.status == kCallRaised && link == RoadLink::repository)
    failure.parameter = "the server " + words_of_call(call, waited()).text + ".";
  if (call.status != kRepNothingFound)
    return failure;
  if (!sought.empty()) {
    failure.text = at.text() + ": the server has no " + sought + " (status 0x4C010001).";
    failure.advice =
        "Check on the system that what fills the data source is set up and running, and that the "
        "agent may read its files.";
  }
  failure.parameter = failure.sentence();
  return failure;
}

RoadFailure ZTagentRoad::mapper_failure(const LostCall& call) const {
  return outcome_failure(RoadLink::mapper, mapper_address(), call);
}

RoadFailure ZTagentRoad::absence(Goal goal, const ptc_LookupLosses& losses) const {
  const RoadLink link = goal == Goal::alarm ? RoadLink::alarm : RoadLink::repository;
  const std::string interface = goal == Goal::alarm ? "ag" : "rep";
  RoadFailure failure;
  if (losses.server.status != RPC_S_OK) {
    const RoadAddress at{key_of(losses.server_address), losses.server_port};
    failure = outcome_failure(link, at, losses.server);
    failure.text.pop_back();
    failure.text = "the server of interface " + interface + " registered at " + failure.text;
    if (const int more = losses.servers - 1; more > 0)
      failure.text += "; " + std::to_string(more) + (more == 1 ? " more does" : " more do") +
                      " not answer either";
    if (at.key != key_) {
      failure.cause = RoadCause::foreign_address;
      failure.text += "; that is not the address of the system, " + dotted(key_);
      failure.advice = advice_for(link, failure.cause);
    }
    failure.text += ".";
  } else if (losses.mapper.status != RPC_S_OK) {
    failure = mapper_failure(losses.mapper);
    failure.text = "the endpoint mapper at " + failure.text;
  } else {
    failure.link = link;
    failure.cause = RoadCause::nothing_registered;
    failure.at = mapper_address();
    failure.text = "no server of interface " + interface +
                   " is registered in the endpoint map at " + failure.at.text() + ".";
    failure.advice = advice_for(link, failure.cause);
  }
  const Record& record = failure.link == RoadLink::mapper ? kUnreadMap : kAbsence;
  failure = recorded(std::move(failure), record, goal);
  if (goal == Goal::repository)
    failure.parameter = failure.sentence();
  return failure;
}

std::optional<RoadFailure> ZTagentRoad::missing(const ptc_LookupLosses& losses,
                                                std::size_t live) const {
  if (losses.server.status == RPC_S_OK && losses.mapper.status == RPC_S_OK)
    return std::nullopt;
  RoadFailure failure = absence(Goal::repository, losses);
  if (losses.servers > 0)
    failure.text += " " + count_of_living(live, live + static_cast<std::size_t>(losses.servers));
  return failure;
}

// --- Steps.

std::optional<RoadFailure> ZTagentRoad::probe(sockets::Socket* socket) const {
  const RoadAddress at = broker_address();
  const KnownSilence::Thing host = thing_at({key_, 0});
  if (known_silence(host) != nullptr)
    return recorded(connect_failure(kTimedOut), kConnect, Goal::repository);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = static_cast<std::uint32_t>(key_);
  address.sin_port = sockets::htons(at.port);
  std::uint32_t status = 0;
  if (hublnk_OpenAt(address, limits(), socket, &status))
    return std::nullopt;
  if (status == kTimedOut)
    note_silence(host, kNoAnswer);
  return recorded(connect_failure(status), kConnect, Goal::repository);
}

std::optional<RoadFailure> ZTagentRoad::known_broker_failure(Goal goal) const {
  if (known_silence(thing_at(broker_address(), kNegotiation)) == nullptr)
    return std::nullopt;
  return broker_failure(goal, kTimedOut);
}

std::optional<RoadFailure> ZTagentRoad::negotiate(Goal goal) const {
  if (auto failure = known_broker_failure(goal))
    return failure;
  sockets::Socket socket = sockets::kInvalidSocket;
  if (auto failure = probe(&socket))
    return recorded(std::move(*failure), kNegotiate, goal);
  return negotiate_on(socket, goal);
}

std::optional<RoadFailure> ZTagentRoad::negotiate_on(sockets::Socket socket, Goal goal) const {
  std::uint16_t major = 0, minor = 0;
  std::uint32_t status = 0, ignored = 0;
  bool closed = false;
  const bool replied = hublnk_Negotiate(socket, &major, &minor, &status, limits(), &closed) != 0;
  hublnk_Close(socket, &ignored);
  if (!replied) {
    if (status == kTimedOut)
      note_silence(thing_at(broker_address(), kNegotiation), kNoAnswer);
    return broker_failure(goal, status);
  }
  if (status == 0 && major >= kLeastAgentVersion)
    return std::nullopt;
  RoadFailure failure;
  failure.link = RoadLink::broker;
  failure.at = broker_address();
  failure.text = failure.at.text() + ": ";
  if (status != 0) {
    failure.status = status;
    failure.cause = RoadCause::error;
    failure.text += "answered with status " + std::to_string(status) + ".";
  } else if (closed) {
    failure.cause = RoadCause::closed;
    failure.text +=
        "closed the connection without an answer (too many connections, or an agent before "
        "version 2).";
  } else {
    failure.cause = RoadCause::too_old;
    failure.text += format_text("speaks version %d.%d, before version 2.", major, minor);
  }
  failure.advice = advice_for(RoadLink::broker, failure.cause);
  return recorded(std::move(failure), status != 0 ? kNegotiate : kVersion, goal);
}

std::optional<RoadFailure> ZTagentRoad::find_servers(Goal goal, std::size_t most,
                                                     std::vector<RoadRecord>* servers,
                                                     ptc_LookupLosses* losses) const {
  const RoadAddress at = mapper_address();
  const auto failed = [&](const Record& record, const LostCall& call) {
    return recorded(mapper_failure(call), record, goal);
  };
  constexpr RpcCallOutcome kHere{RpcCallOutcome::Kind::local};
  MapperBinding mapper;
  error_status_t released = RPC_S_OK;
  error_status_t status = mapper.bind(dotted(key_).c_str(), &released);
  if (status != RPC_S_OK || released != RPC_S_OK)
    return failed(status != RPC_S_OK ? kBind : kRelease,
                  {status != RPC_S_OK ? status : released, kHere});
  rpc_if_id_t interface_id{};
  status = RpcIfInqId(goal == Goal::alarm ? zt_v2_ag_v2_0_c_ifspec : zt_v2_rep_v2_0_c_ifspec,
                      &interface_id);
  if (status != RPC_S_OK)
    return failed(kInterface, {status, kHere});

  if (const LostCall* known = known_silence(thing_at(at))) {
    losses->mapper = *known;
  } else {
    RpcMgmtSetComTimeout(mapper.get(), settings_.timeout_level);
    std::vector<ptc_RpcClientContextStruct> records(most);
    std::uint32_t count = static_cast<std::uint32_t>(most);
    ptc_rpc_ep_lookup(mapper.get(), &interface_id, nullptr, records.data(), &count, &status, losses,
                      {settings_.ignored, settings_.silence, static_cast<std::uint32_t>(key_)});
    if (status != RPC_S_OK)
      return failed(kQuery, {status, losses->mapper.outcome});
    for (std::uint32_t i = 0; i < count; ++i)
      servers->emplace_back(records[i]);
    note_silence(thing_at(at), losses->mapper);
  }
  if (goal == Goal::repository && servers->empty())
    return absence(goal, *losses);
  return std::nullopt;
}

zt_RPCinfo_t ZTagentRoad::call_record(const RoadRecord& server) const {
  zt_RPCinfo_t record;
  record.rpc_handle = server.handle();
  record.version = ZT_RPC_V2;
  RpcMgmtSetComTimeout(record.rpc_handle, settings_.timeout_level);
  return record;
}

std::optional<RoadFailure> ZTagentRoad::ask_repositories(
    std::vector<RoadRecord> servers, std::vector<RoadRepository>* repositories) const {
  std::optional<RoadFailure> first;
  for (RoadRecord& server : servers) {
    const zt_RPCinfo_t record = call_record(server);
    rep_sRepositoryDescriptor repository{};
    const RoadAddress at = server.address();
    const LostCall call = ask(at, "rep_LookupRepository", [&](error_status_t* status) {
      zt_rep_LookupRepository(record, &repository, status);
    });
    if (call.status != RPC_S_OK) {
      RoadFailure failure = call_failure(RoadLink::repository, at, call);
      if (!first)
        first = std::move(failure);
      continue;
    }
    const rep_sDescriptor& descriptor = repository.Descriptor;
    repositories->push_back(
        {std::move(server), at, descriptor.fId,
         descriptor.LabelLength != 0 ? text_of(descriptor.Label) : text_of(descriptor.fName),
         text_of(repository.PathName)});
  }
  if (first && servers.size() > 1)
    first->text += " " + count_of_living(repositories->size(), servers.size());
  return first;
}

std::optional<RoadFailure> ZTagentRoad::ping(const zt_RPCinfo_t& record,
                                             const RoadAddress& at) const {
  const LostCall call =
      ask(at, "ag_Ping", [&](error_status_t* status) { zt_ag_Ping(record, status); });
  if (call.status == RPC_S_OK)
    return std::nullopt;
  return call_failure(RoadLink::alarm, at, call);
}

RoadReport ZTagentRoad::walk() const {
  RoadReport report;
  const auto broken = [&](std::optional<RoadFailure> failure) {
    report.failure = std::move(failure);
    return report.failure.has_value();
  };
  sockets::Socket broker = sockets::kInvalidSocket;
  if (broken(known_broker_failure(Goal::repository)) || broken(probe(&broker)) ||
      broken(negotiate_on(broker, Goal::repository)))
    return report;
  std::vector<RoadRecord> servers;
  ptc_LookupLosses losses;
  if (broken(find_servers(Goal::repository, kMostRepositories, &servers, &losses)))
    return report;
  report.search_unfinished = losses.unfinished;
  if (broken(ask_repositories(std::move(servers), &report.repositories)))
    return report;
  std::vector<RoadRecord> alarms;
  losses = {};
  if (broken(find_servers(Goal::alarm, kOneAlarmServer, &alarms, &losses)))
    return report;
  if (alarms.empty()) {
    report.failure = absence(Goal::alarm, losses);
    return report;
  }
  RoadAlarmServer alarm{std::move(alarms.front()), {}};
  alarm.at = alarm.record.address();
  if (!broken(ping(call_record(alarm.record), alarm.at)))
    report.alarm = std::move(alarm);
  return report;
}
