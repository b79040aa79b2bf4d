// SPDX-License-Identifier: Apache-2.0
// Faults in the middle of the configuration report and the data query, and servers that lie.

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/endtoend/catalog_text.h"
#include "tests/endtoend/harness.h"
#include "tests/endtoend/scenario_text.h"

namespace endtoend {
namespace {

const std::map<std::string, std::string> kQuick = {{"TZ", "UTC"}, {"ZT_RPC_TIMEOUT", "0"}};
const std::string kUndecodable = "The server's answer cannot be decoded.";
const std::string kSilence =
    "The server does not answer; it may not be running, or the network may be down.";

std::string quick_note() {
  return message(20, 203, "0") + "\n";
}

Result query_of(const std::string& address, int limit_seconds = 60) {
  return ztcomm({"-s", address, "-ds", "TAMBO"}, kQuick, limit_seconds);
}

// One system on an address of its own for each set of further lines of its one server.
class Systems {
 public:
  explicit Systems(std::string source) : source_(std::move(source)) {}

  // The address of the system that was added as this one, counted from 1.
  static std::string address(int number) { return "127.0.5." + std::to_string(number); }

  std::string add(const std::string& settings) {
    const std::string added = address(++count_);
    text_ += "[[system]]\naddress = \"" + added +
             "\"\n[[system.repository]]\nsource = \"TAMBO\"\n" + settings + "\n[system.alarm]\n";
    return added;
  }
  std::string scenario() const { return source_ + text_; }

 private:
  std::string source_;
  std::string text_;
  int count_ = 0;
};

std::string heading_of(const std::string& address, const std::string& check) {
  return heading("ztcomm -s " + address + " " + check, address);
}

std::string collector_source() {
  SourceText source("TAMBO");
  source.with_class("CONFIGURATION", "rows = 1\nfirst = 1705320000").metric("GBL_NUM_NETWORK");
  source.with_class("GLOBAL", "rows = 1\nfirst = 1705320000");
  source.metric("GBL_NUM_DISK", "width = 1");
  return source.text();
}

constexpr std::string_view kConfigurationReport =
    "CONFIGURATION data was collected at 01/15/24 12:00\n  Number of LANs : 0\n\n";
constexpr std::string_view kQueryReport =
    "Data source TAMBO, class GLOBAL\n                \nDate     Time   \n01/15/24 12:00 0\n\n";

TEST(DataFaults, EndInTheMessageOfTheOperationThatFailed) {
  struct Operation {
    std::string_view name;
    int after;   // calls of it that come before
    bool opens;  // belongs to the opening of the data source
  };
  // The first look-up of the repository belongs to the connection to the system.
  const Operation operations[] = {
      {"rep_LookupRepository", 1, true}, {"rep_LookupRepository", 2, true},
      {"rep_LookupTable", 0, true},      {"rep_LookupMetric", 0, true},
      {"rep_LookupMetric", 1, true},     {"repView_Create", 0, false},
      {"repView_SetPosition", 0, false}, {"repView_Read", 0, false},
      {"repView_Destroy", 0, false},
  };
  struct Fault {
    std::string_view settings;
    std::string expected_err;
  };
  const Fault faults[] = {
      {"fault = 0x1C000012", message(13, 101)},
      {"status = 0x4C010003", message(13, 4)},
      {"status = 5", message(13, 90, "Access to the resource was denied.")},
      {"silent = true", message(13, 90, kSilence)},
      {"die = true", message(13, 90, kSilence)},
  };
  Systems systems(collector_source());
  for (const Operation& operation : operations)
    for (const Fault& fault : faults)
      systems.add("behaviour = [{operation = \"" + std::string(operation.name) + "\", after = " +
                  std::to_string(operation.after) + ", " + std::string(fault.settings) + "}]");

  for (const std::string check : {"-c", "-ds TAMBO"}) {
    // A server that died stays dead for the next check.
    const Agent agent(systems.scenario());
    int number = 0;
    for (const Operation& operation : operations) {
      for (const Fault& fault : faults) {
        const std::string address = Systems::address(++number);
        SCOPED_TRACE(check + " " + std::string(operation.name) + " " + std::string(fault.settings));
        const Result result =
            check == "-c" ? ztcomm({"-s", address, "-c"}, kQuick) : query_of(address);
        std::string expected_err = quick_note();
        std::string expected_out = heading_of(address, check);
        if (operation.name == "repView_Destroy") {
          expected_out += check == "-c" ? kConfigurationReport : kQueryReport;
        } else {
          expected_err += message(11, 32, address) + fault.expected_err;
          if (operation.opens && check == "-c")
            expected_err += message(20, 100);
        }
        EXPECT_EQ(result.err, expected_err);
        EXPECT_EQ(result.out, expected_out);
        EXPECT_EQ(result.status, 0);
        EXPECT_LT(result.seconds, 10);
      }
    }
  }
}

// --- Replies made by hand: little-endian NDR (C706 chapter 14).

class Body {
 public:
  Body& u16(std::uint32_t value) { return number(value, 2); }
  Body& u32(std::uint32_t value) { return number(value, 4); }
  Body& raw(std::string_view text) {
    bytes_ += text;
    return *this;
  }
  // A text in an array of fixed size: offset, count, characters and the zero.
  Body& text(std::string_view text) {
    return u32(0).u32(static_cast<std::uint32_t>(text.size() + 1)).raw(text).raw({"", 1});
  }
  // The numbers ahead of the elements of an array that is sized by the call.
  Body& array(std::uint32_t size, std::uint32_t count) { return u32(size).u32(0).u32(count); }

  const std::string& bytes() const { return bytes_; }

 private:
  Body& number(std::uint32_t value, std::size_t size) {
    while (bytes_.size() % size != 0)
      bytes_ += '\0';
    for (std::size_t i = 0; i < size; ++i)
      bytes_ += static_cast<char>(value >> (8 * i) & 0xFF);
    return *this;
  }

  std::string bytes_;
};

std::string reply_behaviour(std::string_view operation, std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string hex;
  for (const char c : bytes) {
    hex += kDigits[static_cast<unsigned char>(c) >> 4];
    hex += kDigits[static_cast<unsigned char>(c) & 0xF];
  }
  return "{operation = \"" + std::string(operation) + "\", reply = \"" + hex + "\"}";
}

std::string behaviour(std::string_view operation, std::string_view bytes) {
  return "behaviour = [" + reply_behaviour(operation, bytes) + "]";
}

constexpr std::uint32_t kNone = 0xFFFFFFFF;

// The reply of a read over a text and a number; what a test leaves as it is, is sound.
struct ReadReply {
  std::vector<std::uint32_t> positions = {kNoon, kNone};
  std::vector<std::uint32_t> integers = {0, 42};
  std::string characters = std::string("idle\0", 5);
  std::uint32_t last_position = 1, last_integer = 1, last_character = 4;
  std::uint32_t most_positions = 256, most_integers = 4096, most_characters = 32768;

  ReadReply& set_positions(std::vector<std::uint32_t> values) {
    positions = std::move(values);
    last_position = static_cast<std::uint32_t>(positions.size()) - 1;
    return *this;
  }
  ReadReply& set_integers(std::vector<std::uint32_t> values) {
    integers = std::move(values);
    last_integer = static_cast<std::uint32_t>(integers.size()) - 1;
    return *this;
  }
  ReadReply& set_characters(std::string values) {
    characters = std::move(values);
    last_character = static_cast<std::uint32_t>(characters.size()) - 1;
    return *this;
  }

  std::string bytes() const {
    Body body;
    body.u32(last_position).u32(last_integer).u32(last_character);
    body.array(most_positions, last_position + 1);
    for (const std::uint32_t position : positions)
      body.u32(position);
    body.array(most_integers, last_integer + 1);
    for (const std::uint32_t integer : integers)
      body.u32(integer);
    body.array(most_characters, last_character + 1).raw(characters);
    return body.u32(0).bytes();
  }
};

std::string two_column_source() {
  SourceText source("TAMBO");
  source.with_class("GLOBAL", "rows = 1\nfirst = 1705320000");
  source.metric("GBL_CPU_TOTAL_UTIL", "type = \"text\"\nwidth = 4");
  source.metric("GBL_NUM_DISK", "width = 3");
  return source.text();
}

struct HostileRead {
  std::string_view name;
  std::string reply;
  std::string rows;  // of the table; "none" for the message that the answer cannot be
                     // decoded, "fault" for that of a call that did not come back whole
};

std::vector<HostileRead> hostile_reads() {
  const std::string good = "01/15/24 12:00 idle 42 \n";
  const auto with = [](auto change) {
    ReadReply reply;
    change(reply);
    return reply.bytes();
  };
  const auto lie = [&](std::uint32_t ReadReply::*field, std::uint32_t value) {
    return with([&](ReadReply& reply) { reply.*field = value; });
  };
  const std::string sound = ReadReply().bytes();
  return {
      {"sound", sound, good},
      {"without the end mark", with([](ReadReply& r) { r.set_positions({kNoon}); }), good},
      {"more integers than needed", with([](ReadReply& r) {
         r.set_integers({0, 42, 9, 9});
       }),
       good},
      {"rows behind the end mark", with([](ReadReply& r) {
         r.set_positions({kNoon, kNone, kNoon}).set_integers({0, 42, 0, 1, 0, 2});
       }),
       good},
      {"positions out of order", with([](ReadReply& r) {
         r.set_positions({kNoon, kNoon - 60, 0}).set_integers({0, 42, 1, 2, 2, 3});
       }),
       "01/15/24 12:00 idle 42 \n01/15/24 11:59 dle  2  \n01/01/70 00:00 le   3  \n"},
      {"no row",
       with([](ReadReply& r) { r.set_positions({}).set_integers({}).set_characters(""); }), ""},
      {"offset behind the characters", with([](ReadReply& r) {
         r.set_integers({5, 42});
       }),
       "none"},
      {"offset of all bits", with([](ReadReply& r) {
         r.set_integers({kNone, 42});
       }),
       "none"},
      {"offset behind what the client has room for", with([](ReadReply& r) {
         r.set_integers({40000, 42});
       }),
       "none"},
      {"offset of the second row behind the characters", with([](ReadReply& r) {
         r.set_positions({kNoon, kNoon + 60, kNone}).set_integers({0, 42, 5, 1});
       }),
       "none"},
      {"text without an end", with([](ReadReply& r) { r.set_characters("idle"); }), "none"},
      {"no characters", with([](ReadReply& r) { r.set_characters(""); }), "none"},
      {"an integer too few", with([](ReadReply& r) { r.set_integers({0}); }), "none"},
      {"no integers", with([](ReadReply& r) { r.set_integers({}); }), "none"},
      {"more positions than asked for", with([](ReadReply& r) {
         r.set_positions(std::vector<std::uint32_t>(300, kNoon));
         r.set_integers(std::vector<std::uint32_t>(600, 0));
       }),
       "fault"},
      {"more integers than asked for",
       with([](ReadReply& r) { r.set_integers(std::vector<std::uint32_t>(4097, 0)); }), "fault"},
      {"more characters than asked for",
       with([](ReadReply& r) { r.set_characters(std::string(32769, 'a')); }), "fault"},
      {"last position larger than sent", lie(&ReadReply::last_position, 200), "fault"},
      {"last position beyond the limit", lie(&ReadReply::last_position, 256), "fault"},
      {"last position almost none", lie(&ReadReply::last_position, kNone - 1), "fault"},
      {"last integer larger than sent", lie(&ReadReply::last_integer, 4095), "fault"},
      {"last integer beyond the limit", lie(&ReadReply::last_integer, 4096), "fault"},
      {"last character larger than sent", lie(&ReadReply::last_character, 32767), "fault"},
      {"last character beyond the limit", lie(&ReadReply::last_character, 32768), "fault"},
      {"another size of the positions", lie(&ReadReply::most_positions, kNone), "fault"},
      {"size of the integers as filled", lie(&ReadReply::most_integers, 2), good},
      {"another size of the characters", lie(&ReadReply::most_characters, 0x80000000), "fault"},
      {"cut in the first number", sound.substr(0, 3), "fault"},
      {"cut behind the last indexes", sound.substr(0, 12), "fault"},
      {"cut in the positions", sound.substr(0, 28), "fault"},
      {"cut in the integers", sound.substr(0, 46), "fault"},
      {"cut in the characters", sound.substr(0, sound.size() - 9), "fault"},
      {"cut before the status", sound.substr(0, sound.size() - 4), "fault"},
      {"empty", "", "fault"},
  };
}

TEST(DataFaults, AReadThatLiesIsRefused) {
  Systems systems(two_column_source());
  const auto cases = hostile_reads();
  for (const HostileRead& each : cases)
    systems.add(behaviour("repView_Read", each.reply));
  const Agent agent(systems.scenario());
  int number = 0;
  for (const HostileRead& each : cases) {
    SCOPED_TRACE(each.name);
    const std::string address = Systems::address(++number);
    const Result result = query_of(address);
    const std::string cause =
        each.rows == "fault" ? message(13, 101) : message(13, 90, kUndecodable);
    const bool refused = each.rows == "none" || each.rows == "fault";
    EXPECT_EQ(result.out,
              heading_of(address, "-ds TAMBO") +
                  (refused ? ""
                           : "Data source TAMBO, class GLOBAL\n" + std::string(23, ' ') +
                                 "\nDate     Time          \n" + each.rows + "\n"));
    EXPECT_EQ(result.err, quick_note() + (refused ? message(11, 32, address) + cause : ""));
    EXPECT_EQ(result.status, 0);
  }
}

void put_descriptor(Body& body, std::uint32_t id, std::string_view name) {
  const auto length = static_cast<std::uint32_t>(name.size());
  body.u32(id).u16(length).u16(length).text(name).text(name);
}

void put_table(Body& body, std::uint32_t id, std::string_view name, std::uint32_t flags = 1) {
  put_descriptor(body, id, name);
  body.u32(1).u32(kNone).u32(300).u32(kNoon).u32(kNoon).u16(flags).u16(0);
}

void put_metric(Body& body, std::uint32_t id, std::string_view name, std::uint32_t width = 4,
                std::uint32_t scale = 0, std::string_view heading_text = "h") {
  put_descriptor(body, id, name);
  const auto length = static_cast<std::uint32_t>(heading_text.size());
  body.u32(0).u16(0).u16(4).u16(width).u16(0).u16(0).u16(scale).u16(length).u16(length);
  body.text(heading_text).text(heading_text);
}

std::string listing(std::uint32_t most, std::uint32_t last_index, std::uint32_t count,
                    const Body& elements) {
  Body body;
  return body.u32(0).u32(last_index).array(most, count).raw(elements.bytes()).u32(0).bytes();
}

template <typename Put>
std::string listing_of(std::uint32_t most, std::uint32_t count, const Put& put) {
  // Every element begins where its alignment leaves it, so all are put into one body.
  Body body;
  body.u32(0).u32(count - 1).array(most, count);
  for (std::uint32_t i = 0; i < count; ++i)
    put(body, i);
  return body.u32(0).bytes();
}

constexpr std::uint32_t kMostTables = 251;
constexpr std::uint32_t kMostMetrics = 500;

TEST(DataFaults, ACatalogueThatLiesIsRefused) {
  const auto one_metric = [](Body& body, std::uint32_t) { put_metric(body, 1, "GBL_NUM_DISK"); };
  const auto one_table = [](Body& body, std::uint32_t) { put_table(body, 1, "GLOBAL"); };
  const std::string sound_tables = listing_of(kMostTables, 1, one_table);
  const std::string sound_metrics = listing_of(kMostMetrics, 1, one_metric);
  const auto named = [](std::uint32_t length, std::string_view text) {
    Body body;
    body.u32(0).u32(0).array(kMostTables, 1);
    body.u32(1).u16(length).u16(1).text(text).text("l");
    body.u32(1).u32(kNone).u32(300).u32(0).u32(0).u16(0).u16(0);
    return body.u32(0).bytes();
  };
  const auto metric_heading = [](const std::string& text) {
    return listing_of(kMostMetrics, 1, [&](Body& body, std::uint32_t) {
      put_metric(body, 1, "GBL_NUM_DISK", 4, 0, text);
    });
  };
  const struct {
    std::string_view name;
    std::string_view operation;
    std::string reply;
  } cases[] = {
      {"more classes than asked for", "rep_LookupTable",
       listing_of(kMostTables, kMostTables + 1, one_table)},
      {"all classes that there can be", "rep_LookupTable",
       listing(kMostTables, kNone - 1, kNone, Body())},
      {"fewer classes than said", "rep_LookupTable", listing(kMostTables, 250, 251, Body())},
      {"another count than the last index", "rep_LookupTable", listing(kMostTables, 0, 0, Body())},
      {"name longer than its array", "rep_LookupTable", named(256, std::string(256, 'n'))},
      {"name with the greatest length", "rep_LookupTable", named(65535, "n")},
      {"name shorter than said", "rep_LookupTable", named(9, "n")},
      {"tables cut", "rep_LookupTable", sound_tables.substr(0, sound_tables.size() / 2)},
      {"more metrics than asked for", "rep_LookupMetric",
       listing_of(kMostMetrics, kMostMetrics + 1, one_metric)},
      {"heading longer than its array", "rep_LookupMetric", metric_heading(std::string(80, 'h'))},
      {"metrics cut", "rep_LookupMetric", sound_metrics.substr(0, sound_metrics.size() - 5)},
      {"no reply", "rep_LookupMetric", ""},
  };
  Systems systems(two_column_source());
  for (const auto& each : cases)
    systems.add(behaviour(each.operation, each.reply));
  const Agent agent(systems.scenario());
  int number = 0;
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    const std::string address = Systems::address(++number);
    const Result result = query_of(address);
    EXPECT_EQ(result.out, heading_of(address, "-ds TAMBO"));
    EXPECT_EQ(result.err, quick_note() + message(11, 32, address) + message(13, 101));
    EXPECT_EQ(result.status, 0);
  }
}

TEST(DataFaults, AbsurdWidthsAndScalesArePrintedWithinBounds) {
  const struct {
    std::uint32_t width, scale;
    std::string cell;
  } cases[] = {
      {4, 0, "0   "},           {65535, 0, std::string("0").append(1022, ' ')},
      {1, 0x7FFF, "0.0000000"}, {1, 0x8000, "0"},
      {1, 0xFFFF, "0.0000000"}, {1, 1023, "0.0000000"},
  };
  Systems systems(two_column_source());
  for (const auto& each : cases)
    systems.add("behaviour = [" +
                reply_behaviour("rep_LookupMetric", listing_of(kMostMetrics, 1,
                                                               [&](Body& body, std::uint32_t) {
                                                                 put_metric(
                                                                     body, 102, "GBL_NUM_DISK",
                                                                     each.width, each.scale, "");
                                                               })) +
                "]");
  const Agent agent(systems.scenario());
  int number = 0;
  for (const auto& each : cases) {
    SCOPED_TRACE(each.scale);
    const std::string address = Systems::address(++number);
    const Result result = query_of(address);
    EXPECT_NE(result.out.find("\n01/15/24 12:00 " + each.cell + "\n\n"), std::string::npos)
        << result.out;
    EXPECT_EQ(result.err, quick_note());
    EXPECT_EQ(result.status, 0);
  }
}

// Every reply of the query with bytes changed at random: whatever comes out, the program ends well.
TEST(DataFaults, ChangedBytesNeverEndInACrash) {
  constexpr int kRounds = 12;
  const std::pair<std::string_view, std::string> replies[] = {
      {"rep_LookupTable",
       listing_of(kMostTables, 3,
                  [](Body& body, std::uint32_t i) { put_table(body, i + 1, "GLOBAL", 3); })},
      {"rep_LookupMetric", listing_of(kMostMetrics, 4,
                                      [](Body& body, std::uint32_t i) {
                                        put_metric(body, 101 + i % 2, "GBL_NUM_DISK", 8, 2);
                                      })},
      {"rep_LookupInstance", Body()
                                 .u32(0)
                                 .u32(0)
                                 .array(2048, 1)
                                 .u32(1)
                                 .u16(1)
                                 .u16(1)
                                 .text("i")
                                 .text("i")
                                 .u32(1)
                                 .u32(0)
                                 .u32(9)
                                 .u32(0)
                                 .bytes()},
      {"repView_SetPosition", Body().u32(kNoon).u32(0).bytes()},
      {"repView_Read", ReadReply().bytes()},
  };
  Systems systems(two_column_source());
  std::mt19937 random(20240115);
  std::vector<std::string> addresses;
  for (const auto& [operation, sound] : replies) {
    for (int round = 0; round < kRounds; ++round) {
      std::string changed = sound;
      for (unsigned i = 0; i <= random() % 3; ++i)
        changed[random() % changed.size()] = static_cast<char>(random());
      // Instances are only asked for when a class says that it has some.
      std::string settings = reply_behaviour(operation, changed);
      if (operation == "rep_LookupInstance")
        settings += ", " + reply_behaviour("rep_LookupTable", replies[0].second);
      addresses.push_back(systems.add("behaviour = [" + settings + "]"));
    }
  }
  const Agent agent(systems.scenario());
  for (const std::string& address : addresses) {
    SCOPED_TRACE(address);
    const Result result = query_of(address, 20);
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(sanitizer_spoke(result.err)) << result.err;
    EXPECT_EQ(result.out.substr(0, heading_of(address, "-ds TAMBO").size()),
              heading_of(address, "-ds TAMBO"));
    EXPECT_EQ(result.out.find('\0'), std::string::npos);
  }
}

}  // namespace
}  // namespace endtoend
