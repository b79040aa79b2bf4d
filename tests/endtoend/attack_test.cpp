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
  const auto twenty_of = [&next](std::size_t size) {
    return [&next, size](const std::string& datagram) {
      std::vector<std::string> answers;
      for (int i = 0; i < 20; ++i)
        answers.push_back(fragment_for(datagram, next++, size));
      return answers;
    };
  };
  const struct {
    std::string_view name;
    std::function<std::vector<std::string>(const std::string&)> answer;
    std::string reason;
  } cases[] = {
      {"fragments without end", twenty_of(1384), message(13, 101)},
      {"fragments of eight bytes without end", twenty_of(8), message(13, 101)},
      {"a gap that never closes",
       [](const std::string& datagram) {
         return std::vector{fragment_for(datagram, 0, 200), fragment_for(datagram, 2, 200)};
       },
       message(13, 90, "The call failed; it may have run on the server.")},
      {"fragments far ahead",
       [&](const std::string& datagram) {
         std::vector<std::string> answers;
         for (int i = 0; i < 300; ++i)
           answers.push_back(fragment_for(datagram, 1 + next++ * 111 % 0xFFFF, 1384));
         return answers;
       },
       message(13, 101)},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    next = 0;
    const Result result = check_against(each.answer);
    EXPECT_EQ(result.out, heading_of_alpha("ztcomm -s alpha"));
    EXPECT_EQ(result.err, message(20, 203, "1") + "\n" + message(11, 32, "alpha") + each.reason);
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

std::vector<Spoof> spoofs() {
  using Packets = std::vector<std::string>;
  std::vector<Spoof> result;
  for (const PacketType type : {kResponse, kFault, kWorking, kNoCall, kReject}) {
    const std::string kind = " of type " + std::to_string(type);
    const std::string body(12, '\1');
    result.push_back(
        {"another activity" + kind, [=](std::mt19937& random, const std::string& datagram) {
           std::string packet = packet_for(datagram, type, body);
           packet.replace(Header::kActivity, 16, random_bytes(random, 16));
           return Packets{packet};
         }});
    for (const int off : {-1, 1, 0x7FFFFFFF}) {
      result.push_back(
          {"call number off by " + std::to_string(off) + kind,
           [=](std::mt19937&, const std::string& datagram) {
             std::uint32_t sequence = 0;
             for (std::size_t i = 4; i > 0; --i)
               sequence =
                   sequence << 8 | static_cast<unsigned char>(datagram[Header::kSequence + i - 1]);
             std::string packet = packet_for(datagram, type, body);
             put_number(packet, Header::kSequence, sequence + static_cast<std::uint32_t>(off), 4);
             return Packets{packet};
           }});
    }
  }
  for (const std::uint32_t operation : {0U, 1U, 2U, 9U}) {
    result.push_back({"a flood of call-backs of operation " + std::to_string(operation),
                      [=](std::mt19937& random, const std::string& datagram) {
                        Packets packets;
                        for (int i = 0; i < 300; ++i)
                          packets.push_back(
                              call_back(random, datagram, operation, random_bytes(random, 20)));
                        return packets;
                      }});
  }
  result.push_back({"a flood of call-backs about the call itself",
                    [](std::mt19937& random, const std::string& datagram) {
                      const std::string about = datagram.substr(Header::kActivity, 16) +
                                                datagram.substr(Header::kBoot, 4);
                      Packets packets;
                      for (int i = 0; i < 300; ++i)
                        packets.push_back(call_back(random, datagram, 0, about));
                      return packets;
                    }});
  result.push_back(
      {"a flood of call-backs without end", [](std::mt19937& random, const std::string& datagram) {
         Packets packets;
         for (int i = 0; i < 300; ++i) {
           // The first fragment of a request that never comes whole.
           std::string packet = call_back(random, datagram, 0, random_bytes(random, 1000));
           packet.at(Header::kFlags1) = 4;
           packets.push_back(packet);
         }
         return packets;
       }});
  result.push_back({"bytes at random", [](std::mt19937& random, const std::string&) {
                      Packets packets;
                      for (const std::size_t size : {0, 1, 79, 80, 81, 500, 1464, 9000})
                        packets.push_back(random_bytes(random, size));
                      return packets;
                    }});
  result.push_back(
      {"a header that claims more than there is", [](std::mt19937&, const std::string& datagram) {
         std::string packet = packet_for(datagram, kResponse, "abcd");
         put_number(packet, Header::kLength, 0xFFFF, 2);
         return Packets{packet, packet.substr(0, Header::kSize)};
       }});
  return result;
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

std::string hex_of(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string hex;
  for (const char c : bytes) {
    hex += kDigits[static_cast<unsigned char>(c) >> 4];
    hex += kDigits[static_cast<unsigned char>(c) & 0xF];
  }
  return hex;
}

TEST(Attack, EndpointMapsThatLieAreGivenUp) {
  const std::string cursor = std::string(4, '\0') + std::string(16, 'c');
  const std::string no_cursor(20, '\0');
  const auto number = [](std::uint32_t value) {
    std::string bytes(4, '\0');
    put_number(bytes, 0, value, 4);
    return bytes;
  };
  const auto entry = [&](std::uint32_t tower) {
    return std::string(16, '\0') + number(tower) + number(0) + number(4) + std::string("esc\0", 4);
  };
  const auto tower = [&](std::uint32_t size) {
    return number(size) + number(size) + std::string(40, 't');
  };
  const struct {
    std::string_view name;
    std::string body;
  } cases[] = {
      {"a listing without end",
       cursor + number(1) + number(64) + number(0) + number(1) + entry(0) + number(0)},
      {"empty batches without end",
       cursor + number(0) + number(64) + number(0) + number(0) + number(0)},
      {"4 GiB of entries",
       no_cursor + number(0xFFFFFFFF) + number(64) + number(0) + number(0xFFFFFFFF) + entry(0)},
      {"other counts",
       no_cursor + number(64) + number(64) + number(0) + number(1) + entry(0) + number(0)},
      {"a tower of 4 GiB", no_cursor + number(1) + number(64) + number(0) + number(1) + entry(1) +
                               tower(0xFFFFFFFF) + number(0)},
      {"a tower that is cut", no_cursor + number(1) + number(64) + number(0) + number(1) +
                                  entry(1) + tower(2000) + number(0)},
      {"nothing", ""},
  };
  std::string scenario;
  int number_of_system = 0;
  for (const auto& each : cases)
    scenario += "[[system]]\naddress = \"127.0.6." + std::to_string(++number_of_system) +
                "\"\n[system.mapper]\nbehaviour = [{operation = \"ept_lookup\", reply = \"" +
                hex_of(each.body) + "\"}]\n";
  const Agent agent(scenario);
  number_of_system = 0;
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    const std::string address = "127.0.6." + std::to_string(++number_of_system);
    const Result result = ztcomm({"-s", address, "-b", "-r"}, {{"ZT_RPC_TIMEOUT", "0"}});
    EXPECT_EQ(result.out,
              "ztcomm -s " + address +
                  " -b -r\n\nLocal System : console (127.0.0.2)\nTarget System: " + address + " (" +
                  address + ")\n\nElements of the endpoint map or location broker.\n\n");
    EXPECT_NE(result.err.find(message(11, 34, address)), std::string::npos) << result.err;
    EXPECT_NE(result.err.find(message(20, 107)), std::string::npos) << result.err;
    EXPECT_EQ(result.status, 0);
    EXPECT_LT(result.seconds, 45);
    expect_small(result);
  }
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

// What no character set makes a character of, beside what only looks like one.
TEST(Attack, BrokenEncodingsReachNoTerminal) {
  const std::string path =
      "/\x9b"
      "1m\xe0\x82\x9b\xc2\x85\xff\x1b[0";
  const std::string shown = "/?1m\xe0???\xff?[0";
  const Agent agent(system_behind_toy());
  const ToyServer server(
      {.port = kToyPort, .server_port = kRealPort, .alter = [&](std::string& datagram) {
         datagram = replace_all(datagram, "/var/opt/WIDE", path);
         datagram = replace_all(datagram, "aaaaaaaa", "\x1b[2J\x90\xed\xa0\x9c");
       }});
  const Result result = ztcomm({"-s", "alpha", "-b", "-ds", "WIDE", "-trace"}, {{"TZ", "UTC"}});
  EXPECT_NE(result.out.find("  Path  : " + shown + "\n"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find(" 7 ?[2J?\xed\xa0?"), std::string::npos) << result.out;
  const std::string printed = result.out + result.err;
  EXPECT_TRUE(std::all_of(printed.begin(), printed.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return c == '\n' || (byte >= 0x20 && (byte < 0x7F || byte > 0x9F));
  })) << printed;
}

}  // namespace
}  // namespace endtoend
