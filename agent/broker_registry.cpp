// SPDX-License-Identifier: Apache-2.0
#include "agent/broker_registry.h"

#include <vector>

#include "platform/rpc/rpc.h"

namespace agent {

namespace {

constexpr std::size_t kLongestName = 255;
constexpr std::size_t kLongestPath = 1023;

std::string uuid_text(const uuid_t& uuid) {
  char* text = nullptr;
  if (UuidToStringA(&uuid, &text) != RPC_S_OK)
    return {};
  std::string result = text;
  RpcStringFreeA(&text);
  return result;
}

}  // namespace

BrokerRegistry::BrokerRegistry(const LocationBroker& settings)
    : major_(settings.major), minor_(settings.minor), status_(settings.status) {
  for (const BrokerEntry& entry : settings.servers)
    entries_.emplace(Key{entry.type, entry.name}, entry);
}

const BrokerEntry* BrokerRegistry::find(const uuid_t& type, const std::string& name) const {
  const auto found = entries_.find({type, name});
  return found != entries_.end() ? &found->second : nullptr;
}

BrokerMessage BrokerRegistry::answer(const BrokerMessage& request) {
  BrokerMessage reply;
  reply.command = request.command;
  reply.status = status_;
  const auto command = static_cast<BrokerCommand>(request.command);
  if (command == BrokerCommand::negotiate) {
    negotiate(reply);
    return reply;
  }
  if (status_ != 0)
    return reply;
  if (command == BrokerCommand::shutdown) {
    shut_down_ = true;
    return reply;
  }

  const bool known = command == BrokerCommand::activate || command == BrokerCommand::deactivate ||
                     command == BrokerCommand::register_server ||
                     command == BrokerCommand::unregister_server;
  if (!known) {
    reply.status = kBrokerUnknownCommand;
    return reply;
  }
  const std::size_t expected = command == BrokerCommand::register_server ? 3 : 2;
  std::vector<std::string> items;
  uuid_t type{};
  if (!decode_broker_items(request.data, expected, items) || items.size() != expected ||
      UuidFromStringA(items[0].c_str(), &type) != RPC_S_OK || items[1].empty() ||
      items[1].size() > kLongestName || (expected == 3 && items[2].size() > kLongestPath)) {
    reply.status = kBrokerBadRequest;
    return reply;
  }
  const Key key{type, items[1]};
  if (command == BrokerCommand::register_server)
    register_server(type, items[1], items[2], reply);
  else if (command == BrokerCommand::unregister_server)
    unregister_server(key, reply);
  else if (command == BrokerCommand::activate)
    activate(key, reply);
  else
    deactivate(key, reply);
  return reply;
}

void BrokerRegistry::negotiate(BrokerMessage& reply) const {
  reply.words = {major_, minor_};
}

// A server that registers again, after a restart, keeps its object and may have moved.
void BrokerRegistry::register_server(const uuid_t& type, const std::string& name,
                                     const std::string& path, BrokerMessage& reply) {
  auto found = entries_.find({type, name});
  if (found == entries_.end()) {
    if (entries_.size() == kMostEntries) {
      reply.status = kBrokerFull;
      return;
    }
    BrokerEntry entry{name, path, type, {}, false};
    UuidCreate(&entry.object);
    found = entries_.emplace(Key{type, name}, entry).first;
  }
  found->second.path = path;
  reply.data = encode_broker_item(uuid_text(found->second.object));
}

void BrokerRegistry::unregister_server(const Key& key, BrokerMessage& reply) {
  if (entries_.erase(key) == 0)
    reply.status = kBrokerUnknownServer;
}

void BrokerRegistry::activate(const Key& key, BrokerMessage& reply) {
  const auto found = entries_.find(key);
  if (found == entries_.end()) {
    reply.status = kBrokerUnknownServer;
    return;
  }
  found->second.active = true;
  reply.data = encode_broker_item(uuid_text(found->second.object));
}

void BrokerRegistry::deactivate(const Key& key, BrokerMessage& reply) {
  const auto found = entries_.find(key);
  if (found == entries_.end())
    reply.status = kBrokerUnknownServer;
  else if (!found->second.active)
    reply.status = kBrokerNotActive;
  else
    found->second.active = false;
}

}  // namespace agent
