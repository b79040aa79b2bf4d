// Endpoint inquiries over real sockets, against a mapper that is a plain socket: packets are taken
// apart and put together here, in either byte order, without the runtime's codecs.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "platform/rpc/rpc.h"
#include "tests/platform/endpoint_map_bytes.h"

namespace {

using endpoint_map::lookup_reply;
using endpoint_map::Octets;
using endpoint_map::udp_tower;

constexpr std::size_t kHeaderSize = 80;
constexpr unsigned kRequest = 0;
constexpr unsigned kResponse = 2;
constexpr unsigned kReject = 6;
constexpr unsigned kLookup = 2;
constexpr unsigned kHandleFree = 4;

unsigned octet_at(const Octets& octets, std::size_t at) {
  return std::to_integer<unsigned>(octets.at(at));
}

struct Answer {
  unsigned type = kResponse;
  Octets body;
};

// Answers requests (little-endian, as the runtime sends them) in a thread of its own.
class ToyMapper {
 public:
  // What to answer to the request for `opnum`, the `count`th of its kind (from 1). An empty answer
  // is none.
  using Script = std::function<std::vector<Answer>(unsigned opnum, unsigned count)>;

  ToyMapper(bool little_endian, Script script)
      : little_endian_(little_endian), script_(std::move(script)) {
    socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(socket_, generic, size) != 0 || getsockname(socket_, generic, &size) != 0)
      ADD_FAILURE() << "no socket for the mapper";
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }

  ~ToyMapper() { stop(); }

  void stop() {
    if (!thread_.joinable())
      return;
    stopped_ = true;
    thread_.join();
    close(socket_);
  }

  std::string binding() const { return "ncadg_ip_udp:127.0.0.1[" + std::to_string(port_) + "]"; }
  unsigned requests(unsigned opnum) const { return requests_[opnum]; }

 private:
  void serve() {
    while (!stopped_) {
      pollfd waiting{socket_, POLLIN, 0};
      if (poll(&waiting, 1, 20) != 1)
        continue;
      Octets packet(2048);
      sockaddr_in from{};
      socklen_t size = sizeof from;
      auto* const sender = reinterpret_cast<sockaddr*>(&from);
      const ssize_t got = recvfrom(socket_, packet.data(), packet.size(), 0, sender, &size);
      if (got < static_cast<ssize_t>(kHeaderSize) || octet_at(packet, 1) != kRequest)
        continue;
      const unsigned opnum = octet_at(packet, 68);
      if (opnum >= requests_.size())
        continue;
      for (const Answer& answer : script_(opnum, ++requests_[opnum])) {
        const Octets reply = reply_to(packet, answer);
        sendto(socket_, reply.data(), reply.size(), 0, sender, size);
      }
    }
  }

  Octets reply_to(const Octets& request, const Answer& answer) const {
    Octets reply(request.begin(), request.begin() + kHeaderSize);
    reply[1] = static_cast<std::byte>(answer.type);
    reply[2] = std::byte{0x08};
    reply[4] = static_cast<std::byte>(little_endian_ ? 0x10 : 0x00);
    const endpoint_map::Body boot = endpoint_map::Body(little_endian_).u32(0x67456A12);
    std::copy(boot.bytes().begin(), boot.bytes().end(), reply.begin() + 56);
    if (!little_endian_) {
      for (const std::size_t uuid : {8, 24, 40}) {
        swap(reply, uuid, 4);
        swap(reply, uuid + 4, 2);
        swap(reply, uuid + 6, 2);
      }
      for (const std::size_t number : {60, 64})
        swap(reply, number, 4);
      for (const std::size_t number : {68, 70, 72, 76})
        swap(reply, number, 2);
    }
    const auto length =
        endpoint_map::Body(little_endian_).u16(static_cast<unsigned>(answer.body.size())).bytes();
    std::copy(length.begin(), length.end(), reply.begin() + 74);
    reply.insert(reply.end(), answer.body.begin(), answer.body.end());
    return reply;
  }

  static void swap(Octets& octets, std::size_t at, std::ptrdiff_t size) {
    const auto first = octets.begin() + static_cast<std::ptrdiff_t>(at);
    std::reverse(first, first + size);
  }

  bool little_endian_;
  Script script_;
  int socket_ = -1;
  unsigned port_ = 0;
  std::array<std::atomic<unsigned>, 8> requests_{};
  std::atomic<bool> stopped_ = false;
  std::thread thread_;
};

class Inquiry {
 public:
  explicit Inquiry(const std::string& mapper) {
    EXPECT_EQ(RpcBindingFromStringBindingA(mapper.c_str(), &binding_), RPC_S_OK);
    EXPECT_EQ(RpcMgmtSetComTimeout(binding_, 0), RPC_S_OK);
    EXPECT_EQ(RpcMgmtEpEltInqBegin(binding_, RPC_C_EP_ALL_ELTS, nullptr, 0, nullptr, &inquiry_),
              RPC_S_OK);
  }
  ~Inquiry() {
    EXPECT_EQ(RpcMgmtEpEltInqDone(&inquiry_), RPC_S_OK);
    EXPECT_EQ(RpcBindingFree(&binding_), RPC_S_OK);
  }
  RPC_STATUS next(std::string* text) {
    rpc_if_id_t id{};
    RPC_BINDING_HANDLE element = nullptr;
    const RPC_STATUS status = RpcMgmtEpEltInqNextA(inquiry_, &id, &element, nullptr, nullptr);
    if (status != RPC_S_OK)
      return status;
    char* written = nullptr;
    EXPECT_EQ(RpcBindingToStringBindingA(element, &written), RPC_S_OK);
    *text = written;
    RpcStringFreeA(&written);
    RpcBindingFree(&element);
    return status;
  }

 private:
  RPC_BINDING_HANDLE binding_ = nullptr;
  RPC_EP_INQ_HANDLE inquiry_ = nullptr;
};

TEST(EndpointInquirySocket, WalksAMapOfTwoBatchesInEitherByteOrder) {
  for (const bool little_endian : {true, false}) {
    ToyMapper mapper(little_endian, [&](unsigned, unsigned count) -> std::vector<Answer> {
      if (count == 1)
        return {{kResponse,
                 lookup_reply(little_endian, 5, {{0, udp_tower(10, 1, 2, 3, 1045), "a"}}, 0)}};
      return {
          {kResponse, lookup_reply(little_endian, 0, {{0, udp_tower(0, 0, 0, 0, 1046), "b"}}, 0)}};
    });
    Inquiry inquiry(mapper.binding());
    std::string text;
    ASSERT_EQ(inquiry.next(&text), RPC_S_OK);
    EXPECT_EQ(text, "ncadg_ip_udp:10.1.2.3[1045]");
    ASSERT_EQ(inquiry.next(&text), RPC_S_OK);
    EXPECT_EQ(text, "ncadg_ip_udp:127.0.0.1[1046]");
    EXPECT_EQ(inquiry.next(&text), RPC_X_NO_MORE_ENTRIES);
    EXPECT_EQ(mapper.requests(kLookup), 2u);
    EXPECT_EQ(mapper.requests(kHandleFree), 0u);
  }
}

TEST(EndpointInquirySocket, GivesTheCursorBack) {
  ToyMapper mapper(false, [](unsigned opnum, unsigned) -> std::vector<Answer> {
    if (opnum == kHandleFree)
      return {{kResponse, endpoint_map::free_reply(false)}};
    return {{kResponse, lookup_reply(false, 5, {{0, udp_tower(10, 1, 2, 3, 1045), "a"}}, 0)}};
  });
  {
    Inquiry inquiry(mapper.binding());
    std::string text;
    ASSERT_EQ(inquiry.next(&text), RPC_S_OK);
  }
  EXPECT_EQ(mapper.requests(kLookup), 1u);
  EXPECT_EQ(mapper.requests(kHandleFree), 1u);
}

TEST(EndpointInquirySocket, SilentLostAndDeadMappersAreCommunicationFailures) {
  std::string text;
  ToyMapper silent(true, [](unsigned, unsigned) { return std::vector<Answer>{}; });
  EXPECT_EQ(Inquiry(silent.binding()).next(&text), RPC_S_COMM_FAILURE);

  ToyMapper lost(true, [](unsigned, unsigned count) -> std::vector<Answer> {
    if (count > 1)
      return {};
    return {{kResponse, lookup_reply(true, 5, {{0, udp_tower(10, 1, 2, 3, 1045), "a"}}, 0)}};
  });
  {
    Inquiry inquiry(lost.binding());
    ASSERT_EQ(inquiry.next(&text), RPC_S_OK);
    EXPECT_EQ(inquiry.next(&text), RPC_S_COMM_FAILURE);
  }
  EXPECT_EQ(lost.requests(kHandleFree), 0u);

  // A port that is known to be closed says so at once.
  silent.stop();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Inquiry(silent.binding()).next(&text), RPC_S_COMM_FAILURE);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
}

TEST(EndpointInquirySocket, RejectOfTheInterfaceIsItsOwnStatus) {
  for (const bool little_endian : {true, false}) {
    ToyMapper mapper(little_endian, [&](unsigned, unsigned) -> std::vector<Answer> {
      return {{kReject, endpoint_map::Body(little_endian).u32(0x1C010003).bytes()}};
    });
    std::string text;
    EXPECT_EQ(Inquiry(mapper.binding()).next(&text), RPC_S_UNKNOWN_IF);
  }
}

}  // namespace
