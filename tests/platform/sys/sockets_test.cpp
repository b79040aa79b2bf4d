// SPDX-License-Identifier: Apache-2.0
#include "platform/sys/sockets.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/sys/network_files.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = sockets::htons(port);
  address.sin_addr.s_addr = sockets::inet_addr("127.0.0.1");
  return address;
}

// A listening socket on a port of the system's choice.
class Listener {
 public:
  explicit Listener(int backlog = 8) : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
    address_ = loopback(0);
    socklen_t size = sizeof(address_);
    auto* const address = reinterpret_cast<sockaddr*>(&address_);
    if (::bind(socket_, address, size) < 0 || ::listen(socket_, backlog) < 0 ||
        ::getsockname(socket_, address, &size) < 0)
      throw std::runtime_error(std::strerror(errno));
  }
  ~Listener() { ::close(socket_); }
  const sockaddr_in& address() const { return address_; }
  int accept() const { return ::accept(socket_, nullptr, nullptr); }

 private:
  int socket_;
  sockaddr_in address_{};
};

// Both ends of a connection; `ours` was made by the calls under test.
class Connected : public testing::Test {
 protected:
  Connected() : ours(sockets::socket(AF_INET, SOCK_STREAM, 0)) {
    EXPECT_EQ(sockets::connect(ours, listener.address()), 0);
    theirs = listener.accept();
  }
  ~Connected() override {
    sockets::closesocket(ours);
    close_peer();
  }
  void close_peer() {
    if (theirs >= 0)
      ::close(theirs);
    theirs = -1;
  }
  void reset_by_peer() {
    const linger at_once{1, 0};
    ::setsockopt(theirs, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
    close_peer();
  }

  Listener listener;
  sockets::Socket ours;
  int theirs = -1;
  std::array<std::byte, 64> buffer{};
};

TEST(InetAddr, TakesTheClassicForms) {
  const struct {
    const char* text;
    std::uint32_t host_order;
  } cases[] = {
      {"10.1.2.3", 0x0A010203},   {"0.0.0.0", 0},
      {"127.1", 0x7F000001},      {"10.1.515", 0x0A010203},
      {"167838211", 0x0A010203},  {"0x0a.1.2.0x3", 0x0A010203},
      {"012.1.2.3", 0x0A010203},  {"192.168.1.10", 0xC0A8010A},
      {"0xFFFFFFFE", 0xFFFFFFFE}, {"255.255.255.255", 0xFFFFFFFF},
  };
  for (const auto& c : cases)
    EXPECT_EQ(sockets::inet_addr(c.text), ::htonl(c.host_order)) << c.text;
}

TEST(InetAddr, RefusesWhatIsNoAddress) {
  const std::vector<const char*> cases[] = {
      {"", " ", "host", "1a", "0x", "1.0xg", "08.1.1.1", "-1", "+1"},  // no numbers
      {".1", "10..2.3", "10.1.2.", "10.1.2.3.4"},                      // wrong count
      {"256.1.1.1", "1.2.3.256", "1.2.65536", "1.16777216"},           // a part too large
      {"4294967296", "99999999999999999999"},                          // all too large
      {"10.1.2.3 ", " 10.1.2.3", "10.1.2.3 x", "1.2.3.4\n"},           // more around it
  };
  for (const auto& texts : cases)
    for (const char* text : texts)
      EXPECT_EQ(sockets::inet_addr(text), sockets::kNoAddress) << '"' << text << '"';
  EXPECT_EQ(sockets::inet_addr(nullptr), sockets::kNoAddress);
}

TEST(Lookup, FindsLocalhostBothWays) {
  const auto by_name = sockets::gethostbyname("localhost");
  ASSERT_TRUE(by_name);
  EXPECT_EQ(by_name->h_addr_list.front(), sockets::inet_addr("127.0.0.1"));
  const auto by_address = sockets::gethostbyaddr(sockets::inet_addr("127.0.0.1"));
  ASSERT_TRUE(by_address);
  EXPECT_EQ(by_address->h_name, "localhost");
}

TEST(Lookup, RefusesNamesThatNoHostCanHave) {
  const std::string too_long(256, 'a');
  for (const char* name : {"", too_long.c_str(), static_cast<const char*>(nullptr)}) {
    EXPECT_FALSE(sockets::gethostbyname(name));
    EXPECT_EQ(sockets::WSAGetLastError(), sockets::WSAHOST_NOT_FOUND);
  }
}

// What the C library would say; where it alone can know, the files settle nothing.
TEST(Lookup, FilesSettleWhatIsBeyondDoubt) {
  constexpr const char* kHosts =
      "10.1.2.3 one.example one # two\n\t::ffff:10.1.2.4 mapped\n::1 looped\nfe80::1 longer\n"
      "10.1.2.5 twice\n10.1.2.6 other twice\n10.1.2.3 second\nno.address word\n10.1.2.7\n";
  constexpr const char* kServices =
      "first 5/tcp alias # comment\nfirst 6/udp\nbroken x/tcp\nlarge 65536/tcp\nlast 7/tcp";
  constexpr std::pair<const char*, const char*> kAddresses[] = {{"ONE", "10.1.2.3"},
                                                                {"one.example", "10.1.2.3"},
                                                                {"mapped", "10.1.2.4"},
                                                                {"looped", "127.0.0.1"},
                                                                {"two", ""},
                                                                {"twice", ""},
                                                                {"longer", ""},
                                                                {"word", ""}};
  constexpr std::pair<const char*, int> kPorts[] = {{"first", 5}, {"alias", 5}, {"last", 7}};
  struct Row {
    const char* switches;
    bool hosts, services;     // settled by the files
    std::optional<int> lack;  // the port of a service that the file lacks
  };
  const Row rows[] = {
      {"hosts: files\nservices: files\n", true, true, 0},
      {"hosts:\tfiles dns # x\nservices: files sss\n", true, true, std::nullopt},
      {"hosts: dns files\nservices: sss files\n", false, false, std::nullopt},
      {"hosts: files [success=continue] dns\nservices: files\n", false, true, 0},
      {"hosts: files\nhosts: dns\nservices: files\n", false, true, 0},
      {"", false, false, std::nullopt},
  };
  const std::string folder = testing::TempDir() + "network_files/";
  std::filesystem::create_directories(folder);
  const auto write = [&folder](const char* name, const char* text) {
    std::ofstream(folder + name) << text;
  };
  write("hosts", kHosts);
  write("services", kServices);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.switches);
    write("nsswitch.conf", row.switches);
    const sys::NetworkFiles files(folder);
    for (const auto& [name, address] : kAddresses) {
      const auto found = files.host_named(name);
      ASSERT_EQ(found.has_value(), row.hosts && *address != '\0') << name;
      EXPECT_EQ(found ? found->address : 0, found ? sockets::inet_addr(address) : 0) << name;
    }
    const auto at = files.host_at(sockets::inet_addr("10.1.2.3"));
    EXPECT_EQ(at ? at->name : "", row.hosts ? "one.example" : "");
    EXPECT_FALSE(files.host_at(sockets::inet_addr("10.1.2.7")));
    for (const char* missing : {"5", "broken", "large", "no"})
      EXPECT_EQ(files.port_of(missing, "tcp"), row.lack) << missing;
    for (const auto& [name, port] : kPorts)
      EXPECT_EQ(files.port_of(name, "tcp").value_or(0), row.services ? port : 0) << name;
  }
}

TEST(Lookup, ServiceAndHostName) {
  EXPECT_FALSE(sockets::getservbyname("no-such-service", "tcp"));
  EXPECT_EQ(sockets::WSAGetLastError(), sockets::WSANO_DATA);

  char name[256];
  ASSERT_EQ(sockets::gethostname(name, sizeof(name)), 0);
  const int length = static_cast<int>(std::strlen(name));
  char exact[256];
  EXPECT_EQ(sockets::gethostname(exact, length + 1), 0);
  EXPECT_STREQ(exact, name);
  EXPECT_EQ(sockets::gethostname(exact, length), -1);
  EXPECT_EQ(sockets::WSAGetLastError(), sockets::WSAEFAULT);
}

TEST(Startup, TakesVersionsOneAndTwo) {
  EXPECT_EQ(sockets::WSAStartup(0x0101), 0);
  EXPECT_EQ(sockets::WSAStartup(0x0202), 0);
  EXPECT_EQ(sockets::WSAStartup(0x0100 | 3), sockets::WSAVERNOTSUPPORTED);
}

TEST(Errors, CarryTheWorkstationsNumbers) {
  const struct {
    int posix;
    int workstation;
  } cases[] = {{ECONNREFUSED, 10061}, {ETIMEDOUT, 10060},   {ECONNRESET, 10054}, {EPIPE, 10054},
               {EHOSTUNREACH, 10065}, {ENETUNREACH, 10051}, {EMFILE, 10024},     {ENOTCONN, 10057}};
  for (const auto& c : cases)
    EXPECT_EQ(sockets::workstation_error(c.posix), c.workstation) << c.posix;
}

TEST(Connect, TellsARefusal) {
  const sockaddr_in address = Listener().address();  // closed again
  const sockets::Socket socket = sockets::socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_EQ(sockets::connect(socket, address), -1);
  EXPECT_EQ(sockets::WSAGetLastError(), sockets::WSAECONNREFUSED);
  sockets::closesocket(socket);
}

TEST(Connect, GivesUpAfterItsLimit) {
  // A full backlog makes Linux drop the handshake of the next caller, like a host that is silent.
  const Listener full(0);
  std::array<int, 4> fillers{};
  for (int& filler : fillers) {
    filler = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    ::connect(filler, reinterpret_cast<const sockaddr*>(&full.address()), sizeof(sockaddr_in));
  }

  const sockets::Socket socket = sockets::socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_EQ(sockets::connect(socket, full.address(), 1s), -1);
  EXPECT_EQ(sockets::WSAGetLastError(), sockets::WSAETIMEDOUT);
  sockets::closesocket(socket);
  for (const int filler : fillers)
    ::close(filler);
}

TEST(Connect, RefusesADescriptorThatIsNoSocket) {
  EXPECT_EQ(sockets::connect(-1, loopback(1)), -1);
  EXPECT_EQ(sockets::WSAGetLastError(), sockets::WSAENOTSOCK);
  EXPECT_EQ(sockets::closesocket(-1), -1);
  EXPECT_EQ(sockets::WSAGetLastError(), sockets::WSAENOTSOCK);
}

TEST_F(Connected, LeavesTheSocketBlocking) {
  std::thread late([this] {
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(::write(theirs, "x", 1), 1);
  });
  char c = 0;
  EXPECT_EQ(::read(ours, &c, 1), 1);
  late.join();
}

TEST_F(Connected, ReceivesWhatHasArrivedAndThenTheEnd) {
  ASSERT_EQ(::write(theirs, "abc", 3), 3);
  EXPECT_EQ(sockets::recv(ours, buffer), 3);
  EXPECT_EQ(std::memcmp(buffer.data(), "abc", 3), 0);
  close_peer();
  EXPECT_EQ(sockets::recv(ours, buffer), 0);
}

TEST_F(Connected, ResetIsAnErrorAndNeverASignal) {
  reset_by_peer();
  EXPECT_EQ(sockets::recv(ours, buffer), -1);
  EXPECT_EQ(sockets::WSAGetLastError(), sockets::WSAECONNRESET);
  EXPECT_EQ(sockets::send(ours, buffer), -1);
  EXPECT_EQ(sockets::WSAGetLastError(), sockets::WSAECONNRESET);
}

TEST_F(Connected, SendDeliversMoreThanTheBuffersHold) {
  const std::vector<std::byte> bytes(8 * 1024 * 1024, std::byte{7});
  std::size_t read = 0;
  std::thread reader([this, &read, &bytes] {
    std::vector<char> part(64 * 1024);
    while (read < bytes.size()) {
      const ssize_t count = ::read(theirs, part.data(), part.size());
      if (count <= 0)
        break;
      read += static_cast<std::size_t>(count);
    }
  });
  EXPECT_EQ(sockets::send(ours, bytes, sockets::deadline_after(30s)),
            static_cast<int>(bytes.size()));
  reader.join();
  EXPECT_EQ(read, bytes.size());
}

TEST_F(Connected, SendGivesUpOnAPeerThatDoesNotRead) {
  const std::vector<std::byte> bytes(32 * 1024 * 1024);
  EXPECT_EQ(sockets::send(ours, bytes, Clock::now() + 200ms), -1);
  EXPECT_EQ(sockets::WSAGetLastError(), sockets::WSAETIMEDOUT);
}

TEST_F(Connected, AnInterruptionDoesNotEndAReceive) {
  struct sigaction action {};
  struct sigaction before {};
  static volatile sig_atomic_t interruptions = 0;
  action.sa_handler = [](int) { interruptions = interruptions + 1; };
  ASSERT_EQ(::sigaction(SIGALRM, &action, &before), 0);
  const itimerval every_20ms{{0, 20000}, {0, 20000}};
  ASSERT_EQ(::setitimer(ITIMER_REAL, &every_20ms, nullptr), 0);

  std::thread late([this] {
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(::write(theirs, "x", 1), 1);
  });
  EXPECT_EQ(sockets::recv(ours, buffer, sockets::deadline_after(10s)), 1);
  late.join();
  const itimerval off{};
  ::setitimer(ITIMER_REAL, &off, nullptr);
  ::sigaction(SIGALRM, &before, nullptr);
  EXPECT_GT(interruptions, 0);
}

}  // namespace
