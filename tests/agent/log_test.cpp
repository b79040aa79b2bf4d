// SPDX-License-Identifier: Apache-2.0
#include "agent/log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>

#include "agent/server_log.h"
#include "platform/rpc/wire/pdu.h"

namespace agent {
namespace {

using rpc::server::DatagramReport;
using rpc::server::Direction;
using Delivery = rpc::server::FaultInjector::Delivery;

// What a log has written since the last look.
class Pages {
 public:
  Pages() : file_(std::tmpfile()) {}
  ~Pages() { std::fclose(file_); }
  std::FILE* file() { return file_; }
  std::string take() {
    std::rewind(file_);
    std::string text(4096, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file_));
    std::rewind(file_);
    [[maybe_unused]] const int cut = ftruncate(fileno(file_), 0);
    return text;
  }

 private:
  std::FILE* file_;
};

std::vector<std::byte> request() {
  rpc::PacketHeader header;
  header.sequence = 7;
  return rpc::encode_packet(header, {});
}

TEST(Log, TextAndJsonAreTwoViewsOfAnEvent) {
  LogEvent event("call", "a\"b");
  event.text("operation", "ag_Ping").text("arguments", "").text("peer", "127.0.0.1:9");
  event.text("outcome", "is answered").status("status", 0x4C010001).number("octets", 4);
  EXPECT_EQ(event.as_text(),
            "a\"b ag_Ping() of 127.0.0.1:9 is answered, status 0x4C010001, 4 octets");
  EXPECT_EQ(event.as_json(),
            R"("event":"call","server":"a\"b","operation":"ag_Ping",)"
            R"("peer":"127.0.0.1:9","outcome":"is answered","status":"0x4C010001","octets":4)");
}

TEST(Log, JsonIsUtf8WhateverTheTextIs) {
  EXPECT_EQ(LogEvent("state", "b\xC3\xBC \xFC\x1B").as_json(),
            "\"event\":\"state\",\"server\":\"b\xC3\xBC \\ufffd\\u001b\"");
}

TEST(Log, AViolationIsMarkedBehindTheTime) {
  Pages pages;
  Log(pages.file()).write(LogEvent("violation", "s").text("detail", "odd").text("peer", "p"));
  EXPECT_EQ(pages.take().substr(23), " violation s odd, from p\n");
  const Log log(pages.file());
  ServerLog server(log, "s");
  server.event({rpc::server::CoreEvent::Kind::violation, {0x7F000001, 9}, "odd", 0, true});
  EXPECT_EQ(pages.take().substr(23), " s the bad network's doing: odd, from 127.0.0.1:9\n");
}

// Nothing that was lost looks received, and nothing that was not sent looks sent.
TEST(Log, TellsWhatTheBadNetworkDidToADatagram) {
  struct Case {
    const char* name;
    Direction direction;
    std::vector<Delivery> deliveries;
    const char* begin;
    const char* end;
  };
  const rpc::Time now{};
  Delivery plain;
  plain.time = now;
  Delivery late = plain;
  late.time += std::chrono::microseconds(12'500);
  Delivery spoilt = plain;
  spoilt.cut_to = 40;
  spoilt.flipped = {7};
  Delivery copy = late;
  copy.copy = true;
  const Case cases[] = {
      {"untouched", Direction::received, {plain}, "s received request ", "127.0.0.1:9"},
      {"lost", Direction::received, {}, "s lost before it was received: request ", "127.0.0.1:9"},
      {"not sent", Direction::sent, {}, "s lost, not sent: request ", "127.0.0.1:9"},
      {"late", Direction::sent, {late}, "s sent request ", ", held back 12.5 ms"},
      {"spoilt",
       Direction::received,
       {spoilt},
       "s received ",
       ", cut to 40 octets, octet 7 changed"},
      {"doubled", Direction::sent, {plain, copy}, "s sent ", ", doubled: held back 12.5 ms"},
      {"only its double",
       Direction::received,
       {copy},
       "s received ",
       ", lost, but its double came through: held back 12.5 ms"},
  };
  Pages pages;
  const Log log(pages.file());
  ServerLog server(log, "s");
  const auto bytes = request();
  for (const Case& one : cases) {
    server.datagram({one.direction, {0x7F000001, 9}, bytes, &one.deliveries, now, false});
    std::string line = pages.take();
    ASSERT_GT(line.size(), 25u);
    line = line.substr(24, line.size() - 25);
    EXPECT_TRUE(line.starts_with(one.begin)) << one.name << ": " << line;
    EXPECT_TRUE(line.ends_with(one.end)) << one.name << ": " << line;
  }
  server.datagram({Direction::received, {0x7F000001, 9}, bytes, nullptr, now, true});
  EXPECT_NE(pages.take().find(" s deaf to request "), std::string::npos);
  server.write_counters(log);
  EXPECT_NE(pages.take().find("s counters: 0 calls, 0 repeats, 1 lost in, 1 lost out, 2 doubled"),
            std::string::npos);
}

TEST(Log, SaysOnceThatItCannotBeWritten) {
  std::FILE* full = std::fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  int told = 0;
  const Log log(full, nullptr, [&told] { ++told; });
  log.write(LogEvent("state", "s").text("change", "x"));
  log.write(LogEvent("state", "s").text("change", "y"));
  EXPECT_EQ(told, 1);
  EXPECT_TRUE(log.failed());
  std::fclose(full);
}

}  // namespace
}  // namespace agent
