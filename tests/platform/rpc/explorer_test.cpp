// SPDX-License-Identifier: Apache-2.0
// All schedules of the client's machine against the server's with up to so many faults: each
// datagram is delivered, lost, doubled, delayed behind the next one of its direction or behind
// all of its call; the server is started anew before any event; the client is woken late. A
// schedule is a row of decisions, and each is run from its beginning. Both machines are
// deterministic, so that their state is what each has been told and when: a schedule that comes
// where another was, with the same on its way, is cut there.
//
// ZT_EXPLORER_FAULTS sets how many faults a schedule may have; the default, four, takes about a
// minute of one core in a release build. Sanitizers are slower: give them three.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/rpc/client/client_call.h"
#include "platform/rpc/server/server_core.h"
#include "platform/rpc/wire/wire_bytes.h"
#include "tests/support/echo_interface.h"
#include "tests/support/rpc_bytes.h"

namespace rpc {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Bytes = std::vector<std::byte>;

constexpr unsigned kFaults = 4;
constexpr SocketAddress kClient{0x7F000001, 40'000};
constexpr SocketAddress kServer{0x7F000002, 1045};
constexpr Duration kLatency = milliseconds(10);
constexpr Duration kLate = milliseconds(400);
constexpr unsigned kLevel = 0;  // a second of silence: the fewest repeats
constexpr Duration kSlack = milliseconds(600) + kLate;

std::uint64_t mix(std::uint64_t state, std::uint64_t value) {
  state = (state ^ value) * 0x9E3779B97F4A7C15U;
  return state ^ state >> 29;
}

std::uint64_t mix(std::uint64_t state, std::span<const std::byte> bytes) {
  for (const std::byte each : bytes)
    state = (state ^ std::to_integer<std::uint64_t>(each)) * 0x100000001B3U;
  return mix(state, bytes.size());
}

std::uint64_t mix(std::uint64_t state, Time time) {
  return mix(state, static_cast<std::uint64_t>(time.time_since_epoch().count()));
}

class CountingRandom : public RandomSource {
 public:
  void fill(std::span<std::byte> bytes) override {
    for (std::byte& each : bytes)
      each = static_cast<std::byte>((state_ = mix(state_, 1)) >> 56);
  }

 private:
  std::uint64_t state_ = 1;
};

struct Scenario {
  const char* name;
  server::CallBack call_back = server::CallBack::none;
  bool idempotent = false;
  std::size_t request = 40;
  std::size_t reply = 40;
  Duration operation{};
  unsigned calls = 1;
  // Without call-backs nobody can tell an old copy of a first call from a new one.
  bool restarts() const { return call_back != server::CallBack::none || idempotent; }
};

// The decisions of one schedule after the other, in the order of a search in depth.
class Schedules {
 public:
  // The decision among `options` in a state that is the same whenever `state` is.
  unsigned pick(unsigned options, std::uint64_t state) {
    if (at_ == path_.size()) {
      if (!seen_.insert(state).second)
        cut_ = true;
      path_.push_back({0, cut_ ? 1 : options});
    }
    return path_[at_++].first;
  }
  bool cut() const { return cut_; }
  // False when all have been run.
  bool advance() {
    ++(cut_ ? cuts : complete);
    at_ = 0;
    cut_ = false;
    while (!path_.empty() && path_.back().first + 1 == path_.back().second)
      path_.pop_back();
    if (path_.empty())
      return false;
    ++path_.back().first;
    return true;
  }

  std::uint64_t complete = 0;
  std::uint64_t cuts = 0;

 private:
  std::vector<std::pair<unsigned, unsigned>> path_;  // taken, of how many
  std::unordered_set<std::uint64_t> seen_;
  std::size_t at_ = 0;
  bool cut_ = false;
};

class World {
 public:
  World(const Scenario& scenario, unsigned faults, Schedules& schedules)
      : scenario_(scenario), faults_left_(faults), schedules_(schedules) {
    start_server();
  }

  // What rule was broken; empty when none.
  std::string run();
  std::map<std::uint32_t, std::uint64_t> statuses;

 private:
  enum Direction : std::uint8_t { kToServer, kToClient };
  struct Datagram {
    Time at;
    std::uint64_t order;
    Direction direction;
    SocketAddress source;
    Bytes bytes;
    unsigned call;
    std::uint32_t copy_was_at = 0;  // boot time of the server that the other copy came to
  };

  bool going() const { return broken_.empty() && !schedules_.cut(); }
  std::uint64_t state() const;
  unsigned fault(unsigned options);
  void start_server();
  void one_call();
  void step();
  void deliver(Datagram datagram);
  void pump();
  void release(std::vector<Datagram>& delayed, Time at);
  void put_on_its_way(Direction direction, Bytes bytes);
  void check_sent(const PacketHeader& header);
  void run_operation(server::ReadyCall call);
  void settle();
  void fail(const std::string& what);

  const Scenario& scenario_;
  unsigned faults_left_;
  unsigned faults_ = 0;
  bool restarted_in_call_ = false;
  Schedules& schedules_;
  CountingRandom random_;
  CountingRandom server_random_;
  Activity activity_{kServer, random_};
  ClientIdentity identity_ = ClientIdentity::make(random_);
  server::EchoInterface echo_;
  std::unique_ptr<server::ServerCore> core_;
  std::uint32_t boot_time_ = 1000;
  std::optional<ClientCall> call_;

  Time now_{seconds(100)};
  Time last_heard_{};
  std::uint64_t order_ = 0;
  std::vector<Datagram> on_its_way_;
  std::vector<Datagram> behind_next_;
  std::vector<Datagram> behind_all_;
  std::vector<std::pair<Time, server::ReadyCall>> operations_;
  std::uint64_t client_history_ = 1;
  std::uint64_t server_history_ = 1;

  unsigned id_ = 0;  // of the current call, and the first byte of its request
  std::map<unsigned, unsigned> runs_;
  std::map<unsigned, std::uint32_t> sequences_;
  // Calls whose request came to a server and, as the network's copy, to the one started after it,
  // which refuses it for its old boot time: nobody can tell that from a request that never arrived.
  std::set<unsigned> told_to_repeat_;
  std::set<unsigned> not_run_;            // calls that ended so
  std::optional<std::uint32_t> vouched_;  // the sequence that a call-back was just answered with
  std::optional<PacketHeader> working_;
  unsigned events_ = 0;
  std::string broken_;
};

void World::fail(const std::string& what) {
  if (broken_.empty())
    broken_ = std::string(scenario_.name) + ", call " + std::to_string(id_) + ": " + what;
}

std::uint64_t World::state() const {
  std::uint64_t state = mix(mix(mix(client_history_, server_history_), now_), faults_left_);
  for (const auto* each : {&on_its_way_, &behind_next_, &behind_all_}) {
    state = mix(state, each->size());
    for (const Datagram& datagram : *each)
      state = mix(mix(mix(mix(state, datagram.at), datagram.direction), datagram.copy_was_at),
                  datagram.bytes);
  }
  for (const auto& [time, call] : operations_)
    state = mix(mix(state, time), call.number);
  for (const auto& [id, runs] : runs_)
    state = mix(mix(state, id), runs);
  for (const unsigned id : told_to_repeat_)
    state = mix(state, id);
  return mix(state, faults_);
}

// 0 for no fault.
unsigned World::fault(unsigned options) {
  if (faults_left_ == 0)
    return 0;
  const unsigned picked = schedules_.pick(options, mix(state(), options));
  if (picked != 0) {
    --faults_left_;
    ++faults_;
  }
  return picked;
}

void World::start_server() {
  server::CoreOptions options;
  options.boot_time = ++boot_time_;
  options.call_back = scenario_.call_back;
  options.call_back_activity = server_random_.uuid();
  core_ = std::make_unique<server::ServerCore>(options, std::vector<server::Interface*>{&echo_});
  operations_.clear();
  server_history_ = mix(mix(1, boot_time_), now_);
}

std::string World::run() {
  for (unsigned i = 0; i < scenario_.calls && going(); ++i)
    one_call();
  if (const auto ack = activity_.take_ack(); ack && going())
    put_on_its_way(kToServer, ack->bytes());
  settle();
  return broken_;
}

void World::one_call() {
  ++id_;
  Bytes body = test::pattern(scenario_.request, id_);
  body[0] = static_cast<std::byte>(id_);
  CallRequest request;
  request.operation = scenario_.idempotent ? &server::kReadOperation : &server::kChangeOperation;
  request.body = body;
  request.timeout_level = kLevel;
  request.reply_limit = scenario_.reply;
  working_.reset();
  restarted_in_call_ = false;
  last_heard_ = now_;
  call_.emplace(activity_, identity_, random_, request, now_);
  client_history_ = mix(mix(client_history_, id_), now_);
  release(behind_all_, now_);
  pump();
  while (going() && !call_->done()) {
    step();
    if (now_ > last_heard_ + seconds(1) + kSlack)
      fail("the call goes on beyond its level");
  }
  if (!going())
    return;
  ++statuses[call_->status()];
  if (call_->status() == RPC_S_CALL_FAILED_DNE && scenario_.restarts() && !scenario_.idempotent) {
    not_run_.insert(id_);
    if (runs_[id_] != 0)
      fail("a call that ran ended as one that did not run");
  }
  if (call_->status() != 0) {
    if (faults_ < 2 && !restarted_in_call_)
      fail("one fault ended the call with " + std::to_string(call_->status()));
  } else {
    if (call_->take_reply() != test::pattern(scenario_.reply, 1000 + id_))
      fail("the reply is not what the server sent");
    if (runs_[id_] == 0)
      fail("success without a run");
  }
}

// The next thing that happens.
void World::step() {
  if (++events_ > 2000)
    return fail("no end");
  if (scenario_.restarts() && fault(2) == 1) {
    restarted_in_call_ = call_ && !call_->done();
    start_server();
    return;
  }
  if (!going())
    return;
  const auto datagram = std::min_element(
      on_its_way_.begin(), on_its_way_.end(), [](const Datagram& a, const Datagram& b) {
        return std::pair(a.at, a.order) < std::pair(b.at, b.order);
      });
  std::optional<Time> next;
  const auto earlier = [&next](const std::optional<Time>& time) {
    if (time && (!next || *time < *next))
      next = time;
  };
  if (datagram != on_its_way_.end())
    earlier(datagram->at);
  const std::optional<Time> client = call_ ? call_->wakeup() : std::nullopt;
  const std::optional<Time> server = core_->wakeup();
  earlier(client);
  earlier(server);
  for (const auto& [time, call] : operations_)
    earlier(time);
  if (!next)
    return fail("nothing can move any more");
  now_ = std::max(now_, *next);
  if (datagram != on_its_way_.end() && datagram->at <= now_) {
    Datagram taken = std::move(*datagram);
    on_its_way_.erase(datagram);
    deliver(std::move(taken));
  } else if (client && *client <= now_) {
    now_ += fault(2) == 1 ? kLate : Duration{};
    call_->on_time(now_);
    client_history_ = mix(client_history_, now_);
  } else if (server && *server <= now_) {
    core_->on_time(now_);
    server_history_ = mix(server_history_, now_);
  } else {
    const auto done =
        std::min_element(operations_.begin(), operations_.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
    const server::CallNumber number = done->second.number;
    const auto id = std::to_integer<unsigned>(done->second.request[0]);
    operations_.erase(done);
    core_->complete(
        number, {server::Outcome::Kind::reply, 0, test::pattern(scenario_.reply, 1000 + id)}, now_);
    server_history_ = mix(mix(server_history_, number), now_);
  }
  pump();
}

void World::deliver(Datagram datagram) {
  const auto packet = decode_packet(datagram.bytes);
  if (datagram.direction == kToServer) {
    if (packet && packet->header.type == PacketType::response && packet->body.size() >= 4)
      vouched_ = load32(packet->body.data(), packet->header.representation.little_endian);
    for (Datagram& each : on_its_way_)
      if (each.order == datagram.order)
        each.copy_was_at = boot_time_;
    if (packet && packet->header.type == PacketType::request && packet->header.server_boot != 0 &&
        datagram.copy_was_at != 0 && datagram.copy_was_at != boot_time_)
      told_to_repeat_.insert(datagram.call);
    core_->receive(datagram.bytes, datagram.source, now_);
    server_history_ = mix(mix(server_history_, datagram.bytes), now_);
  } else if (call_) {
    if (!call_->done())
      last_heard_ = now_;
    if (packet && packet->header.type == PacketType::working && !scenario_.idempotent)
      working_ = packet->header;
    call_->receive(datagram.bytes, datagram.source, now_);
    client_history_ = mix(mix(client_history_, datagram.bytes), now_);
  }
  // What waited for the next one of its direction comes right behind it.
  for (auto each = behind_next_.begin(); each != behind_next_.end();) {
    if (each->direction != datagram.direction) {
      ++each;
      continue;
    }
    each->at = now_;
    on_its_way_.push_back(std::move(*each));
    each = behind_next_.erase(each);
  }
}

// Hands over what has come out of both machines until nothing more comes.
void World::pump() {
  for (bool moved = true; moved && going();) {
    moved = false;
    while (const auto sent = call_ ? call_->next_datagram(now_) : std::nullopt) {
      moved = true;
      client_history_ = mix(client_history_, 3);
      put_on_its_way(kToServer, sent->bytes());
    }
    while (const auto sent = core_->next_datagram(now_)) {
      moved = true;
      server_history_ = mix(server_history_, 3);
      put_on_its_way(kToClient, sent->bytes());
    }
    for (server::ReadyCall& ready : core_->take_calls()) {
      moved = true;
      run_operation(std::move(ready));
    }
    vouched_.reset();
  }
}

void World::put_on_its_way(Direction direction, Bytes bytes) {
  const auto header = decode_header(bytes);
  if (!header)
    return fail("something was sent that is no packet");
  if (direction == kToServer)
    check_sent(*header);
  enum Fate : unsigned { kDelivered, kLost, kDoubled, kBehindNext, kBehindAll };
  const unsigned fate = fault(5);
  Datagram datagram{now_ + kLatency,  ++order_,
                    direction,        direction == kToServer ? kClient : kServer,
                    std::move(bytes), id_};
  if (fate == kDoubled)
    on_its_way_.push_back(datagram);
  if (fate == kDelivered || fate == kDoubled)
    on_its_way_.push_back(std::move(datagram));
  else if (fate == kBehindNext)
    behind_next_.push_back(std::move(datagram));
  else if (fate == kBehindAll)
    behind_all_.push_back(std::move(datagram));
}

void World::check_sent(const PacketHeader& header) {
  if (header.type != PacketType::request)
    return;
  sequences_[id_] = header.sequence;
  if (working_ && working_->activity == header.activity && working_->sequence == header.sequence)
    fail("a request that must not run twice was sent again after \"working\"");
}

void World::run_operation(server::ReadyCall call) {
  const auto id = std::to_integer<unsigned>(call.request.empty() ? std::byte{} : call.request[0]);
  Bytes body = test::pattern(scenario_.request, id);
  body[0] = static_cast<std::byte>(id);
  if (id == 0 || id > id_ || call.request != body)
    return fail("the request is not what the client sent");
  if (++runs_[id] > 1 && !scenario_.idempotent && !told_to_repeat_.contains(id))
    return fail("an operation that must not run twice ran twice");
  if (not_run_.contains(id))
    return fail("a call ran that had ended as one that did not run");
  if (vouched_ && *vouched_ != sequences_[id])
    return fail("a call ran that its client did not vouch for");
  operations_.emplace_back(now_ + scenario_.operation, std::move(call));
}

void World::release(std::vector<Datagram>& delayed, Time at) {
  for (Datagram& datagram : delayed) {
    datagram.at = at;
    on_its_way_.push_back(std::move(datagram));
  }
  delayed.clear();
}

// The rest of what was delayed comes, and the server forgets everything.
void World::settle() {
  call_.reset();
  if (!going())
    return;
  for (auto* each : {&behind_next_, &behind_all_})
    release(*each, now_ + kLatency);
  faults_left_ = 0;
  while (going() && (!on_its_way_.empty() || !operations_.empty() || core_->wakeup()))
    step();
  if (going() && (core_->statistics().activities != 0 || core_->statistics().bytes_held != 0))
    fail("the server keeps something for ever");
}

constexpr Scenario kScenarios[] = {
    {"idempotent", server::CallBack::none, true},
    {"idempotent, of a server that asks", server::CallBack::who_are_you2, true},
    {"once", server::CallBack::none},
    {"once, with call-back", server::CallBack::who_are_you2},
    {"once, slow, with call-back", server::CallBack::who_are_you, false, 40, 40, milliseconds(900)},
    {"reply of three fragments", server::CallBack::who_are_you2, false, 40, 3000},
    {"request of three fragments", server::CallBack::who_are_you2, false, 3000, 40},
    {"two calls", server::CallBack::who_are_you2, false, 40, 40, {}, 2},
    {"two slow calls", server::CallBack::none, false, 40, 40, milliseconds(900), 2},
};

class ExplorerTest : public testing::TestWithParam<Scenario> {};

TEST_P(ExplorerTest, EveryScheduleKeepsTheRules) {
  const char* const wanted = std::getenv("ZT_EXPLORER_FAULTS");
  const unsigned faults =
      wanted == nullptr ? kFaults : static_cast<unsigned>(std::strtoul(wanted, nullptr, 10));
  Schedules schedules;
  std::map<std::uint32_t, std::uint64_t> statuses;
  unsigned broken = 0;
  do {
    World world(GetParam(), faults, schedules);
    const std::string rule = world.run();
    for (const auto& [status, count] : world.statuses)
      statuses[status] += count;
    if (!rule.empty()) {
      ADD_FAILURE() << rule << " (schedule " << schedules.complete + schedules.cuts << ")";
      ++broken;
    }
  } while (schedules.advance() && broken < 5);
  std::printf("%s, %u faults: %llu schedules, %llu more cut where another was;", GetParam().name,
              faults, static_cast<unsigned long long>(schedules.complete),
              static_cast<unsigned long long>(schedules.cuts));
  for (const auto& [status, count] : statuses)
    std::printf(" %u: %llu", status, static_cast<unsigned long long>(count));
  std::printf("\n");
}

INSTANTIATE_TEST_SUITE_P(, ExplorerTest, testing::ValuesIn(kScenarios),
                         [](const testing::TestParamInfo<Scenario>& scenario) {
                           std::string name = scenario.param.name;
                           std::erase_if(name, [](char c) { return c == ','; });
                           std::replace_if(
                               name.begin(), name.end(),
                               [](char c) { return c == ' ' || c == '-'; }, '_');
                           return name;
                         });

}  // namespace
}  // namespace rpc
