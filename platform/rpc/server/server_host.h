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
    run,     // after `delay`; pings are answered with "working" meanwhile
    fault,   // after `delay`, with `status`, instead of running it
    reject,  // likewise
    silent,  // never answered; pings of this call neither
    die,     // the endpoint's socket is closed; the port is unreachable from now on
  };
  Action action = Action::run;
  std::chrono::milliseconds delay{0};
  std::uint32_t status = 0;

  static Verdict run() { return {}; }
  static Verdict run_after(std::chrono::milliseconds delay) { return {Action::run, delay, 0}; }
  static Verdict fault(std::uint32_t status) { return {Action::fault, {}, status}; }
  static Verdict reject(std::uint32_t status) { return {Action::reject, {}, status}; }
  static Verdict silent() { return {Action::silent, {}, 0}; }
  static Verdict die() { return {Action::die, {}, 0}; }
};

enum class Direction { received, sent };

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
  // Nothing that comes in is looked at: a server that is alive but deaf.
  bool mute = false;
  std::optional<FaultPlan> receive_faults;
  std::optional<FaultPlan> send_faults;

  // Asked for every call of `interfaces` before it runs; may be empty.
  std::function<Verdict(const CallInfo&, const OperationSpec&)> before_dispatch;
  // Told how each call ended; may be empty.
  std::function<void(const CallInfo&, const OperationSpec&, const Outcome&)> after_dispatch;
  // Told of each client that was forgotten, so that its contexts can be run down; may be empty.
  std::function<void(const uuid_t& activity)> on_client_gone;
  // Told of each datagram as it crosses the socket (after faults when sent, before them when
  // received); may be empty.
  std::function<void(Direction, const SocketAddress&, std::span<const std::byte>)> on_datagram;
};

// One socket with its core. Belongs to its host.
class Endpoint {
 public:
  virtual ~Endpoint() = default;
  virtual std::uint32_t address() const = 0;
  virtual std::uint16_t port() const = 0;
  virtual bool alive() const = 0;
  virtual ServerCore::Statistics statistics() const = 0;
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
