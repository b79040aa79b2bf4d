// SPDX-License-Identifier: Apache-2.0
// The road to a system's servers: probe of the host, location broker, endpoint mapper, repository
// servers, alarm server. Each step gives what it found or the failure, as a value that names the
// broken link, the address and port that were asked, what happened and what to try.
//
// A road holds no state outside itself and its settings, prints nothing and waits only in calls of
// sockets and of the RPC runtime, so that any number of them can be walked side by side.

#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/sys/sockets.h"
#include "shared/dce/hublnk_client.h"
#include "shared/dce/known_silence.h"
#include "shared/dce/ncs2dce.h"
#include "shared/general/SHsysNameConv.h"
#include "source/domain/ZTmessages.h"
#include "source/domain/ZTrpcInfo.h"
#include "source/support/ZTglobal.h"

enum class RoadLink : std::uint8_t { none, name, host, broker, mapper, repository, alarm };

enum class RoadCause : std::uint8_t {
  none,
  unknown_name,
  timed_out,
  refused,
  reset,
  unreachable,
  prohibited,
  closed,  // by a broker, without a word
  too_old,
  bad_answer,
  rejected,
  fault,
  nothing_registered,
  foreign_address,  // registered at an address that is not the system's, and not reachable there
  callback_lost,    // the server's question back to this console is lost on its way
  error,            // a status that the other side wrote
};

// "repository"; "timed-out". Empty for none.
std::string_view road_link_name(RoadLink link);
std::string_view road_cause_name(RoadCause cause);

// One word for a system, as the sweep has it.
enum class RoadState : std::uint8_t { succeeded, failed, no_halvex, not_supported, not_available };
// "no-halvex"; and "No Halvex", as the status lines have it.
std::string_view road_state_name(RoadState state);
std::string_view road_state_words(RoadState state);

struct RoadAddress {
  SystemKey key = kNoSystemKey;
  std::uint16_t port = 0;  // 0: none
  bool operator==(const RoadAddress&) const = default;
  std::string text() const;  // "127.0.1.1 port 382"
};

struct RoadFailure {
  RoadLink link = RoadLink::none;
  RoadCause cause = RoadCause::none;
  RoadAddress at;             // what was asked; no key when nothing was
  error_status_t status = 0;  // the number met: of the socket, the runtime, or the other side
  error_status_t call = 0;    // the status of the remote call that met it; 0 when none did
  error_status_t result = 0;  // what the given operations return for it
  MessageId message;          // that the asking class records
  std::string parameter;      // of the message, or (set 11) of the message of set 13 behind it
  std::string text;           // one sentence: what happened, to what
  std::string advice;         // one sentence: what to try

  std::string sentence() const { return advice.empty() ? text : text + " " + advice; }
  // The word for a system that ends in this failure.
  RoadState state() const;
};

// The failure of a name that gives no address: message 104, or 125 for a name or literal of another
// address family.
RoadFailure road_name_failure(const std::string& name);

// A binding to a live server as the endpoint map has it, freed with its owner.
class RoadRecord {
 public:
  RoadRecord() = default;
  explicit RoadRecord(const ptc_RpcClientContextStruct& record) : record_(record) {}
  RoadRecord(RoadRecord&& other) noexcept { swap(other); }
  RoadRecord& operator=(RoadRecord&& other) noexcept {
    swap(other);
    return *this;
  }
  ~RoadRecord();
  const ptc_RpcClientContextStruct& get() const { return record_; }
  RPC_BINDING_HANDLE handle() const { return record_.fBindingHandle; }
  RoadAddress address() const;
  std::string endpoint() const;
  // Takes the record out; the caller releases it.
  ptc_RpcClientContextStruct release();

 private:
  void swap(RoadRecord& other) { std::swap(record_, other.record_); }
  ptc_RpcClientContextStruct record_{};
};

// A live repository server and what it says of itself. Texts are the server's own.
struct RoadRepository {
  RoadRecord record;
  RoadAddress at;
  std::uint32_t id = 0;
  std::string name;  // its label, or its name where it has none
  std::string path;
};

struct RoadAlarmServer {
  RoadRecord record;
  RoadAddress at;
};

// What a road is walked with. The referenced objects outlive the road.
struct RoadSettings {
  std::uint32_t timeout_level = kDefaultComTimeout;
  std::uint16_t broker_port = 0;    // host order; 0: from the services database
  KnownSilence* silence = nullptr;  // null: nothing is known and nothing remembered
  // Addresses left out of the endpoint map; null: read from ignoreip.txt for each query.
  const std::vector<std::int32_t>* ignored = nullptr;
};

// All that a walk found, also when it ended early.
struct RoadReport {
  std::vector<RoadRepository> repositories;
  std::optional<RoadAlarmServer> alarm;
  std::optional<RoadFailure> failure;  // the first broken link
  bool search_unfinished = false;      // the map was left before its end
  RoadState state() const { return failure ? failure->state() : RoadState::succeeded; }
};

class ZTagentRoad {
 public:
  // For whom the road is walked; the messages differ.
  enum class Goal : std::uint8_t { repository, alarm };

  // The key is neither 0 nor kNoSystemKey.
  ZTagentRoad(SystemKey key, const RoadSettings& settings) : key_(key), settings_(settings) {}

  // --- Step by step. Each gives the failure, or nothing and its results.
  // Connects to the location broker and hands the socket out.
  std::optional<RoadFailure> probe(sockets::Socket* socket) const;
  // The version on a connection of its own, or on one that `probe` made; closed either way.
  std::optional<RoadFailure> negotiate(Goal goal) const;
  std::optional<RoadFailure> negotiate_on(sockets::Socket socket, Goal goal) const;
  // The live servers that the map names, at most `most`. Finding none is a failure for
  // repositories; for alarm servers it is none, and `losses` says what may have been in the way.
  std::optional<RoadFailure> find_servers(Goal goal, std::size_t most,
                                          std::vector<RoadRecord>* servers,
                                          ptc_LookupLosses* losses) const;
  // Asks every server who it is. The first failure tells which server it was and how many others
  // live; those are in the list all the same.
  std::optional<RoadFailure> ask_repositories(std::vector<RoadRecord> servers,
                                              std::vector<RoadRepository>* repositories) const;
  // Pings a bound alarm server.
  std::optional<RoadFailure> ping(const zt_RPCinfo_t& record, const RoadAddress& at) const;

  // --- All of it, with one connection to the broker: what the default check asks.
  RoadReport walk() const;

  // Why no live server was found. Nothing to tell when `losses` holds nothing: nothing registered.
  RoadFailure absence(Goal goal, const ptc_LookupLosses& losses) const;
  // What a search that found so many live repository servers lost on its way.
  std::optional<RoadFailure> missing(const ptc_LookupLosses& losses, std::size_t live) const;
  // Makes a remote call (`call` stores its status) unless the operation is known to be silent
  // there.
  template <typename Call>
  LostCall ask(const RoadAddress& at, const char* operation, const Call& call) const {
    const KnownSilence::Thing thing = thing_at(at, operation);
    if (const LostCall* known = known_silence(thing))
      return *known;
    LostCall made;
    const BriefWait brief = wait_for(thing);
    call(&made.status);
    if (made.status != RPC_S_OK)
      made.outcome = RpcLastCallOutcome();
    note_silence(thing, made);
    return made;
  }
  // Where the server says that it found nothing, `sought` says what was asked for.
  RoadFailure call_failure(RoadLink link, const RoadAddress& at, const LostCall& call,
                           const std::string& sought = {}) const;
  RoadFailure mapper_failure(const LostCall& call) const;

  // For questions to the mapper: on a host whose broker let a time-out pass it may answer all the
  // same, though hardly late.
  BriefWait wait_for_mapper() const;

  RoadAddress broker_address() const;
  RoadAddress mapper_address() const;

 private:
  hublnk_Limits limits() const;
  zt_RPCinfo_t call_record(const RoadRecord& server) const;
  std::string waited() const;
  static KnownSilence::Thing thing_at(const RoadAddress& at, const char* operation = "");
  const LostCall* known_silence(const KnownSilence::Thing& thing) const;
  BriefWait wait_for(const KnownSilence::Thing& thing) const;
  void note_silence(const KnownSilence::Thing& thing, const LostCall& call) const;
  // The failure of a broker that let a time-out pass.
  std::optional<RoadFailure> known_broker_failure(Goal goal) const;
  RoadFailure connect_failure(error_status_t error) const;
  RoadFailure broker_failure(Goal goal, error_status_t status) const;
  RoadFailure outcome_failure(RoadLink link, const RoadAddress& at, const LostCall& call) const;

  SystemKey key_;
  const RoadSettings& settings_;
};
