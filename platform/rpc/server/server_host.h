// SPDX-License-Identifier: Apache-2.0
// Server cores on real UDP sockets: many endpoints on many local addresses in one process, one
// event loop, with a say in each call before it runs (late, refused, silent, dying ...).

#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/rpc/server/event_loop.h"
#include "platform/rpc/server/exported_interface.h"
#include "platform/rpc/server/fault_injection.h"
#include "platform/rpc/server/server_core.h"

namespace rpc::server {

// What to do with a call that is ready.
struct Verdict {
  enum class Action {
    run,      // after `delay`; pings are answered with "working" meanwhile
    silent,   // never answered; pings of this call neither
    working,  // never answered; its pings say "working" for ever
    no_call,  // its pings say "no call", for `delay` or (without one) for ever, then it runs
    die,      // the endpoint's socket is closed; the port is unreachable from now on
    restart,  // the endpoint forgets everything and has a new boot time; the call with it
  };
  Action action = Action::run;
  std::chrono::milliseconds delay{0};
  // When it runs:
  std::optional<Outcome> outcome;            // this, instead of running the operation
  std::optional<std::uint32_t> status;       // the operation's own status, nothing is done
  std::function<void(Outcome& good)> spoil;  // what becomes of the outcome; may be empty
};

enum class Direction { received, sent };

// A datagram as the log is to tell it.
struct DatagramReport {
  Direction direction;
  SocketAddress peer;
  std::span<const std::byte> bytes;  // before the bad network
  // What the bad network made of it, null without one.
  const std::vector<FaultInjector::Delivery>* deliveries;
  Time now;
  bool swallowed = false;  // it came in, and the server is deaf
};

enum class Management {
  listening,      // is_server_listening says yes
  not_listening,  // says no
  mute,           // the interface is never answered
  absent,         // the interface is rejected as unknown
};

struct EndpointOptions {
  std::uint32_t address = 0x7F000001;  // host order
  std::uint16_t port = 0;              // 0: any free one
  // One socket serves the port at every loopback address. While it is open an address of its port
  // without an endpoint, or with one that was killed, is silent instead of unreachable.
  bool shared_socket = false;
  CoreOptions core;                    // boot time 0 and a nil call-back activity are filled in
  std::vector<Interface*> interfaces;  // not owned, must outlive the endpoint
  Management management = Management::listening;
  bool call_back_from_other_port = false;
  bool record_calls = false;  // calls have a record when they end
  // Nothing that comes in is looked at: a server that is alive but deaf.
  bool mute = false;
  std::optional<FaultPlan> receive_faults;
  std::optional<FaultPlan> send_faults;

  // Asked for every call of `interfaces` before it runs; may be empty.
  std::function<Verdict(const CallInfo&, const OperationSpec&)> before_dispatch;
  // Told how each call ended; may be empty.
  std::function<void(const CallInfo&, const OperationSpec&, const Outcome&)> after_dispatch;
  // Told of each client that was forgotten, so that its contexts can be run down; may be empty.
  std::function<void(const uuid_t& client)> on_client_gone;
  // Told when the endpoint forgets everything: it was killed or started anew; may be empty.
  std::function<void()> on_life_over;
  // Told of each datagram and what the bad network made of it; may be empty.
  std::function<void(const DatagramReport&)> on_datagram;
};

// One socket with its core. Belongs to its host.
class Endpoint {
 public:
  virtual ~Endpoint() = default;
  virtual std::uint32_t address() const = 0;
  virtual std::uint16_t port() const = 0;
  virtual bool alive() const = 0;
  virtual ServerCore::Statistics statistics() const = 0;
  // Changes that leave calls, clients and contexts as they are.
  virtual void set_mute(bool mute) = 0;
  virtual void set_management(Management management) = 0;
  virtual void set_faults(const std::optional<FaultPlan>& receive,
                          const std::optional<FaultPlan>& send) = 0;
  // Closes the socket; the port is unreachable afterwards. All state is forgotten.
  virtual void kill() = 0;
  // Opens the port again as a freshly booted server: new boot time, empty activity table. False
  // when the port is taken meanwhile.
  virtual bool restart() = 0;
};

class ServerHost {
 public:
  // The loop is not owned and must outlive the host.
  explicit ServerHost(EventLoop& loop);
  ~ServerHost();
  ServerHost(const ServerHost&) = delete;
  ServerHost& operator=(const ServerHost&) = delete;

  struct Opened {
    Endpoint* endpoint = nullptr;  // null when it failed; belongs to the host
    std::string error;             // what failed and why, for people
  };
  Opened open(EndpointOptions options);
  // Closes and removes the endpoint. Not from within a call or callback of the endpoint itself.
  void close(Endpoint* endpoint);

 private:
  class SharedSockets;
  class UdpEndpoint;
  EventLoop& loop_;
  std::unique_ptr<SharedSockets> shared_;
  std::unordered_map<Endpoint*, std::unique_ptr<UdpEndpoint>> endpoints_;
};

}  // namespace rpc::server
