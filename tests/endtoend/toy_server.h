// SPDX-License-Identifier: Apache-2.0
// A server of a few lines between the console and a simulated one: it passes packets on, answers in
// the server's place, or slips in what no server sent. For the tests of what an enemy can do.

#pragma once

#include <poll.h>

#include <atomic>
#include <functional>
#include <map>
#include <thread>
#include <vector>

#include "tests/support/rpc_bytes.h"
#include "tests/support/udp_socket.h"

namespace endtoend {

using Datagrams = std::vector<rpc::test::Bytes>;

// A packet of the call that a packet of the console belongs to.
inline rpc::PacketHeader header_for(rpc::PacketHeader header, rpc::PacketType type) {
  header.type = type;
  header.flags1 = header.flags2 = 0;
  header.server_boot = 0x60000000;
  header.fragment = 0;
  return header;
}

class ToyServer {
 public:
  static constexpr std::uint32_t kAlpha = 0x7F000101;

  struct Settings {
    std::uint32_t address = kAlpha;
    std::uint16_t port = 0;
    std::uint16_t server_port = 0;   // of the real server on the same address; 0 for none
    std::uint32_t answers_from = 0;  // another local address; 0 for the same
    // Called with each packet of the console; what it appends is sent to the console at once. True
    // for passing the packet on.
    std::function<bool(const rpc::PacketHeader& header, Datagrams& answers)> receive = {};
  };

  // Serves until it goes.
  explicit ToyServer(Settings settings) : settings_(std::move(settings)) {}
  ~ToyServer() {
    ending_ = true;
    thread_.join();
  }

 private:
  const rpc::test::UdpSocket& out() const { return settings_.answers_from == 0 ? front_ : side_; }

  void serve() {
    constexpr int kPollMilliseconds = 20;
    while (!ending_) {
      pollfd waiting[] = {{front_.descriptor(), POLLIN, 0},
                          {side_.descriptor(), POLLIN, 0},
                          {back_.descriptor(), POLLIN, 0}};
      ::poll(waiting, std::size(waiting), kPollMilliseconds);
      for (const auto* socket : {&front_, &side_})
        if (const auto packet = socket->receive(MSG_DONTWAIT))
          from_console(*packet);
      // A call-back has an activity of its own; it concerns the call that was passed on last.
      if (const auto packet = back_.receive(MSG_DONTWAIT)) {
        const auto found = consoles_.find(packet->header.activity);
        out().send(packet->header, packet->body,
                   found != consoles_.end() ? found->second : last_console_);
      }
    }
  }

  void from_console(const rpc::test::Received& packet) {
    last_console_ = packet.source;
    if (packet.header.type != rpc::PacketType::response)
      consoles_[packet.header.activity] = packet.source;
    Datagrams answers;
    const bool pass_on = !settings_.receive || settings_.receive(packet.header, answers);
    for (const rpc::test::Bytes& answer : answers)
      out().send(answer, packet.source);
    if (pass_on && settings_.server_port != 0)
      back_.send(packet.header, packet.body, {settings_.address, settings_.server_port});
  }

  const Settings settings_;
  const rpc::test::UdpSocket front_{settings_.address, settings_.port};
  const rpc::test::UdpSocket side_{
      settings_.answers_from != 0 ? settings_.answers_from : settings_.address,
      settings_.answers_from != 0 ? settings_.port : std::uint16_t{0}};
  const rpc::test::UdpSocket back_{settings_.address};
  rpc::SocketAddress last_console_;
  std::map<uuid_t, rpc::SocketAddress> consoles_;  // by activity
  std::atomic<bool> ending_ = false;
  std::thread thread_{[this] { serve(); }};
};

}  // namespace endtoend
