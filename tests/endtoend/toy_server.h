// SPDX-License-Identifier: Apache-2.0
// Plain UDP sockets between the console and a simulated server: they pass datagrams on, answer in
// the server's place, or slip in what no server sent. For the tests of what an enemy can do.

#pragma once

#include <netinet/in.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace endtoend {

// The places of the connectionless header (C706 12.5.2.1) and the packet types (12.5.2.4) used.
struct Header {
  static constexpr std::size_t kType = 1, kFlags1 = 2, kFlags2 = 3, kObject = 8, kInterface = 24,
                               kActivity = 40, kBoot = 56, kVersion = 60, kSequence = 64,
                               kOperation = 68, kLength = 74, kFragment = 76, kSize = 80;
};
enum PacketType : unsigned char {
  kRequest = 0,
  kPing = 1,
  kResponse = 2,
  kFault = 3,
  kWorking = 4,
  kNoCall = 5,
  kReject = 6,
};

PacketType type_of(std::string_view datagram);
// Little-endian, as the console sends and the tests answer.
void put_number(std::string& datagram, std::size_t at, std::uint32_t value, std::size_t size);
// A packet of the call that a datagram of the console belongs to.
std::string packet_for(std::string_view datagram, PacketType type, std::string_view body = {});
// Whether it asks the management interface (C706 appendix Q) something.
bool is_for_management(std::string_view datagram);

class ToyServer {
 public:
  struct Settings {
    std::string address = "127.0.1.1";
    std::uint16_t port = 0;
    std::uint16_t server_port = 0;  // of the real server on the same address; 0 for none
    std::string answers_from = {};  // another local address; empty for the same
    // Called with each datagram of the console; what it appends is sent to the console at once.
    // True for passing the datagram on.
    std::function<bool(const std::string& datagram, std::vector<std::string>& answers)> receive =
        {};
  };

  // Serves until it goes.
  explicit ToyServer(Settings settings);
  ~ToyServer();
  ToyServer(const ToyServer&) = delete;
  ToyServer& operator=(const ToyServer&) = delete;

  int received() const { return received_; }  // datagrams of the console so far

 private:
  int open(const std::string& address, std::uint16_t port) const;
  void serve();
  void from_console(int socket);
  void from_server();
  void send_to_console(const std::string& datagram, const sockaddr_in& console) const;

  Settings settings_;
  int front_ = -1;
  int side_ = -1;  // answers leave here
  int back_ = -1;
  sockaddr_in last_console_{};
  std::map<std::string, sockaddr_in> consoles_;  // by activity
  std::atomic<int> received_ = 0;
  std::atomic<bool> ending_ = false;
  std::thread thread_;
};

}  // namespace endtoend
