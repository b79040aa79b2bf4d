// SPDX-License-Identifier: Apache-2.0
// Plain sockets that talk to servers of the same thread: while a client waits, the servers' loop
// turns.

#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/rpc/server/event_loop.h"
#include "tests/support/rpc_bytes.h"

namespace agent::test {

using rpc::test::Bytes;
using rpc::test::hex;
using rpc::test::hex_text;

class LoopClient {
 public:
  LoopClient(rpc::server::EventLoop& loop, int type, std::uint32_t address, std::uint16_t port)
      : loop_(loop), descriptor_(::socket(AF_INET, type | SOCK_CLOEXEC, 0)) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(address);
    name.sin_port = htons(port);
    connected_ = ::connect(descriptor_, reinterpret_cast<sockaddr*>(&name), sizeof name) == 0;
  }
  ~LoopClient() { ::close(descriptor_); }
  LoopClient(const LoopClient&) = delete;
  LoopClient& operator=(const LoopClient&) = delete;

  bool connected() const { return connected_; }
  void send(const Bytes& bytes) {
    if (::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(bytes.size()))
      throw std::runtime_error("cannot send");
  }
  // What one receive gives: empty at the end of a stream, nothing when the time is over or the
  // connection is reset.
  std::optional<Bytes> receive(std::chrono::milliseconds longest = std::chrono::seconds(5)) {
    const auto end = std::chrono::steady_clock::now() + longest;
    do {
      loop_.run_once(std::chrono::milliseconds(5));
      Bytes bytes(65536);
      const ssize_t got = ::recv(descriptor_, bytes.data(), bytes.size(), MSG_DONTWAIT);
      if (got >= 0) {
        bytes.resize(static_cast<std::size_t>(got));
        return bytes;
      }
      if (errno != EAGAIN) {
        error_ = errno;
        return std::nullopt;
      }
    } while (std::chrono::steady_clock::now() < end);
    return std::nullopt;
  }
  // A stream's bytes until `size` of them are there or it ends.
  Bytes receive_all(std::size_t size) {
    Bytes all;
    while (all.size() < size) {
      const auto bytes = receive();
      if (!bytes || bytes->empty())
        break;
      all.insert(all.end(), bytes->begin(), bytes->end());
    }
    return all;
  }
  int error() const { return error_; }

 private:
  rpc::server::EventLoop& loop_;
  int descriptor_;
  bool connected_ = false;
  int error_ = 0;
};

}  // namespace agent::test
