// SPDX-License-Identifier: Apache-2.0
#include "bench/far_network.h"

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "bench/measure.h"

namespace bench {
namespace {

constexpr char kDevice[] = "far0";

// A device in this thread's namespace, with the routes that the `ip` commands make.
int device(const std::string& routes) {
  const int made = ::open("/dev/net/tun", O_RDWR | O_CLOEXEC | O_NONBLOCK);
  ifreq request{};
  request.ifr_flags = IFF_TUN | IFF_NO_PI;
  std::strcpy(request.ifr_name, kDevice);
  require(made >= 0 && ::ioctl(made, TUNSETIFF, &request) == 0, "no tun device can be made");
  const std::string commands =
      "ip link set lo up && ip link set far0 txqueuelen 10000 up && " + routes;
  require(std::system(commands.c_str()) == 0, "no routes to the far network");
  return made;
}

int this_namespace() {
  return ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
}

// Whether an IPv4 packet goes to 10.128.0.0/9.
bool to_nobody(const std::vector<std::byte>& packet) {
  constexpr std::size_t kDestinationAt = 16;
  return packet.size() < kDestinationAt + 4 || packet[kDestinationAt] != std::byte{10} ||
         (packet[kDestinationAt + 1] & std::byte{0x80}) != std::byte{0};
}

}  // namespace

FarNetwork::FarNetwork(std::chrono::milliseconds round_trip) : way_(round_trip / 2) {
  here_namespace_ = this_namespace();
  here_ = device(
      "ip address add 192.0.2.1/32 dev far0 && ip route add 10.0.0.0/8 dev far0 "
      "src 192.0.2.1");
  require(::unshare(CLONE_NEWNET) == 0, "no second network namespace");
  far_namespace_ = this_namespace();
  far_ = device("ip route add local 10.0.0.0/9 dev lo && ip route add 192.0.2.1 dev far0");
  require(::setns(here_namespace_, CLONE_NEWNET) == 0, "no way back");
  outward_ = std::thread([this] { carry(here_, far_); });
  homeward_ = std::thread([this] { carry(far_, here_); });
}

FarNetwork::~FarNetwork() {
  ended_ = true;
  outward_.join();
  homeward_.join();
  for (const int each : {here_, far_, here_namespace_, far_namespace_})
    ::close(each);
}

void FarNetwork::there(const std::function<void()>& work) const {
  require(::setns(far_namespace_, CLONE_NEWNET) == 0, "no way to the far network");
  work();
  require(::setns(here_namespace_, CLONE_NEWNET) == 0, "no way back");
}

void FarNetwork::carry(int from, int to) const {
  using Clock = std::chrono::steady_clock;
  struct Packet {
    Clock::time_point due;
    std::vector<std::byte> octets;
  };
  std::deque<Packet> on_the_way;
  std::array<std::byte, 65536> buffer;
  while (!ended_) {
    constexpr std::chrono::nanoseconds kLook{100'000'000};
    std::chrono::nanoseconds wait = kLook;
    if (!on_the_way.empty())
      wait = std::max(std::chrono::nanoseconds(0), on_the_way.front().due - Clock::now());
    const timespec limit{0, static_cast<long>(std::min(wait, kLook).count() % 1'000'000'000)};
    pollfd entry{from, POLLIN, 0};
    ::ppoll(&entry, 1, &limit, nullptr);
    ssize_t count = 0;
    while ((count = ::read(from, buffer.data(), buffer.size())) > 0) {
      Packet packet{Clock::now() + way_, {buffer.begin(), buffer.begin() + count}};
      if (!to_nobody(packet.octets) || from != here_)
        on_the_way.push_back(std::move(packet));
    }
    for (; !on_the_way.empty() && on_the_way.front().due <= Clock::now(); on_the_way.pop_front())
      static_cast<void>(
          !::write(to, on_the_way.front().octets.data(), on_the_way.front().octets.size()));
  }
}

}  // namespace bench
