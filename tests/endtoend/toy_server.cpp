// SPDX-License-Identifier: Apache-2.0
#include "tests/endtoend/toy_server.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <stdexcept>

namespace endtoend {
namespace {

// afa8bd80-7d8a-11c9-bef4-08002b102989, little-endian.
constexpr std::string_view kManagement(
    "\x80\xbd\xa8\xaf\x8a\x7d\xc9\x11\xbe\xf4\x08\x00\x2b\x10\x29\x89", 16);
constexpr int kPollMilliseconds = 20;

sockaddr_in address_of(const std::string& text, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  ::inet_pton(AF_INET, text.c_str(), &address.sin_addr);
  return address;
}

}  // namespace

PacketType type_of(std::string_view datagram) {
  return static_cast<PacketType>(datagram.at(Header::kType));
}

void put_number(std::string& datagram, std::size_t at, std::uint32_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    datagram.at(at + i) = static_cast<char>(value >> (8 * i) & 0xFF);
}

std::string packet_for(std::string_view datagram, PacketType type, std::string_view body) {
  constexpr std::uint32_t kBootTime = 0x60000000;
  std::string packet(datagram.substr(0, Header::kSize));
  packet.at(Header::kType) = static_cast<char>(type);
  packet.at(Header::kFlags1) = 0;
  packet.at(Header::kFlags2) = 0;
  put_number(packet, Header::kBoot, kBootTime, 4);
  put_number(packet, Header::kLength, static_cast<std::uint32_t>(body.size()), 2);
  put_number(packet, Header::kFragment, 0, 2);
  return packet + std::string(body);
}

bool is_for_management(std::string_view datagram) {
  return datagram.substr(Header::kInterface, kManagement.size()) == kManagement;
}

ToyServer::ToyServer(Settings settings) : settings_(std::move(settings)) {
  front_ = open(settings_.address, settings_.port);
  side_ = settings_.answers_from.empty() ? front_ : open(settings_.answers_from, settings_.port);
  if (settings_.server_port != 0) {
    back_ = open(settings_.address, 0);
    const sockaddr_in server = address_of(settings_.address, settings_.server_port);
    ::connect(back_, reinterpret_cast<const sockaddr*>(&server), sizeof server);
  }
  thread_ = std::thread([this] { serve(); });
}

ToyServer::~ToyServer() {
  ending_ = true;
  thread_.join();
  ::close(front_);
  if (side_ != front_)
    ::close(side_);
  if (back_ >= 0)
    ::close(back_);
}

int ToyServer::open(const std::string& address, std::uint16_t port) const {
  const int result = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in local = address_of(address, port);
  if (::bind(result, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0)
    throw std::runtime_error("cannot bind " + address + ":" + std::to_string(port));
  return result;
}

void ToyServer::serve() {
  while (!ending_) {
    std::array<pollfd, 3> waiting = {
        {{front_, POLLIN, 0}, {back_, POLLIN, 0}, {side_ == front_ ? -1 : side_, POLLIN, 0}}};
    ::poll(waiting.data(), waiting.size(), kPollMilliseconds);
    if ((waiting[0].revents & POLLIN) != 0)
      from_console(front_);
    if ((waiting[1].revents & POLLIN) != 0)
      from_server();
    if ((waiting[2].revents & POLLIN) != 0)
      from_console(side_);
  }
}

void ToyServer::from_console(int socket) {
  std::array<char, 65536> buffer{};
  sockaddr_in console{};
  socklen_t size = sizeof console;
  const ssize_t length = ::recvfrom(socket, buffer.data(), buffer.size(), MSG_DONTWAIT,
                                    reinterpret_cast<sockaddr*>(&console), &size);
  if (length < static_cast<ssize_t>(Header::kSize))
    return;
  ++received_;
  const std::string datagram(buffer.data(), static_cast<std::size_t>(length));
  last_console_ = console;
  if (type_of(datagram) != kResponse)
    consoles_[datagram.substr(Header::kActivity, 16)] = console;
  bool pass_on = true;
  if (settings_.receive) {
    std::vector<std::string> answers;
    pass_on = settings_.receive(datagram, answers);
    for (const std::string& answer : answers)
      send_to_console(answer, console);
  }
  if (pass_on && back_ >= 0)
    ::send(back_, datagram.data(), datagram.size(), MSG_DONTWAIT);
}

void ToyServer::from_server() {
  std::array<char, 65536> buffer{};
  const ssize_t length = ::recv(back_, buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (length < static_cast<ssize_t>(Header::kSize))
    return;
  std::string datagram(buffer.data(), static_cast<std::size_t>(length));
  const auto found = consoles_.find(datagram.substr(Header::kActivity, 16));
  // A call-back has an activity of its own; it concerns the call that was passed on last.
  send_to_console(datagram, found != consoles_.end() ? found->second : last_console_);
}

void ToyServer::send_to_console(const std::string& datagram, const sockaddr_in& console) const {
  ::sendto(side_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&console),
           sizeof console);
}

}  // namespace endtoend
