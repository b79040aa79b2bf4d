// SPDX-License-Identifier: Apache-2.0
// What a location broker knows: its version and the servers that were registered with it. Requests
// in, replies out; no socket.

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "agent/broker_message.h"
#include "agent/scenario.h"

namespace agent {

// Status words of our replies. 8 and 9 are left out: clients set them by themselves.
inline constexpr std::uint16_t kBrokerBadRequest = 1;
inline constexpr std::uint16_t kBrokerUnknownCommand = 2;
inline constexpr std::uint16_t kBrokerUnknownServer = 3;
inline constexpr std::uint16_t kBrokerNotActive = 4;
inline constexpr std::uint16_t kBrokerFull = 5;

class BrokerRegistry {
 public:
  static constexpr std::size_t kMostEntries = 1024;

  explicit BrokerRegistry(const LocationBroker& settings);

  // Where the scenario sets a status word, every reply carries it and nothing is done.
  BrokerMessage answer(const BrokerMessage& request);
  // A shutdown was accepted: the daemon ends once its reply is out.
  bool shut_down() const { return shut_down_; }
  // The entry of this type and name; null when it is not registered.
  const BrokerEntry* find(const uuid_t& type, const std::string& name) const;

 private:
  using Key = std::pair<uuid_t, std::string>;

  void negotiate(BrokerMessage& reply) const;
  void register_server(const uuid_t& type, const std::string& name, const std::string& path,
                       BrokerMessage& reply);
  void unregister_server(const Key& key, BrokerMessage& reply);
  void activate(const Key& key, BrokerMessage& reply);
  void deactivate(const Key& key, BrokerMessage& reply);

  const std::uint16_t major_;
  const std::uint16_t minor_;
  const std::uint16_t status_;
  bool shut_down_ = false;
  std::map<Key, BrokerEntry> entries_;
};

}  // namespace agent
