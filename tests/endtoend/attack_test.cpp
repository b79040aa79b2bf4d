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

constexpr std::uint16_t kToyPort = 2000;
constexpr std::uint16_t kRealPort = 2001;
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

TEST(Attack, AServerMayAnswerFromAnotherOfItsAddresses) {
  const Agent agent(system_behind_toy());
  const ToyServer server({.port = kToyPort, .server_port = kRealPort, .answers_from = "127.0.1.2"});
  expect_whole_report();
  EXPECT_GT(server.received(), 10);
}

std::string random_bytes(std::mt19937& random, std::size_t size) {
  std::string bytes(size, '\0');
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
  return bytes;
}

constexpr char kFragmentFlag = 4;

std::string fragment_for(const std::string& datagram, std::uint32_t number, std::size_t size) {
  std::string packet = packet_for(datagram, kResponse, std::string(size, 'f'));
  packet.at(Header::kFlags1) = kFragmentFlag;
  put_number(packet, Header::kFragment, number, 2);
  return packet;
}

// The system alpha whose only repository server is the toy server, which says that it listens and
// leaves the lookup to the case.
Result check_against(std::function<std::vector<std::string>(const std::string& datagram)> answer) {
  const Agent agent(
      "[[system]]\naddress = \"127.0.1.1\"\n"
      "[[system.mapper.element]]\ninterface = \"rep\"\nendpoint = \"2000\"\n");
  const ToyServer server(
      {.port = kToyPort,
       .receive = [&](const std::string& datagram, std::vector<std::string>& answers) {
         if (is_for_management(datagram))
           answers = {packet_for(datagram, kResponse, std::string("\0\0\0\0\1\0\0\0", 8))};
         else
           answers = answer(datagram);
         return false;
       }});
  return ztcomm({"-s", "alpha"}, {{"ZT_RPC_TIMEOUT", "1"}});
}

TEST(Attack, RepliesThatNeverEndAreGivenUp) {
  std::uint32_t next = 0;
  const auto twenty = [&next](const std::string& datagram) {
    std::vector<std::string> answers;
    for (int i = 0; i < 20; ++i)
      answers.push_back(fragment_for(datagram, next++, 1384));
    return answers;
  };
  const struct {
    std::string_view name;
    std::function<std::vector<std::string>(const std::string&)> answer;
    std::string reason;
  } cases[] = {
      {"fragments without end", twenty, "answered with more than the call can return"},
      {"a gap that never closes",
       [](const std::string& datagram) {
         return std::vector{fragment_for(datagram, 0, 200), fragment_for(datagram, 2, 200)};
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

// 333a2276-0000-0000-0d00-00809c000000 version 3, which asks a client who it is.
std::string call_back(std::mt19937& random, const std::string& datagram, std::uint32_t operation,
                      std::string_view body) {
  std::string packet = packet_for(datagram, kRequest, body);
  packet.replace(Header::kObject, 16, std::string(16, '\0'));
  packet.replace(Header::kInterface, 16,
                 std::string("\x76\x22\x3a\x33\0\0\0\0\x0d\0\0\x80\x9c\0\0\0", 16));
  packet.replace(Header::kActivity, 16, random_bytes(random, 16));
  put_number(packet, Header::kVersion, 3, 4);
  put_number(packet, Header::kSequence, static_cast<std::uint32_t>(random() % 100), 4);
  put_number(packet, Header::kOperation, operation, 2);
  return packet;
}

struct Spoof {
  std::string name;
  // What is sent to the console ahead of the server's answer.
  std::function<std::vector<std::string>(std::mt19937& random, const std::string& datagram)> make;
};

// One of each kind; which packets belong to a call is told with the call.
std::vector<Spoof> spoofs() {
  using Packets = std::vector<std::string>;
  return {
      {"responses to other calls",
       [](std::mt19937& random, const std::string& datagram) {
         std::string of_other = packet_for(datagram, kResponse, std::string(12, '\1'));
         std::string of_last = of_other;
         of_other.replace(Header::kActivity, 16, random_bytes(random, 16));
         put_number(of_last, Header::kSequence, 0xFFFFFFFF, 4);
         return Packets{of_other, of_last};
       }},
      {"a flood of call-backs",
       [](std::mt19937& random, const std::string& datagram) {
         Packets packets;
         for (std::uint32_t i = 0; i < 300; ++i)
           packets.push_back(call_back(random, datagram, i % 3, random_bytes(random, 20)));
         return packets;
       }},
      {"bytes at random",
       [](std::mt19937& random, const std::string&) {
         Packets packets;
         for (const std::size_t size : {0, 1, 79, 80, 81, 500, 1464, 9000})
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
    const ToyServer server(
        {.port = kToyPort,
         .server_port = kRealPort,
         .answers_from = from_elsewhere ? "127.0.1.2" : "",
         .receive = [&](const std::string& datagram, std::vector<std::string>& answers) {
           if (type_of(datagram) == kRequest || type_of(datagram) == kPing)
             answers = spoof.make(random, datagram);
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
  EXPECT_EQ(unknown.err, message(20, 9, "?[2J"));
  for (const Result& result : {first, second}) {
    // What the user typed is theirs; it stands in the first lines alone.
    const std::string printed = result.out.substr(result.out.find("Local System")) + result.err;
    EXPECT_TRUE(std::all_of(printed.begin(), printed.end(), [](char c) {
      return (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) || c == '\n' || c == '\t';
    })) << printed;
  }
}

}  // namespace
}  // namespace endtoend
