// SPDX-License-Identifier: Apache-2.0
// The location broker's client: the bytes of its packets, and its behaviour towards a toy broker on
// a real TCP connection.

#include "shared/dce/hublnk_client.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/rpc/rpc.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using namespace std::chrono_literals;

std::span<std::byte> writable(Bytes& bytes) {
  return std::as_writable_bytes(std::span(bytes));
}
std::span<const std::byte> readable(const Bytes& bytes) {
  return std::as_bytes(std::span(bytes));
}

// A reply of two words; later changes make it a bad one.
Bytes version_reply(std::uint8_t major, std::uint8_t minor) {
  Bytes reply(32);
  reply[1] = 'H', reply[2] = 'X', reply[3] = 'A';
  reply[5] = 32;  // length
  reply[7] = 2;   // words
  reply[27] = major;
  reply[29] = minor;
  return reply;
}

// What the toy broker does after it has read a request: sends the pieces with a pause before each,
// then closes or resets the connection, or holds it open until the client is done.
struct Script {
  std::vector<Bytes> pieces;
  std::chrono::milliseconds pause = 0ms;
  enum { kClose, kReset, kHold } end = kHold;
};

class ToyBroker {
 public:
  explicit ToyBroker(Script script) {
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = sockets::inet_addr("127.0.0.1");
    socklen_t size = sizeof address;
    EXPECT_EQ(0, ::bind(listener_, reinterpret_cast<sockaddr*>(&address), size));
    EXPECT_EQ(0, ::listen(listener_, 1));
    EXPECT_EQ(0, ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size));
    client_ = sockets::socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(0, sockets::connect(client_, address));
    broker_ = std::thread([this, script = std::move(script)] { serve(script); });
  }
  ~ToyBroker() {
    std::uint32_t status = 0;
    hublnk_Close(client_, &status);
    broker_.join();
    ::close(listener_);
  }

  sockets::Socket client() const { return client_; }
  // What the broker received; whole once the client has had its reply.
  const Bytes& request() const { return request_; }

 private:
  void serve(const Script& script) {
    const int peer = ::accept(listener_, nullptr, nullptr);
    Bytes buffer(kHublnkBufferSize);
    const auto count = ::recv(peer, buffer.data(), buffer.size(), 0);
    request_.assign(buffer.begin(), buffer.begin() + std::max<ssize_t>(count, 0));
    for (const Bytes& piece : script.pieces) {
      std::this_thread::sleep_for(script.pause);
      if (::send(peer, piece.data(), piece.size(), MSG_NOSIGNAL) < 0)
        break;
    }
    if (script.end == Script::kReset) {
      const linger abort{1, 0};
      ::setsockopt(peer, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    } else if (script.end == Script::kHold) {
      while (::recv(peer, buffer.data(), buffer.size(), 0) > 0) {
      }
    }
    ::close(peer);
  }

  int listener_ = -1;
  sockets::Socket client_ = sockets::kInvalidSocket;
  Bytes request_;
  std::thread broker_;
};

std::vector<Bytes> cut(const Bytes& packet, std::size_t size) {
  std::vector<Bytes> pieces;
  for (std::size_t at = 0; at < packet.size(); at += size)
    pieces.emplace_back(
        packet.begin() + static_cast<std::ptrdiff_t>(at),
        packet.begin() + static_cast<std::ptrdiff_t>(std::min(at + size, packet.size())));
  return pieces;
}

TEST(HublnkPacket, NegotiateRequestIsTwentyEightBytes) {
  HXMessage_t message{};
  std::memcpy(message.fHxmbIdf, "\0HXA", 4);
  Bytes buffer(kHublnkBufferSize, 0xEE);
  std::size_t length = 0;
  std::uint32_t status = 1;
  ASSERT_EQ(1, MarshallHublnkPacket(message, writable(buffer), &length, &status));
  Bytes expected{0x00, 0x48, 0x58, 0x41, 0x00, 0x1C, 0x00, 0x00, 0x00, 0x00};
  expected.resize(28);
  buffer.resize(length);
  EXPECT_EQ(expected, buffer);
  EXPECT_EQ(0U, status);
}

TEST(HublnkPacket, FieldsStandInNetworkOrderAndComeBack) {
  Bytes data{1, 2, 3, 4, 5};
  HXMessage_t message{};
  std::memcpy(message.fHxmbIdf, "\0HXA", 4);
  message.fHxmbCom = 5;
  message.fHxmbWct = 2;
  message.fHxmbErr = 0x0102;
  message.fHxmbRes[7] = 0x0A0B;
  message.fHxmbParms[0] = 0x1122;
  message.fHxmbParms[1] = 0x3344;
  message.fHxmbParms[2] = 0x5566;  // does not travel
  message.fHxmbBcc = 5;
  message.fHxmbData = data.data();
  Bytes buffer(kHublnkBufferSize);
  std::size_t length = 0;
  std::uint32_t status = 1;
  ASSERT_EQ(1, MarshallHublnkPacket(message, writable(buffer), &length, &status));
  Bytes expected{0, 'H', 'X', 'A', 0, 37, 5, 2, 1, 2};
  expected.resize(24);
  for (const int byte : {0x0A, 0x0B, 0x11, 0x22, 0x33, 0x44, 0, 5, 1, 2, 3, 4, 5})
    expected.push_back(static_cast<std::uint8_t>(byte));
  buffer.resize(length);
  EXPECT_EQ(expected, buffer);

  Bytes received(kHublnkBufferSize);
  HXMessage_t copy{};
  copy.fHxmbParms[2] = 0x7788;
  copy.fHxmbData = received.data();
  ASSERT_EQ(1, UnmarshallHublnkPacket(copy, readable(buffer), &status));
  EXPECT_EQ(37, copy.fHxmbLen);
  EXPECT_EQ(0x0102, copy.fHxmbErr);
  EXPECT_EQ(0x0A0B, copy.fHxmbRes[7]);
  EXPECT_EQ(0x3344, copy.fHxmbParms[1]);
  EXPECT_EQ(0x7788, copy.fHxmbParms[2]);
  EXPECT_TRUE(std::equal(data.begin(), data.end(), received.begin()));
}

TEST(HublnkPacket, RefusesLengthsThatDoNotAddUp) {
  struct Case {
    const char* name;
    std::size_t offset;
    std::uint8_t value;
  };
  const Case cases[] = {
      {"nine words", 7, 9},
      {"words beyond the packet", 7, 4},
      {"length one too small", 5, 31},
      {"length one too large", 5, 33},
      {"length above the buffer", 4, 0x40},
      {"data that is not there", 31, 1},
      {"most data", 30, 0xFF},
  };
  for (const Case& test : cases) {
    Bytes reply = version_reply(2, 0);
    reply[test.offset] = test.value;
    Bytes data(kHublnkBufferSize);
    HXMessage_t message{};
    message.fHxmbData = data.data();
    std::uint32_t status = 0;
    EXPECT_EQ(0, UnmarshallHublnkPacket(message, readable(reply), &status)) << test.name;
    EXPECT_EQ(10022U, status) << test.name;
  }
  for (std::size_t size = 0; size < 32; ++size) {
    Bytes reply = version_reply(2, 0);
    reply.resize(size);
    HXMessage_t message{};
    std::uint32_t status = 0;
    EXPECT_EQ(0, UnmarshallHublnkPacket(message, readable(reply), &status)) << size;
  }
}

TEST(HublnkNegotiate, TellsWhatTheBrokerDid) {
  Bytes with_status = version_reply(2, 1);
  with_status[9] = 77;
  Bytes no_words(28);
  no_words[5] = 28;
  Bytes short_length = version_reply(2, 0);
  short_length[5] = 27;
  Bytes long_length = version_reply(2, 0);
  long_length[4] = 0x40, long_length[5] = 0x01;  // 16385
  Bytes half = version_reply(2, 0);
  half.resize(20);
  Bytes beyond = version_reply(3, 4);
  beyond.insert(beyond.end(), 5, 0xEE);

  struct Case {
    const char* name;
    Script script;
    int result;
    std::uint32_t status;
    std::uint16_t major, minor;
  };
  const Case cases[] = {
      {"whole reply", {{version_reply(2, 0)}}, 1, 0, 2, 0},
      {"byte by byte", {cut(version_reply(2, 5), 1), 1ms}, 1, 0, 2, 5},
      {"in three pieces", {cut(version_reply(2, 5), 11), 2ms}, 1, 0, 2, 5},
      {"bytes behind the reply", {{beyond}}, 1, 0, 3, 4},
      {"status word", {{with_status}}, 1, 77, 2, 1},
      {"no words", {{no_words}}, 1, 0, 0, 0},
      {"closed at once", {{}, 0ms, Script::kClose}, 1, 0, 1, 0},
      {"reset at once", {{}, 0ms, Script::kReset}, 1, 0, 1, 0},
      {"closed within the reply", {{half}, 0ms, Script::kClose}, 0, 10054, 9, 9},
      {"closed within the length",
       {{Bytes{0, 'H', 'X', 'A', 0}}, 0ms, Script::kClose},
       0,
       10054,
       9,
       9},
      {"length below the header", {{short_length}}, 0, 10022, 9, 9},
      {"length above the buffer", {{long_length}}, 0, 10022, 9, 9},
  };
  for (const Case& test : cases) {
    const ToyBroker broker(test.script);
    std::uint16_t major = 9, minor = 9;
    std::uint32_t status = 99;
    EXPECT_EQ(test.result, hublnk_Negotiate(broker.client(), &major, &minor, &status)) << test.name;
    EXPECT_EQ(test.status, status) << test.name;
    EXPECT_EQ(test.major, major) << test.name;
    EXPECT_EQ(test.minor, minor) << test.name;
  }
}

TEST(HublnkNegotiate, GivesUpOnTheWholeReplyAndNotOnEachByte) {
  const Script cases[] = {
      {{}},                                  // silent
      {cut(version_reply(2, 0), 1), 150ms},  // a byte now and then
  };
  for (const Script& script : cases) {
    const ToyBroker broker(script);
    std::uint16_t major = 0, minor = 0;
    std::uint32_t status = 0;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, hublnk_Negotiate(broker.client(), &major, &minor, &status, {1s, 1s}));
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(10060U, status);
    EXPECT_GE(waited, 900ms);
    EXPECT_LE(waited, 3s);
  }
}

uuid_t server_type() {
  uuid_t uuid{};
  EXPECT_EQ(0U, UuidFromStringA("5b3c82a0-17e4-0000-020a-141e28000000", &uuid));
  return uuid;
}

TEST(HublnkRegister, SendsItemsAndReadsTheObjectIdentifier) {
  const std::string object = "2f0c8a1e-90b2-11ef-8a3c-0242ac110002";
  Bytes reply(28);
  reply[27] = static_cast<std::uint8_t>(object.size() + 2);
  reply[5] = static_cast<std::uint8_t>(28 + object.size() + 2);
  reply.push_back(2);
  reply.insert(reply.end(), object.begin(), object.end());
  reply.push_back(0);

  const ToyBroker broker({{reply}});
  uuid_t assigned{};
  std::uint32_t status = 99;
  ASSERT_EQ(1, hublnk_RegisterServer(broker.client(), server_type(), "rep_server", "/opt",
                                     &assigned, &status));
  EXPECT_EQ(0U, status);
  uuid_t expected{};
  UuidFromStringA(object.c_str(), &expected);
  EXPECT_EQ(expected, assigned);

  const std::string items = std::string("\x02") + "5b3c82a0-17e4-0000-020a-141e28000000" + '\0' +
                            "\x02rep_server" + '\0' + "\x02/opt" + '\0';
  ASSERT_EQ(56U, items.size());
  const Bytes& request = broker.request();
  ASSERT_EQ(84U, request.size());
  EXPECT_EQ(5, request[6]);
  EXPECT_EQ(56, request[27]);
  EXPECT_EQ(items, std::string(request.begin() + 28, request.end()));
}

TEST(HublnkCommands, ReportStatusesOfTheirOwn) {
  uuid_t object{};
  std::uint32_t status = 0;
  Bytes refused(28);
  refused[5] = 28, refused[9] = 3;
  Bytes empty(28);
  empty[5] = 28;
  const Script closing{{}, 0ms, Script::kClose};
  const auto activate = [&](sockets::Socket fd) {
    return hublnk_ActivateServer(fd, server_type(), "x", &object, &status);
  };
  const struct {
    int command;
    Script script;
    std::function<unsigned char(sockets::Socket)> call;
    std::uint32_t status;
  } cases[] = {
      {2, closing, activate, 9},
      // Success without an object identifier: the parse of what is not there decides.
      {2, {{empty}}, activate, 1705},
      {6,
       {{refused}},
       [&](auto fd) { return hublnk_UnregisterServer(fd, server_type(), "x", &status); },
       3},
      {3, closing,
       [&](auto fd) { return hublnk_DeactivateServer(fd, server_type(), "x", &status); }, 9},
      {1, closing, [&](auto fd) { return hublnk_Shutdown(fd, &status); }, 9},
  };
  for (const auto& each : cases) {
    const ToyBroker broker(each.script);
    EXPECT_EQ(1, each.call(broker.client()));
    EXPECT_EQ(each.status, status) << each.command;
    EXPECT_EQ(each.command, broker.request()[6]);
    EXPECT_TRUE(each.command != 1 || broker.request().size() == 28U);
  }
  const std::string huge(kHublnkBufferSize, 'p');
  EXPECT_EQ(0, hublnk_RegisterServer(sockets::kInvalidSocket, server_type(), "x", huge.c_str(),
                                     &object, &status));
  EXPECT_EQ(10022U, status);
  EXPECT_EQ(0, hublnk_LookupServer(0, server_type(), nullptr, 0, nullptr, nullptr, &status));
  EXPECT_EQ(8U, status);
}

TEST(HublnkOpen, RefusedConnectionGivesTheSocketError) {
  sockets::Socket fd = 0;
  std::uint32_t status = 0;
  EXPECT_EQ(0, hublnk_Open("no such host", &fd, &status));
  EXPECT_EQ(11001U, status);
  EXPECT_EQ(0, hublnk_Open("127.213.7.9", &fd, &status));
  EXPECT_EQ(10061U, status);
  EXPECT_EQ(sockets::kInvalidSocket, fd);
}

}  // namespace
