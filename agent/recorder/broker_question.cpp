// SPDX-License-Identifier: Apache-2.0
#include "agent/recorder/broker_question.h"

#include <algorithm>
#include <span>
#include <vector>

#include "agent/broker_message.h"
#include "platform/numbers/timeout_level.h"
#include "platform/rpc/names/socket_address.h"
#include "platform/sys/sockets.h"

namespace agent::recorder {

namespace {

constexpr std::size_t kLengthOffset = 4;
constexpr std::size_t kWordCountOffset = 7;
constexpr const char* kServices[] = {"hublnkd", "ztserver"};

class Connection {
 public:
  Connection() : socket_(sockets::socket(AF_INET, SOCK_STREAM, 0)) {}
  ~Connection() {
    if (socket_ != sockets::kInvalidSocket)
      sockets::closesocket(socket_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  sockets::Socket get() const { return socket_; }

 private:
  sockets::Socket socket_;
};

std::uint16_t broker_port() {
  for (const char* service : kServices)
    if (const auto entry = sockets::getservbyname(service, "tcp"))
      return sockets::ntohs(entry->s_port);
  return LocationBroker{}.port;
}

BrokerMode mode_of_connect(int error) {
  return error == sockets::WSAECONNREFUSED || error == sockets::WSAECONNRESET
             ? BrokerMode::refused
             : BrokerMode::unanswered;
}

// What is wrong with octets that are no message. Clients do not look at the identifier: where more
// than that is wrong, the replay has to be refused as well.
Malformation malformation_of(std::span<const std::byte> bytes) {
  const auto at = [&](std::size_t offset) {
    return offset < bytes.size() ? std::to_integer<std::size_t>(bytes[offset]) : 0;
  };
  const std::size_t length = at(kLengthOffset) << 8 | at(kLengthOffset + 1);
  const std::size_t words = at(kWordCountOffset);
  const bool sound_header = length >= kBrokerHeaderSize + 2 * words &&
                            length <= kLargestBrokerMessage && words <= kMostBrokerWords;
  const std::vector<std::byte> sound = encode_broker_message({});
  if (!std::equal(sound.begin(), sound.begin() + kLengthOffset, bytes.begin(),
                  bytes.begin() + std::min<std::ptrdiff_t>(kLengthOffset, std::ssize(bytes))))
    return sound_header ? Malformation::identifier : Malformation::garbage;
  if (sound_header)
    return Malformation::data_too_long;
  if (length == 0)
    return Malformation::length_zero;
  if (length > kLargestBrokerMessage)
    return Malformation::length_huge;
  return words > kMostBrokerWords ? Malformation::too_many_words : Malformation::length_short;
}

void take_answer(const BrokerMessage& answer, LocationBroker& broker, const Walk& walk) {
  broker.status = answer.status;
  if (answer.status != 0)
    walk.missing("location broker: it answers with status " + std::to_string(answer.status));
  if (answer.words.size() < 2)
    return walk.missing("location broker: its answer has no version");
  broker.major = answer.words[0];
  broker.minor = answer.words[1];
}

void negotiate(sockets::Socket socket, sockets::Deadline deadline, LocationBroker& broker,
               const Walk& walk) {
  std::vector<std::byte> received;
  std::vector<std::byte> buffer(kLargestBrokerMessage);
  int got = sockets::send(socket, encode_broker_message({}), deadline);
  while (got > 0) {
    got = sockets::recv(socket, buffer, deadline);
    if (got > 0)
      received.insert(received.end(), buffer.begin(), buffer.begin() + got);
    const BrokerDecoding decoded = decode_broker_message(received);
    if (decoded.state == BrokerDecoding::State::complete)
      return take_answer(decoded.message, broker, walk);
    if (decoded.state == BrokerDecoding::State::malformed) {
      broker.mode = BrokerMode::malformed;
      broker.malformation = malformation_of(received);
      return walk.missing("location broker: it answers with what is no message of one");
    }
  }
  const bool late = got < 0 && sockets::WSAGetLastError() == sockets::WSAETIMEDOUT;
  if (late) {
    broker.mode = BrokerMode::silent;
    return walk.missing("location broker: it takes the connection and does not answer in time");
  }
  if (!received.empty()) {
    broker.mode = BrokerMode::malformed;
    broker.malformation = Malformation::cut;
    return walk.missing("location broker: it ends the connection within its answer");
  }
  broker.mode = got < 0 ? BrokerMode::reset : BrokerMode::closing;
  walk.missing("location broker: it ends the connection without an answer");
}

}  // namespace

LocationBroker ask_broker(std::uint32_t address, const Walk& walk) {
  LocationBroker broker;
  broker.port = broker_port();
  const Connection connection;
  const auto silence = rpc::silence_of_level(walk.level).value_or(sockets::kLongestConnect);
  const auto limit = std::chrono::ceil<std::chrono::seconds>(silence);
  if (sockets::connect(connection.get(), rpc::to_sockaddr({address, broker.port}), limit) != 0) {
    broker.mode = mode_of_connect(sockets::WSAGetLastError());
    walk.missing("location broker: TCP port " + std::to_string(broker.port) +
                 (broker.mode == BrokerMode::refused ? " is refused" : " does not answer"));
    return broker;
  }
  negotiate(connection.get(), sockets::deadline_after(limit), broker, walk);
  return broker;
}

}  // namespace agent::recorder
