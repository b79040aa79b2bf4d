// SPDX-License-Identifier: Apache-2.0
// Packets written byte by byte, from a plain socket to running servers: what goes in and what comes
// out is compared without any code of the two ends.

#include <gtest/gtest.h>

#include "agent/scenario.h"
#include "agent/simulator.h"
#include "tests/agent/loop_client.h"

namespace agent {
namespace {

using test::Bytes;
using test::hex;
using test::hex_text;
using test::LoopClient;

constexpr std::uint32_t kLoopback = 0x7F000001;

// The parts of a little-endian request's header.
struct Header {
  const char* flags = "00";
  const char* interface_id;
  const char* version;
  const char* opnum;
  const char* sequence = "00 00 00 00";
  const char* activity = "1e 8a 0c 2f b2 90 ef 11 8a 3c 02 42 ac 11 00 02";
};

constexpr const char* kMapper = "08 83 af e1 1f 5d c9 11 91 a4 08 00 2b 14 a0 fa";
constexpr const char* kRepInterface = "a0 82 3c 5b e4 17 00 00 02 0a 14 1e 28 00 00 00";
constexpr const char* kViewInterface = "91 4c 0e 5d 27 3a 00 00 02 0a 14 1e 28 00 00 00";
constexpr const char* kManagement = "80 bd a8 af 8a 7d c9 11 be f4 08 00 2b 10 29 89";

Bytes packet(const Header& header, const Bytes& body) {
  Bytes bytes = hex(std::string("04 00 ") + header.flags + " 00 10 00 00 00 00*16 " +
                    header.interface_id + header.activity + " 00 00 00 00 " + header.version +
                    header.sequence + header.opnum + " ff ff ff ff");
  bytes.push_back(static_cast<std::byte>(body.size() & 0xFF));
  bytes.push_back(static_cast<std::byte>(body.size() >> 8));
  bytes.insert(bytes.end(), 4, std::byte{0});
  bytes.insert(bytes.end(), body.begin(), body.end());
  return bytes;
}

std::uint32_t word(const Bytes& bytes, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;)
    value = value << 8 | std::to_integer<std::uint32_t>(bytes.at(offset + i));
  return value;
}

std::string part(const Bytes& bytes, std::size_t from, std::size_t size) {
  if (bytes.size() < from + size)
    return "only " + std::to_string(bytes.size()) + " bytes";
  const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(from);
  return hex_text(Bytes(begin, begin + static_cast<std::ptrdiff_t>(size)));
}

// A system of a scenario, on any free ports.
class RunningSystem : public testing::Test {
 protected:
  void start(const std::string& text) {
    auto parsed = parse_scenario(
        "[source.A]\nid = 7\nname = 'CPU'\nlabel = ''\npath = '/a'\n"
        "[[source.A.class]]\nid = 3\nname = 'C'\nrows = 2\ninterval = 60\nfirst = 600\n"
        "[[source.A.class.metric]]\nid = 4\nname = 'M'\nvalues = [-2, 9]\n"
        "[[source.A.class.metric]]\nid = 5\nname = 'T'\ntype = 'text'\ntexts = ['ab']\n"
        "[[system]]\naddress = '127.0.0.1'\n" +
            text,
        1'700'000'000);
    ASSERT_TRUE(parsed.errors.empty()) << error_text("text", parsed.errors.front());
    parsed.scenario.systems[0].broker.port = 0;
    simulator_.emplace(loop_, log_, parsed.scenario);
    ASSERT_EQ(simulator_->open(), std::vector<std::string>{});
  }

  Bytes ask(std::uint16_t port, const Header& header, const Bytes& body) {
    LoopClient client(loop_, SOCK_DGRAM, kLoopback, port);
    client.send(packet(header, body));
    return client.receive().value_or(Bytes{});
  }
  Bytes lookup(const Bytes& body) {
    return ask(simulator_->systems()[0]->mapper_port(), {"20", kMapper, "03 00 00 00", "02 00"},
               body);
  }
  // The port of the system's first registered server, read from its tower.
  std::uint16_t first_port() {
    const auto& tower = simulator_->systems()[0]->endpoint_map().entry(0).tower;
    return static_cast<std::uint16_t>(std::to_integer<unsigned>(tower.at(64)) << 8 |
                                      std::to_integer<unsigned>(tower.at(65)));
  }

  rpc::server::EventLoop loop_;
  const Log log_;
  std::optional<Simulator> simulator_;
};

const Bytes kLookupOfRep =
    hex("01 00 00 00  00 00 00 00  01 00 00 00  a0 82 3c 5b e4 17 00 00 02 0a 14 1e 28 00 00 00"
        "02 00 00 00  03 00 00 00  00*20  40 00 00 00");

TEST_F(RunningSystem, GivesTheTowerThatWasAskedFor) {
  start(
      "mapper = {port = 0, element = [{interface = 'rep', address = '10.1.2.3', endpoint = '1045',"
      " annotation = 'hi'}, {interface = 'ag', endpoint = '9'}]}\n");
  const Bytes reply = lookup(kLookupOfRep);
  ASSERT_GE(reply.size(), 80u);
  EXPECT_EQ(reply[1], std::byte{2});
  // A null handle; one entry of at most 64: nil object, a tower, the annotation "hi".
  EXPECT_EQ(part(reply, 80, 20 + 4 + 12 + 16), hex_text(hex("00*20 01 00 00 00 40 00 00 00"
                                                            "00 00 00 00 01 00 00 00 00*16")));
  EXPECT_EQ(word(reply, 132), 0x20000u);
  EXPECT_EQ(part(reply, 136, 11), hex_text(hex("00 00 00 00 03 00 00 00 68 69 00")));
  EXPECT_EQ(part(reply, 148, 8), hex_text(hex("4b 00 00 00 4b 00 00 00")));
  EXPECT_EQ(part(reply, 156, 75),
            hex_text(hex("05 00  13 00 0d a0 82 3c 5b e4 17 00 00 02 0a 14 1e 28 00 00 00 02 00"
                         "02 00 00 00  13 00 0d 04 5d 88 8a eb 1c c9 11 9f e8 08 00 2b 10 48 60"
                         "02 00  02 00 00 00  01 00 0a 02 00 00 00  01 00 08 02 00 04 15"
                         "01 00 09 04 00 0a 01 02 03")));
  EXPECT_EQ(part(reply, 232, 4), "00000000");
  EXPECT_EQ(reply.size(), 236u);
}

TEST_F(RunningSystem, ListensAtEveryEndpoint) {
  start("mapper = {port = 0}\nrepository = [{source = 'A', call_back = 'none'}]\n");
  for (const std::uint16_t port : {first_port(), simulator_->systems()[0]->mapper_port()}) {
    const Bytes reply = ask(port, {"20", kManagement, "01 00 00 00", "02 00"}, {});
    EXPECT_EQ(part(reply, 80, 8), hex_text(hex("00 00 00 00 01 00 00 00")));
  }
}

// What is answered without a stub of ours: the mapper's other operations, and management.
TEST_F(RunningSystem, AnswersWhatIsWrittenByHand) {
  start(
      "mapper = {port = 0, call_back = 'none', element = ["
      "{interface = 'rep', address = '10.1.2.3', endpoint = '1045'},"
      " {interface = 'rep', protocol = 'ncacn_ip_tcp', endpoint = '7'}]}\n");
  const std::string tower =
      "05 00  13 00 0d a0 82 3c 5b e4 17 00 00 02 0a 14 1e 28 00 00 00 02 00 02 00 00 00"
      "13 00 0d 04 5d 88 8a eb 1c c9 11 9f e8 08 00 2b 10 48 60 02 00 02 00 00 00"
      "01 00 0a 02 00 00 00  01 00 08 02 00 ";
  const std::string anywhere = tower + "00 00 01 00 09 04 00 00 00 00 00 ";
  const std::string there = tower + "04 15 01 00 09 04 00 0a 01 02 03 ";
  const std::string asked = "00 00 00 00  01 00 00 00  4b 00 00 00 4b 00 00 00 " + anywhere;
  const std::string of_ag = "a0 82 3c 5b", nobody = "a1 82 3c 5b";
  std::string unknown = asked;
  unknown.replace(unknown.find(of_ag), of_ag.size(), nobody);
  struct Case {
    const char* interface_id;
    const char* version;
    const char* opnum;
    std::string request;
    std::string reply;
  };
  const Case cases[] = {
      {kMapper, "03 00 00 00", "03 00", asked + "00 00*20 04 00 00 00",
       "00*20 01 00 00 00  04 00 00 00 00 00 00 00 01 00 00 00  00 00 02 00"
       "4b 00 00 00 4b 00 00 00 " +
           there + "00 00 00 00 00"},
      {kMapper, "03 00 00 00", "03 00", unknown + "00 00*20 04 00 00 00",
       "00*20 00 00 00 00  04 00 00 00 00 00 00 00 00 00 00 00  d6 a0 c9 16"},
      {kMapper, "03 00 00 00", "05 00", "00*16", "00*16 00 00 00 00"},
      {kMapper, "03 00 00 00", "00 00", "00 00 00 00", "cd a0 c9 16"},
      {kMapper, "03 00 00 00", "01 00", "00 00 00 00", "cd a0 c9 16"},
      {kMapper, "03 00 00 00", "06 00", "00*24", "cd a0 c9 16"},
      {kManagement, "01 00 00 00", "00 00", "",
       "00 00 02 00 01 00 00 00 01 00 00 00 04 00 02 00" + std::string(kMapper) +
           "03 00 00 00 00 00 00 00"},
      {kManagement, "01 00 00 00", "01 00", "04 00 00 00", "00 00 00 00 00 00 00 00 e4 06 00 00"},
      {kManagement, "01 00 00 00", "03 00", "", "05 00 00 00"},
      {kManagement, "01 00 00 00", "04 00", "00 00 00 00 20 00 00 00",
       "20 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 e4 06 00 00"},
  };
  std::string sequence = "00 00 00 00";
  for (const Case& one : cases) {
    sequence[1] = "0123456789abcdef"[&one - cases + 1];
    const Bytes reply =
        ask(simulator_->systems()[0]->mapper_port(),
            {"20", one.interface_id, one.version, one.opnum, sequence.c_str()}, hex(one.request));
    ASSERT_GE(reply.size(), 80u) << one.opnum;
    EXPECT_EQ(part(reply, 80, reply.size() - 80), hex_text(hex(one.reply))) << one.opnum;
  }
}

TEST_F(RunningSystem, ReadsAView) {
  start("mapper = {port = 0}\nrepository = [{source = 'A', call_back = 'none'}]\n");
  LoopClient client(loop_, SOCK_DGRAM, kLoopback, first_port());
  const auto ask_next = [&](const char* opnum, const char* sequence, const Bytes& body) {
    client.send(packet({"00", kViewInterface, "02 00 00 00", opnum, sequence}, body));
    return client.receive().value_or(Bytes{});
  };
  const Bytes created = ask_next("00 00", "00 00 00 00",
                                 hex("03 00 00 00 01 00 00 00  02 00 00 00 00 00 00 00 02 00 00 00"
                                     "05 00 00 00 04 00 00 00"));
  ASSERT_EQ(created.size(), 104u);
  EXPECT_EQ(word(created, 100), 0u);
  Bytes context(created.begin() + 80, created.begin() + 100);
  EXPECT_NE(context, Bytes(20));

  Bytes read = context;
  const Bytes limits = hex("ff 00 00 00 ff 0f 00 00 ff 7f 00 00");
  read.insert(read.end(), limits.begin(), limits.end());
  const Bytes data = ask_next("07 00", "01 00 00 00", read);
  EXPECT_EQ(part(data, 80, data.size() - 80),
            hex_text(hex("02 00 00 00 03 00 00 00 05 00 00 00"
                         "00 01 00 00 00 00 00 00 03 00 00 00 58 02 00 00 94 02 00 00 ff ff ff ff"
                         "00 10 00 00 00 00 00 00 04 00 00 00"
                         "00 00 00 00 fe ff ff ff 03 00 00 00 09 00 00 00"
                         "00 80 00 00 00 00 00 00 06 00 00 00 61 62 00 61 62 00 00 00"
                         "00 00 00 00")));

  const Bytes destroyed = ask_next("01 00", "02 00 00 00", context);
  EXPECT_EQ(part(destroyed, 80, 24), hex_text(Bytes(24)));
  const Bytes again = ask_next("04 00", "03 00 00 00", context);
  ASSERT_EQ(again.size(), 84u);
  EXPECT_EQ(again[1], std::byte{3});
  EXPECT_EQ(word(again, 80), 0x1C00001Au);
}

TEST_F(RunningSystem, OperationsBehaveAsScripted) {
  struct Case {
    const char* behaviour;
    const char* type;  // of the answer; null: silence
    std::uint32_t status;
  };
  const Case cases[] = {
      {"status = 0x4C010009", "02", 0x4C010009},
      {"fault = 0x1C000012", "03", 0x1C000012},
      {"reject = 0x1C010014", "06", 0x1C010014},
      {"reply = '01020304'", "02", 0x04030201},
      {"silent = true", nullptr, 0},
      {"late_ms = 50, status = 9", "02", 9},
      {"working_ms = 50, status = 9", "02", 9},
      {"no_call_ms = 50, status = 9", "02", 9},
      {"working = true", nullptr, 0},
      {"restart = true", nullptr, 0},
      // The reply ends with the path "/a" and its zero, then a gap before the status.
      {"cut = 4", "02", 0x0000612F},
      {"patch = {at = 28, hex = 'aabbccdd'}, times = 1", "02", 0},
      {"die = true", nullptr, 0},
  };
  for (const Case& one : cases) {
    start(std::string("mapper = {port = 0}\nrepository = [{source = 'A', call_back = 'none', "
                      "behaviour = [{operation = 'rep_LookupRepository', ") +
          one.behaviour + "}]}]\n");
    LoopClient client(loop_, SOCK_DGRAM, kLoopback, first_port());
    const Bytes request = packet({"00", kRepInterface, "02 00 00 00", "00 00"}, {});
    client.send(request);
    const auto reply = client.receive(std::chrono::milliseconds(one.type != nullptr ? 5000 : 100));
    ASSERT_EQ(reply.has_value(), one.type != nullptr) << one.behaviour;
    if (reply) {
      EXPECT_EQ(part(*reply, 1, 1), one.type) << one.behaviour;
      EXPECT_EQ(word(*reply, reply->size() - 4), one.status) << one.behaviour;
    } else if (std::string_view(one.behaviour) == "die = true") {
      // On a busy machine the socket may close with the first pings in it.
      for (int tries = 0; tries < 50 && client.error() == 0; ++tries) {
        client.send(request);
        client.receive(std::chrono::milliseconds(100));
      }
      EXPECT_EQ(client.error(), ECONNREFUSED);
    }
  }
}

TEST_F(RunningSystem, BehavioursAreCounted) {
  start(
      "mapper = {port = 0}\nrepository = [{source = 'A', call_back = 'none', behaviour = "
      "[{operation = 'rep_LookupRepository', after = 1, times = 1, status = 5}]}]\n");
  LoopClient client(loop_, SOCK_DGRAM, kLoopback, first_port());
  std::string statuses;
  for (const char* sequence : {"00 00 00 00", "01 00 00 00", "02 00 00 00"}) {
    client.send(packet({"00", kRepInterface, "02 00 00 00", "00 00", sequence}, {}));
    const Bytes reply = client.receive().value_or(Bytes(84));
    statuses += std::to_string(word(reply, reply.size() - 4)) + " ";
  }
  EXPECT_EQ(statuses, "0 5 0 ");
}

}  // namespace
}  // namespace agent
