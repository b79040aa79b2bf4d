// SPDX-License-Identifier: Apache-2.0
// Which servers of a scenario share sockets. A large scenario would need a descriptor for each port
// of each system; but on a shared port nobody can be refused, so a port on which some server
// refuses, or dies, is shared by none.

#pragma once

#include <cstdint>
#include <set>

#include "agent/scenario.h"

namespace agent {

class SocketSharing {
 public:
  // Up to so many systems each server has a socket of its own, and an address without a system
  // refuses as it should.
  static constexpr std::size_t kMostSystemsWithOwnSockets = 100;

  // Once sockets are shared (`already`), a scenario that has become smaller goes on with it.
  explicit SocketSharing(const Scenario& scenario, bool already = false);

  bool wanted() const { return wanted_; }

  bool broker(const System& system) const;
  bool server(const System& system, const ServerSettings& settings) const;

 private:
  void note(const System& system);
  void note(const System& system, const ServerSettings& settings);

  bool wanted_;
  std::set<std::uint16_t> refusing_tcp_;
  std::set<std::uint16_t> refusing_udp_;
};

}  // namespace agent
