// SPDX-License-Identifier: Apache-2.0
// Paths that do not carry what both ends believe they do: a client here, a router and a server in
// networks of their own. Runs inside the namespace that in_namespace.sh makes.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>

#include "platform/rpc/client/invoke.h"
#include "platform/rpc/server/event_loop.h"
#include "platform/rpc/server/server_host.h"
#include "tests/support/echo_interface.h"
#include "tests/support/rpc_bytes.h"

namespace rpc {
namespace {

constexpr std::uint32_t kServerHost = 0x0A090202;
constexpr std::uint16_t kPort = 1045;
constexpr int kMostSeconds = 60;

// A process in a network of its own. `run` begins when it is told to and calls what it is given
// when it is ready.
class Host {
 public:
  using Ready = std::function<void()>;
  explicit Host(const std::function<void(const Ready&)>& run) {
    int made[2], begin[2];
    EXPECT_EQ(0, pipe(made) | pipe(begin));
    pid_ = fork();
    if (pid_ == 0) {
      alarm(kMostSeconds);
      const auto tell = [&made] { EXPECT_EQ(1, write(made[1], "", 1)); };
      char go = 0;
      if (unshare(CLONE_NEWNET) == 0 && write(made[1], "", 1) == 1 && read(begin[0], &go, 1) == 1)
        run(tell);
      _exit(0);
    }
    begin_ = begin[1];
    heard_ = made[0];
    close(made[1]);
    close(begin[0]);
    wait();
  }
  ~Host() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    close(begin_);
    close(heard_);
  }
  void begin() const {
    EXPECT_EQ(1, write(begin_, "", 1));
    wait();
  }
  std::string number() const { return std::to_string(pid_); }
  void run(const std::string& command) const {
    const std::string whole = "nsenter -t " + number() + " -n sh -ec '" + command + "'";
    EXPECT_EQ(0, std::system(whole.c_str())) << command;
  }

 private:
  void wait() const {
    char byte = 0;
    EXPECT_EQ(1, read(heard_, &byte, 1));
  }

  pid_t pid_ = -1;
  int begin_ = -1;
  int heard_ = -1;
};

void serve(const Host::Ready& ready) {
  server::EventLoop loop;
  server::ServerHost host(loop);
  server::EchoInterface echo;
  server::EndpointOptions options;
  options.address = kServerHost;
  options.port = kPort;
  options.interfaces = {&echo};
  options.core.fragment_size = 8000;
  if (host.open(options).endpoint == nullptr)
    return;
  ready();
  loop.run();
}

struct Case {
  const char* name;
  // MTU of the interfaces from the client to the server; the router has two.
  int client, near, far, server;
  const char* router;  // what it does besides
};

class PathTest : public testing::TestWithParam<Case> {};

TEST_P(PathTest, CallsOfManyFragmentsGetThrough) {
  const Case& path = GetParam();
  const Host router([](const Host::Ready&) {});
  const Host server(serve);
  const auto veth = [](const std::string& name, int mtu, const std::string& peer, int peer_mtu,
                       const Host& peer_host) {
    return "ip link add " + name + " mtu " + std::to_string(mtu) + " type veth peer name " + peer +
           " mtu " + std::to_string(peer_mtu) + " netns " + peer_host.number();
  };
  ASSERT_EQ(0, std::system((veth("path0", path.client, "near", path.near, router) +
                            " && ip addr add 10.9.1.1/24 dev path0 && ip link set path0 up && "
                            "ip route add 10.9.2.0/24 via 10.9.1.2")
                               .c_str()));
  router.run("ip addr add 10.9.1.2/24 dev near; ip link set near up; " +
             veth("far", path.far, "server0", path.server, server) +
             "; ip addr add 10.9.2.1/24 dev far; ip link set far up; "
             "echo 1 > /proc/sys/net/ipv4/ip_forward; " +
             path.router);
  server.run(
      "ip addr add 10.9.2.2/24 dev server0; ip link set server0 up; "
      "ip route add default via 10.9.2.1");
  server.begin();
  const CallTarget target{"ncadg_ip_udp", "10.9.2.2", std::to_string(kPort), {}, 3};
  const std::vector<std::byte> body = test::pattern(50'000);
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(invoke(target, server::kChangeOperation, body, body.size()).body, body);
  EXPECT_EQ(0, std::system("ip link del path0"));
}

INSTANTIATE_TEST_SUITE_P(
    , PathTest,
    testing::Values(Case{"wide", 9000, 9000, 9000, 9000, "true"},
                    Case{"large_ones_vanish", 9000, 1500, 1500, 9000, "true"},
                    Case{"large_requests_vanish", 9000, 1500, 9000, 9000, "true"},
                    Case{"large_replies_vanish", 9000, 9000, 1500, 9000, "true"},
                    // It cuts what is too large, where it may, and tells nobody where it may not.
                    Case{"a_mute_router", 1500, 1500, 1000, 1000,
                         "ip rule add pref 0 iif lo ipproto icmp blackhole"}),
    [](const auto& path) { return std::string(path.param.name); });

}  // namespace
}  // namespace rpc
