// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/client/liveness.h"

#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "platform/rpc/names/network_address.h"
#include "platform/rpc/names/random_source.h"
#include "platform/rpc/rpc.h"
#include "platform/rpc/wire/conversation.h"
#include "platform/rpc/wire/pdu.h"
#include "platform/rpc/wire/wire_bytes.h"

namespace rpc::liveness {

// A datagram that cannot be sent is like one that got lost: the next one comes in time.
void tell(const Name& server) {
  const auto port = parse_port(server.second);
  const ResolvedHost host = resolve_host(server.first);
  if (!port || host.status != RPC_S_OK)
    return;
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0)
    return;
  SystemRandom random;
  const std::vector<std::byte> packet = still_here(ClientIdentity::of_this_process(), random);
  const sockaddr_in to = to_sockaddr({host.host, *port});
  sendto(descriptor, packet.data(), packet.size(), MSG_NOSIGNAL,
         reinterpret_cast<const sockaddr*>(&to), sizeof to);
  close(descriptor);
}

void Watch::hold(const Name& server) {
  const std::lock_guard lock(mutex_);
  Held& held = servers_[server];
  ++held.contexts;
  held.told = Clock::now();
  if (!thread_.joinable())
    thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
  changed_.notify_all();
}

void Watch::touch(const Name& server) {
  const std::lock_guard lock(mutex_);
  const auto found = servers_.find(server);
  if (found != servers_.end())
    found->second.told = Clock::now();
}

void Watch::release(const Name& server) {
  const std::lock_guard lock(mutex_);
  const auto found = servers_.find(server);
  if (found != servers_.end() && --found->second.contexts == 0)
    servers_.erase(found);
}

void Watch::run(const std::stop_token& stop) {
  // Signals are for the program's own threads.
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
  std::unique_lock lock(mutex_);
  while (!stop.stop_requested()) {
    const auto longest = std::min_element(
        servers_.begin(), servers_.end(),
        [](const auto& a, const auto& b) { return a.second.told < b.second.told; });
    if (longest == servers_.end()) {
      changed_.wait(lock, stop, [this] { return !servers_.empty(); });
      continue;
    }
    const Time due = longest->second.told + interval_;
    if (due > Clock::now()) {
      changed_.wait_until(lock, stop, due, [] { return false; });
      continue;
    }
    longest->second.told = Clock::now();
    const Name server = longest->first;
    lock.unlock();
    tell_(server);
    lock.lock();
  }
}

namespace {

Watch& watch() {
  static Watch the_watch(kLivenessInterval, tell);
  return the_watch;
}

Name name_of(const CallTarget& server) {
  return {server.network_address, server.endpoint};
}

}  // namespace

std::vector<std::byte> still_here(const ClientIdentity& client, RandomSource& random) {
  PacketHeader header;
  header.type = PacketType::request;
  header.flags1 = kFlagMaybe | kFlagIdempotent;
  header.interface_id = conversation::kOfServers;
  header.interface_version = conversation::kOfServersVersion;
  header.opnum = conversation::kStillHere;
  header.activity = random.uuid();
  std::array<std::byte, sizeof(uuid_t)> body;
  store_uuid(body.data(), client.address_space, header.representation.little_endian);
  return encode_packet(header, body);
}

void hold(const CallTarget& server) {
  watch().hold(name_of(server));
}

void touch(const CallTarget& server) {
  watch().touch(name_of(server));
}

void release(const CallTarget& server) {
  watch().release(name_of(server));
}

}  // namespace rpc::liveness
