// SPDX-License-Identifier: Apache-2.0
// Clients and a server of the RPC runtime on a simulated clock and network. A world is made from a
// setting and a seed; each client makes a few calls one after the other. The rules that hold in
// every world are checked while it runs. The same seed gives the same world.

#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <queue>
#include <span>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/rpc/client/activity.h"
#include "platform/rpc/client/client_call.h"
#include "platform/rpc/names/random_source.h"
#include "platform/rpc/server/fault_injection.h"
#include "platform/rpc/server/server_core.h"
#include "platform/rpc/wire/pdu.h"
#include "platform/rpc/wire/time_constants.h"
#include "tests/support/echo_interface.h"

namespace rpc::simulation {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Random numbers of a world; also what its client draws its spreads and activities from.
class SeededRandom : public RandomSource {
 public:
  explicit SeededRandom(std::uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15U + 1) {}
  void fill(std::span<std::byte> bytes) override {
    for (std::byte& byte : bytes)
      byte = static_cast<std::byte>(draw() >> 56);
  }
  std::uint64_t draw() {
    std::uint64_t mixed = state_ += 0x9E3779B97F4A7C15U;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBU;
    return mixed ^ (mixed >> 31);
  }
  std::uint64_t between(std::uint64_t least, std::uint64_t most) {
    return least + draw() % (most - least + 1);
  }
  bool chance(double probability) {
    return static_cast<double>(draw() >> 11) * 0x1.0p-53 < probability;
  }
  double fraction(double most) { return static_cast<double>(draw() >> 11) * 0x1.0p-53 * most; }

 private:
  std::uint64_t state_;
};

struct Setting {
  server::FaultPlan to_server;
  server::FaultPlan to_client;
  server::CoreOptions server;
  unsigned clients = 1;
  unsigned calls = 4;  // of each client
  std::size_t longest_request = 3000;
  std::size_t longest_reply = 3000;
  Duration longest_operation{};  // how long an operation may run
  Duration longest_pause{};      // between two calls
  unsigned least_level = 5;
  unsigned greatest_level = 5;
  double idempotent_share = 0.2;
  double restart_share = 0;             // of calls during which the server is started anew
  bool restart_in_pause = false;        // after the call instead
  double call_back_loss = 0;            // on top of the plan
  bool answers_from_elsewhere = false;  // server answers from another address than the one called
  double outage_share = 0;  // of calls during which one or both ways are cut for a while
  Duration longest_outage{};
  bool outage_is_told = false;  // the network says that it cannot deliver
  double late_share = 0;        // of the client's wake-ups that come late, as of a stopped process
  double move_share = 0;        // of datagrams with which an end moves to another address
  double burst_share = 0;       // of datagrams with which a burst of losses or of delays begins
  double refused_share = 0;     // of calls that end with a fault, and with a reject
  bool wrapping_sequence = false;
  std::size_t client_fragment = kLeastMaxFragment;  // path limit, and what the client announces
  std::size_t widest = 65'536;  // larger datagrams vanish, all or this part of them
  double wide_loss = 1;
  unsigned strangers = 0;      // invented clients that call the server during each call
  bool deliver_flips = false;  // else a changed datagram is dropped, as its checksum tells
};

struct Tally {
  unsigned calls = 0;
  unsigned succeeded = 0;
  std::map<std::uint32_t, unsigned> statuses;
  std::vector<std::uint64_t> failed_seeds;  // of the first calls that did not succeed
  std::uint64_t client_packets = 0;
  std::uint64_t server_packets = 0;
  std::uint64_t acks = 0;      // packets of type ack
  std::uint64_t repeated = 0;  // the same packet of the same call sent again
  std::uint64_t pings = 0;
  double worst_packets = 0;         // sent, over what is allowed
  std::vector<std::string> broken;  // rules that did not hold, each with its seed

  void add(const Tally& other) {
    calls += other.calls;
    succeeded += other.succeeded;
    for (const auto& [status, count] : other.statuses)
      statuses[status] += count;
    if (failed_seeds.size() < 3)
      failed_seeds.insert(failed_seeds.end(), other.failed_seeds.begin(), other.failed_seeds.end());
    client_packets += other.client_packets;
    server_packets += other.server_packets;
    acks += other.acks;
    repeated += other.repeated;
    pings += other.pings;
    worst_packets = std::max(worst_packets, other.worst_packets);
    broken.insert(broken.end(), other.broken.begin(), other.broken.end());
  }
};

class World {
 public:
  // The world of the seed that ZT_SIMULATION_SEED names prints its packets.
  World(const Setting& setting, std::uint64_t seed);
  Tally run();

 private:
  enum class To { client, server };
  enum class Ending { reply, fault, reject };
  struct Event {
    enum class Kind { to_client, to_server, operation_done, restart };
    Time time;
    std::uint64_t order;
    Kind kind;
    SocketAddress source{};
    std::vector<std::byte> bytes{};
    SocketAddress destination{};
    unsigned life = 0;
    server::CallNumber number = 0;
    std::uint64_t id = 0;

    bool operator<(const Event& other) const {
      return std::pair(time, order) > std::pair(other.time, other.order);
    }
  };
  struct Plan {
    std::vector<std::byte> request;
    std::vector<std::byte> reply;
    bool idempotent = false;
    Duration operation{};
    Ending ending = Ending::reply;
    unsigned runs = 0;
    std::uint32_t sequence = 0;
    std::uint32_t status = 0;  // of the call that ended
  };
  struct Client {
    Client(RandomSource& random, std::uint16_t port, std::uint32_t first_call)
        : identity(ClientIdentity::make(random)),
          activity(kServer, random, first_call),
          home(port),
          address{0x7F000001, port} {}
    ClientIdentity identity;
    Activity activity;
    std::uint16_t home;
    SocketAddress address;
    unsigned calls_left = 0;
    Time begins{};  // the next call
    // --- Of the call that runs.
    std::optional<ClientCall> call;
    std::uint64_t id = 0;
    Time call_begun{};
    Time last_life{};
    Time asleep_until{};
    std::optional<Duration> silence;
    std::uint64_t packets = 0;
    std::map<std::vector<std::byte>, unsigned> seen;
    std::optional<PacketHeader> working;  // of an operation that must not run twice

    std::optional<Time> wakeup() const;
  };
  // What happens to a few datagrams of one direction in a row.
  struct Burst {
    unsigned left = 0;
    std::optional<Time> held_until;  // else they are lost
  };
  struct Outage {
    Time begin, end;
    bool to_server = false, to_client = false;
  };

  static constexpr SocketAddress kServer{0x7F000002, 1045};

  bool going() const { return tally_.broken.empty(); }
  void start_server();
  void begin_call(Client& client);
  void end_call(Client& client);
  void settle();
  void step();
  void act(Client& client);
  void happen(const Event& event);
  void arrive(Client& client, const Event& event);
  void pump();
  void pass_on(To to, std::span<const std::byte> datagram, const SocketAddress& source,
               const SocketAddress& destination);
  bool cut_off(To to) const;
  void call_of_stranger();
  void run_operation(server::ReadyCall call);
  void complete(server::CallNumber number, const Plan& plan);
  Client* client_at(const SocketAddress& address);
  void note_sent(std::span<const std::byte> datagram, Client* client, bool by_client);
  void check(Client& client);
  void check_server();
  void trace(const char* what, std::span<const std::byte> datagram);
  void fail(const std::string& what);
  std::vector<std::byte> bytes(std::uint64_t id, std::size_t size);
  std::size_t size_up_to(std::size_t longest);
  Duration duration_up_to(Duration longest);

  Setting setting_;
  std::uint64_t seed_;
  SeededRandom random_;
  server::FaultInjector to_server_;
  server::FaultInjector to_client_;
  std::deque<Client> clients_;
  server::EchoInterface echo_;
  std::unique_ptr<server::ServerCore> core_;
  unsigned life_ = 0;
  std::uint32_t boot_time_ = 1000;

  Time now_{seconds(100)};
  std::priority_queue<Event> events_;
  std::uint64_t order_ = 0;
  std::map<std::uint64_t, Plan> plans_;
  std::uint64_t id_ = 0;
  Tally tally_;
  bool tracing_ = false;

  Outage outage_;
  Burst bursts_[2];
  SocketAddress answers_from_;
  std::uint32_t invented_ = 0;
  std::optional<std::uint32_t> vouched_;  // the sequence that a call-back was just answered with
};

}  // namespace rpc::simulation
