// SPDX-License-Identifier: Apache-2.0
// What an enemy on the network can try: the report stays the same, and the program small and quick.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "tests/endtoend/catalog_text.h"
#include "tests/endtoend/harness.h"
#include "tests/endtoend/scenario_text.h"
#include "tests/endtoend/toy_server.h"

namespace endtoend {
namespace {

using rpc::encode_packet;
using rpc::PacketHeader;
using rpc::PacketType;
using rpc::test::Bytes;

constexpr std::uint16_t kToyPort = 2000;
constexpr std::uint16_t kRealPort = 2001;
constexpr std::uint32_t kElsewhere = ToyServer::kAlpha + 1;
constexpr long kMostKilobytes = 16 * 1024;

void expect_small([[maybe_unused]] const Result& result) {
#ifndef __SANITIZE_ADDRESS__
  EXPECT_LT(result.peak_kilobytes, kMostKilobytes);
#endif
  EXPECT_FALSE(sanitizer_spoke(result.err)) << result.err;
}

// A system whose endpoint map leads to the toy server; the real one stands behind it.
std::string system_behind_toy() {
  SourceText source("WIDE");
  source.with_class("C", "rows = 61\ninterval = 60\nlast = " + std::to_string(kNoon));
  source.metric("M1").metric("M2", "width = 1\nconstant = 7");
  source.metric("M3", "type = \"text\"\nwidth = 200\ntexts = [\"" + std::string(200, 'a') + "\"]");
  return source.text() +
         "[[system]]\naddress = \"127.0.1.1\"\n"
         "[[system.mapper.element]]\ninterface = \"rep\"\nendpoint = \"2000\"\n"
         "[[system.repository]]\nsource = \"WIDE\"\nport = 2001\nregistered = false\n"
         "[system.alarm]\nport = 1050\n";
}

std::string expected_report(const std::string& command_line) {
  std::string report = heading_of_alpha(command_line) +
                       "Found registered rep_servers at:\n\n"
                       "  Server: Port[2000] - WIDE\n  Path  : /var/opt/WIDE\n\n"
                       "Found almserver registered at:\n\n  Port[1050]\n\n"
                       "Data source WIDE, class C\n" +
                       std::string(14 + 2 + 201, ' ') + "\nDate     Time " +
                       std::string(2 + 201, ' ') + "\n";
  for (int minute = 0; minute <= 60; ++minute) {
    const std::string two_digits = (minute < 10 ? "0" : "") + std::to_string(minute);
    report += "01/15/24 " + (minute == 60 ? "12:00" : "11:" + two_digits) + " 7 " +
              std::string(200, 'a') + "\n";
  }
  return report + "\n";
}

void expect_whole_report() {
  const Result result = ztcomm({"-s", "alpha", "-b", "-ds", "WIDE"}, {{"TZ", "UTC"}});
  EXPECT_EQ(result.out, expected_report("ztcomm -s alpha -b -ds WIDE"));
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.status, 0);
  EXPECT_LT(result.seconds, 20);
  expect_small(result);
}

Bytes random_bytes(std::mt19937& random, std::size_t size) {
  Bytes bytes(size);
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::byte>(random()); });
  return bytes;
}

Bytes fragment_for(const PacketHeader& request, std::size_t number, std::size_t size) {
  PacketHeader header = header_for(request, PacketType::response);
  header.flags1 = rpc::kFlagFragment;
  header.fragment = static_cast<std::uint16_t>(number);
  return encode_packet(header, Bytes(size, std::byte{'f'}));
}

// The system alpha whose only repository server is the toy server, which says that it listens and
// leaves the lookup to the case.
Result check_against(const std::function<Datagrams(const PacketHeader& request)>& answer) {
  constexpr std::uint32_t kManagement = 0xafa8bd80;
  const Agent agent(
      "[[system]]\naddress = \"127.0.1.1\"\n"
      "[[system.mapper.element]]\ninterface = \"rep\"\nendpoint = \"2000\"\n");
  const ToyServer server(
      {.port = kToyPort, .receive = [&](const PacketHeader& request, Datagrams& answers) {
         if (request.interface_id.time_low == kManagement)
           answers = {encode_packet(header_for(request, PacketType::response),
                                    rpc::test::hex("00000000 01000000"))};
         else
           answers = answer(request);
         return false;
       }});
  return ztcomm({"-s", "alpha"}, {{"ZT_RPC_TIMEOUT", "1"}});
}

TEST(Attack, RepliesThatNeverEndAreGivenUp) {
  std::size_t next = 0;
  const auto twenty = [&next](const PacketHeader& request) {
    Datagrams answers;
    for (int i = 0; i < 20; ++i)
      answers.push_back(fragment_for(request, next++, 1384));
    return answers;
  };
  const struct {
    std::string_view name;
    std::function<Datagrams(const PacketHeader&)> answer;
    std::string reason;
  } cases[] = {
      {"fragments without end", twenty, "answered with more than the call can return"},
      {"a gap that never closes",
       [](const PacketHeader& request) {
         return Datagrams{fragment_for(request, 0, 200), fragment_for(request, 2, 200)};
       },
       "took the call and then fell silent"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    next = 0;
    const Result result = check_against(each.answer);
    EXPECT_EQ(result.out, heading_of_alpha("ztcomm -s alpha"));
    EXPECT_EQ(result.err.find(message(20, 203, "1") + "\n" + message(11, 32, "alpha")), 0U);
    EXPECT_NE(result.err.find(each.reason), std::string::npos) << result.err;
    EXPECT_EQ(result.status, 0);
    EXPECT_LT(result.seconds, 6);
    expect_small(result);
  }
}

// Asks a client who it is.
Bytes call_back(std::mt19937& random, const PacketHeader& request, std::uint32_t operation) {
  PacketHeader header = header_for(request, PacketType::request);
  header.object = {};
  header.interface_id = {0x333a2276, 0, 0, 0x0d, 0, {0, 0x80, 0x9c, 0, 0, 0}};
  header.interface_version = 3;
  header.activity.time_low = static_cast<std::uint32_t>(random());
  header.sequence = static_cast<std::uint32_t>(random() % 100);
  header.opnum = static_cast<std::uint16_t>(operation);
  return encode_packet(header, random_bytes(random, 20));
}

struct Spoof {
  std::string name;
  // What is sent to the console ahead of the server's answer.
  std::function<Datagrams(std::mt19937& random, const PacketHeader& request)> make;
};

// One of each kind; which packets belong to a call is told with the call.
std::vector<Spoof> spoofs() {
  return {
      {"responses to other calls",
       [](std::mt19937& random, const PacketHeader& request) {
         PacketHeader of_other = header_for(request, PacketType::response);
         PacketHeader of_last = of_other;
         of_other.activity.time_low = static_cast<std::uint32_t>(random());
         of_last.sequence = 0xFFFFFFFF;
         return Datagrams{encode_packet(of_other, Bytes(12)), encode_packet(of_last, Bytes(12))};
       }},
      {"a flood of call-backs",
       [](std::mt19937& random, const PacketHeader& request) {
         Datagrams packets;
         for (std::uint32_t i = 0; i < 300; ++i)
           packets.push_back(call_back(random, request, i % 3));
         return packets;
       }},
      {"bytes at random",
       [](std::mt19937& random, const PacketHeader&) {
         Datagrams packets;
         for (const std::size_t size : {0u, 1u, 79u, 80u, 81u, 500u, 1464u, 9000u})
           packets.push_back(random_bytes(random, size));
         return packets;
       }},
  };
}

TEST(Attack, SpoofedPacketsChangeNoReport) {
  const Agent agent(system_behind_toy());
  bool from_elsewhere = false;
  for (const Spoof& spoof : spoofs()) {
    SCOPED_TRACE(spoof.name);
    from_elsewhere = !from_elsewhere;
    std::mt19937 random(7);
    const ToyServer server({.port = kToyPort,
                            .server_port = kRealPort,
                            .answers_from = from_elsewhere ? kElsewhere : 0,
                            .receive = [&](const PacketHeader& request, Datagrams& answers) {
                              if (request.type == PacketType::request ||
                                  request.type == PacketType::ping)
                                answers = spoof.make(random, request);
                              return true;
                            }});
    expect_whole_report();
  }
}

TEST(Attack, LocationBrokersThatLieAreGivenUp) {
  std::ifstream file(std::string(ZT_SCENARIOS) + "/broken-broker.toml");
  std::string scenario{std::istreambuf_iterator<char>(file), {}};
  scenario += "[[system]]\naddress = \"127.0.3.9\"\nbroker = {mode = \"slow\"}\n";
  constexpr int kSystems = 9;
  const Agent agent(scenario);
  for (int i = 1; i <= kSystems; ++i) {
    const std::string address = "127.0.3." + std::to_string(i);
    SCOPED_TRACE(address);
    const Result result = ztcomm({"-s", address}, {{"ZT_RPC_TIMEOUT", "2"}});
    EXPECT_EQ(result.out, "ztcomm -s " + address +
                              "\n\nLocal System : console (127.0.0.2)\nTarget System: " + address +
                              " (" + address + ")\n\n");
    EXPECT_EQ(result.err.find(message(20, 203, "2") + "\n"), 0U);
    EXPECT_GT(result.err.size(), message(20, 203, "2").size() + 1) << "a message tells why";
    EXPECT_EQ(result.status, 0);
    // The limit holds for the whole reply: bytes that trickle in do not prolong it.
    EXPECT_LT(result.seconds, 7);
    expect_small(result);
  }
}

TEST(Attack, AnEndpointMapThatNeverEndsIsGivenUp) {
  // An open cursor and one entry without a tower in each batch of at most 64.
  const std::string entry =
      std::string(32, '0') + "00000000" + "00000000" + "04000000" + "65736300";
  const std::string batch = "00000000" + std::string(32, 'c') + "01000000" + "40000000" +
                            "00000000" + "01000000" + entry + "00000000";
  const Agent agent(
      "[[system]]\naddress = '127.0.6.1'\n[system.mapper]\nbehaviour = [{operation = "
      "'ept_lookup', reply = '" +
      batch + "'}]\n");
  const Result result = ztcomm({"-s", "127.0.6.1", "-b", "-r"}, {{"ZT_RPC_TIMEOUT", "0"}});
  EXPECT_EQ(result.out, heading("ztcomm -s 127.0.6.1 -b -r", "127.0.6.1") +
                            "Elements of the endpoint map or location broker.\n\n");
  EXPECT_NE(result.err.find(message(11, 34, "127.0.6.1")), std::string::npos) << result.err;
  EXPECT_NE(result.err.find(message(20, 107, "element")), std::string::npos) << result.err;
  EXPECT_EQ(result.status, 0);
  EXPECT_LT(result.seconds, 45);
  expect_small(result);
}

TEST(Attack, ControlCharactersReachNoTerminal) {
  const std::string evil = R"(e\u001b[2J\u0007\u009b\r\n\t\u007fz)";
  const std::string shown = "e?[2J??????z";
  SourceText source("EVIL");
  const std::string label = "label = \"" + evil + "\"\n";
  const std::string text =
      replace_all(source.text(), "/var/opt/EVIL", "/" + evil) + label +
      "[[source.EVIL.class]]\nid = 1\nrows = 1\nfirst = 1705320000\nname = \"" + evil + "\"\n" +
      label +
      "[[source.EVIL.class.metric]]\nid = 1\nname = \"A\"\n"
      "[[source.EVIL.class.metric]]\nid = 2\ntype = \"text\"\nwidth = 1\nname = \"" +
      evil + "\"\nheading1 = \"" + evil + "\"\nheading2 = \"" + evil + "\"\ntexts = [\"" + evil +
      "\"]\n";
  const Agent agent(text + system_alpha({"EVIL"}, "port = 1045\nannotation = \"" + evil + "\"") +
                    "port = 1050\nannotation = \"" + evil + "\"\n");
  const Result first = ztcomm({"-s", "alpha", "-b", "-r"});
  EXPECT_NE(first.out.find("  Server: Port[1045] - " + shown + "\n  Path  : /" + shown + "\n"),
            std::string::npos)
      << first.out;
  EXPECT_NE(first.out.find("  <annotation>     " + shown + "\n"), std::string::npos) << first.out;
  EXPECT_EQ(first.err, "");

  const std::string typed = "e\x1b[2J\a\xC2\x9B\r\n\t\x7Fz";
  const Result second = ztcomm({"-s", "alpha", "-ds", typed, "-trace"}, {{"TZ", "UTC"}});
  EXPECT_NE(
      second.out.find("Data source " + shown + ", class " + shown + "\n               " + shown +
                      "\nDate     Time  " + shown + "\n01/15/24 12:00 " + shown + "\n"),
      std::string::npos)
      << second.out;
  const Result unknown = ztcomm({"-s", "alpha", "-ds", "\x1b[2J"});
  EXPECT_TRUE(unknown.err.starts_with(message(20, 9, "?[2J"))) << unknown.err;
  for (const Result& result : {first, second, unknown}) {
    // What the user typed is theirs; it stands in the first lines alone.
    const std::string printed = result.out.substr(result.out.find("Local System")) + result.err;
    EXPECT_TRUE(std::all_of(printed.begin(), printed.end(), [](char c) {
      return (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) || c == '\n' || c == '\t';
    })) << printed;
  }
}

}  // namespace
}  // namespace endtoend
