// SPDX-License-Identifier: Apache-2.0
#include "agent/scenario.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace agent {
namespace {

constexpr std::uint32_t kNow = 1'700'000'100;

// Sources alone are no scenario: they get a system behind them.
std::string first_error(std::string text) {
  if (text.starts_with("[source"))
    text += "[[system]]\naddress = '127.0.0.1'\n";
  const ParsedScenario parsed = parse_scenario(text, kNow);
  return parsed.errors.empty() ? "" : error_text("f", parsed.errors.front());
}

// Line 1 makes the data source of the cases below.
const std::string kSource =
    "[source.A]\nid = 1\n[[source.A.class]]\nid = 1\nname = 'C'\nrows = 3\ninterval = 60\n"
    "[[source.A.class.metric]]\nid = 5\nname = 'M'\n";

TEST(ScenarioErrors, NamePlaceAndExpectation) {
  struct Case {
    std::string text;
    std::string error;
  };
  const Case cases[] = {
      {"", "f:1:1: scenario: the key \"system\" is missing"},
      {"x = 1\n[[system]]\naddress = '127.0.0.1'\n",
       "f:1:1: scenario: unknown key \"x\"; expected one of event, source, system"},
      {"[[system]\n", "f:1:10: "},
      {"[[system]]\naddres = '127.0.0.1'\n", "f:1:1: system: the key \"address\" is missing"},
      {"[[system]]\naddress = 127\n", "f:2:11: system.address: expected a text, found a whole"},
      {"[[system]]\naddress = '10.0.0.1'\n",
       "f:2:11: system.address: expected an address in 127.0.0.0/8, found \"10.0.0.1\""},
      {"[[system]]\naddress = '127.0.0.256'\n", "f:2:11: system.address: expected an address"},
      {"[[system]]\naddress = '127.0.0.1.2'\n", "f:2:11: system.address: expected an address"},
      {"[[system]]\naddress = '127.0.0.1'\n[[system]]\naddress = '127.0.0.1'\n",
       "f:4:11: system.address: expected an address of its own, but 127.0.0.1 is taken by the "
       "system of line 1"},
      {"[[system]]\naddress = '127.0.0.1'\ncount = 5\n[[system]]\naddress = '127.0.0.5'\n",
       "f:5:11: system.address: expected an address of its own, but 127.0.0.5"},
      {"[[system]]\naddress = '127.255.255.250'\ncount = 10\n",
       "f:3:9: system.count: the addresses run out of 127.0.0.0/8"},
      {"[[system]]\naddress = '127.0.0.1'\ncount = 0\n",
       "f:3:9: system.count: expected a whole number from 1 to 20000, found 0"},
      {"[[system]]\naddress = '127.0.0.1'\nbroker = 3\n",
       "f:3:10: system.broker: expected a table, found a whole number"},
      {"[[system]]\naddress = '127.0.0.1'\n[system.broker]\nport = 70000\n",
       "f:4:8: system.broker.port: expected a whole number from 1 to 65535, found 70000"},
      {"[[system]]\naddress = '127.0.0.1'\n[system.broker]\nmode = 'odd'\n",
       "f:4:8: system.broker.mode: expected \"normal\", \"refused\", \"unanswered\", \"closing\", "
       "\"reset\", "
       "\"silent\", \"slow\" or \"malformed\", found \"odd\""},
      {"[[system]]\naddress = '127.0.0.1'\n[system.broker]\nversion = '2'\n",
       "f:4:11: system.broker.version: expected a version such as \"2.0\", found \"2\""},
      {"[[system]]\naddress = '127.0.0.1'\n[system.broker]\nversion = '2.65536'\n",
       "f:4:11: system.broker.version: expected a version"},
      {"[[system]]\naddress = '127.0.0.1'\n[system.network]\nincoming = {loss = 1.5}\n",
       "f:4:20: system.network.incoming.loss: expected a number from 0 to 1, found 1.5"},
      {"[[system]]\naddress = '127.0.0.1'\n[[system.repository]]\nsource = 'B'\n",
       "f:4:10: system.repository.source: expected a data source of this file, found \"B\""},
      {"[[system]]\naddress = '127.0.0.1'\n[system.alarm]\nobject = 'x'\n",
       "f:4:10: system.alarm.object: expected a UUID such as"},
      {"[[system]]\naddress = '127.0.0.1'\n[system.alarm]\nport = 135\n",
       "f:3:1: system.alarm: expected ports of their own, but UDP port 135 is asked for twice"},
      {"[[system]]\naddress = '127.0.0.1'\n[system.alarm]\nbehaviour = [{operation = 'ag_Pong'}]\n",
       "f:4:27: system.alarm.behaviour.operation: expected an operation of this server, "
       "found \"ag_Pong\"; it has ag_Register, ag_Unregister"},
      {"[[system]]\naddress = '127.0.0.1'\n[system.alarm]\n"
       "behaviour = [{operation = 'rep_LookupTable', fault = 1}]\n",
       "f:4:27: system.alarm.behaviour.operation: expected an operation of this server, "},
      {"[[system]]\naddress = '127.0.0.1'\n[system.alarm]\n"
       "behaviour = [{fault = 1, times = 0}]\n",
       "f:4:34: system.alarm.behaviour.times: expected a whole number from 1 to"},
      {"[[system]]\naddress = '127.0.0.1'\n[system.alarm]\nbehaviour = [{after = 3}]\n",
       "f:4:14: system.alarm.behaviour: expected an outcome such as"},
      {"[[system]]\naddress = '127.0.0.1'\n[system.alarm]\n"
       "behaviour = [{fault = 1}, {operation = 'ag_Ping', silent = true}]\n",
       "f:4:27: system.alarm.behaviour: expected a rule that can happen, but rule 1 of this "},
      {"[[system]]\naddress = '127.0.0.1'\nname = 'a'\n[[system]]\naddress = '127.0.0.2'\n"
       "name = 'a'\n",
       "f:6:8: system.name: expected a name of its own, but \"a\" is the name of another"},
      {"[source.A]\nid = 1\n[[source.A.class]]\nid = 1\nname = 'C'\ndiscriminator = 4\n",
       "f:6:17: source.A.class.discriminator: expected the identifier of a metric of the class"},
      {"[[system]]\naddress = '127.0.0.1'\n[[event]]\nat = 1\nsystem = 'b'\nserver = 'alarm'\n",
       "f:5:10: event.system: expected the name of a system of this file, found \"b\""},
      {"[[system]]\naddress = '127.0.0.1'\n[[event]]\nat = 1\nsystem = '127.0.0.1'\n"
       "server = 'alarm'\n",
       "f:6:10: event.server: expected \"broker\", \"mapper\", \"alarm\" or the source"},
      {"[[system]]\naddress = '127.0.0.1'\n[system.mapper]\nfail = 'silent'\n",
       "f:4:8: system.mapper.fail: expected \"fail_after\" beside it"},
      {"[[system]]\naddress = '127.0.0.1'\n[system.alarm]\nbehaviour = [{fault = 1, die = true}]\n",
       "f:4:14: system.alarm.behaviour: expected one of status, fault, reject, reply, silent, "},
      {"[[system]]\naddress = '127.0.0.1'\n[system.alarm]\nbehaviour = [{reply = '0g'}]\n",
       "f:4:23: system.alarm.behaviour.reply: expected pairs of hexadecimal digits"},
      {"[[system]]\naddress = '127.0.0.1'\n[[system.mapper.element]]\ninterface = 'rep'\n",
       "f:3:1: system.mapper.element: the key \"endpoint\" is missing"},
      {"[source.A]\nid = -1\n", "f:2:6: source.A.id: expected a whole number from 0 to"},
      {kSource + "id = 6\n", "f:11:6: "},
      {kSource + "[[source.A.class.metric]]\nid = 5\nname = 'N'\n",
       "f:12:6: source.A.class.metric.id: expected an identifier of its own, but 5 is taken"},
      {kSource + "texts = ['a']\n",
       "f:11:9: source.A.class.metric.texts: expected a model of numbers, or type \"text\""},
      {kSource + "constant = 1\nvalues = [1]\n",
       "f:12:10: source.A.class.metric.values: expected one model, but \"constant\" is there as"},
      {kSource + "ramp = {from = 5, to = 1}\n",
       "f:11:24: source.A.class.metric.ramp.to: expected a number not below \"from\""},
      {kSource + "[[source.A.class]]\nid = 2\nname = 'D'\nrows = [[1, 2]]\n",
       "f:14:9: source.A.class.rows: expected an array of a time"},
      {kSource + "[[source.A.class]]\nid = 2\nname = 'D'\nrows = 2\nfirst = 1\nlast = 2\n",
       "f:16:8: source.A.class.last: expected either \"first\" or \"last\""},
      {"[source.A]\nid = 1\nlabel = '" + std::string(64, 'x') + "'\n",
       "f:3:9: source.A.label: expected a text of at most 63 bytes, found 64"},
      {"[source.A]\nid = 1\nlabel = \"a\\u0000b\"\n",
       "f:3:9: source.A.label: expected a text without zero characters"},
  };
  for (const Case& one : cases)
    EXPECT_EQ(first_error(one.text).substr(0, one.error.size()), one.error) << one.text;
}

TEST(ScenarioErrors, SeveralInOneRunUpToTheLimit) {
  const auto two = parse_scenario("[[system]]\naddress = 1\nnam = 2\n", kNow);
  ASSERT_EQ(two.errors.size(), 2u);
  EXPECT_EQ(two.errors[1].line, 3u);

  std::string many = "[[system]]\naddress = '127.0.0.1'\n";
  for (int i = 0; i < 100; ++i)
    many += "k" + std::to_string(i) + " = 0\n";
  EXPECT_EQ(parse_scenario(many, kNow).errors.size(), 20u);
}

TEST(Scenario, CopiesSystemsOnFollowingAddresses) {
  const auto parsed = parse_scenario(
      "[[system]]\nname = 's'\naddress = '127.0.0.254'\ncount = 500\n[system.broker]\nport = 9\n",
      kNow);
  ASSERT_TRUE(parsed.errors.empty());
  ASSERT_EQ(parsed.scenario.systems.size(), 500u);
  EXPECT_EQ(parsed.scenario.systems[2].address, 0x7F000100u);
  EXPECT_EQ(parsed.scenario.systems[499].name, "s-500");
  EXPECT_EQ(parsed.scenario.systems[499].broker.port, 9);
}

TEST(Scenario, CopiesClassesMetricsAndInstances) {
  const auto parsed = parse_scenario(
      "[source.A]\nid = 1\n[[source.A.class]]\nid = 10\nname = 'C'\ncount = 251\n"
      "[[source.A.class.metric]]\nid = 7\nname = 'M'\ncount = 500\n"
      "[[source.A.class.instance]]\nid = 3\nname = 'I'\n"
      "[[system]]\naddress = '127.0.0.1'\nrepository = [{source = 'A'}]\n",
      kNow);
  ASSERT_TRUE(parsed.errors.empty()) << error_text("f", parsed.errors.front());
  const DataSource& source = *parsed.scenario.systems[0].repositories[0].source;
  ASSERT_EQ(source.classes.size(), 251u);
  EXPECT_EQ(source.classes[250].id, 260u);
  EXPECT_EQ(source.classes[250].name, "C_251");
  EXPECT_EQ(source.classes[250].flags, kSummarizableFlag | kInstancesFlag);
  ASSERT_EQ(source.classes[3].metrics.size(), 500u);
  EXPECT_EQ(source.classes[3].metrics[499].id, 506u);
  EXPECT_EQ(source.classes[3].metrics[499].name, "M_500");
}

TEST(ScenarioErrors, CopiesThatWouldFillTheMemory) {
  const std::string cases[] = {
      "[source.A]\nid = 1\n[[source.A.class]]\nid = 1\nname = 'C'\ncount = 4000\n"
      "[[source.A.class.metric]]\nid = 1\nname = 'M'\ncount = 4000\n",
      "[source.A]\nid = 1\n[[source.A.class]]\nid = 1\nname = 'C'\ncount = 4000\n"
      "rows = [" +
          [] {
            std::string rows;
            for (int i = 0; i < 200; ++i)
              rows += "[1],";
            return rows;
          }() +
          "]\n",
      "[[system]]\naddress = '127.0.0.1'\ncount = 20000\n[[system.mapper.element]]\n"
      "interface = 'rep'\nendpoint = '1'\ncopies = 100000\n",
  };
  for (const std::string& text : cases)
    EXPECT_NE(first_error(text).find("parts in the whole scenario"), std::string::npos)
        << first_error(text);
}

TEST(Scenario, TimesOfRows) {
  struct Case {
    std::string keys;
    std::int32_t first;
    std::int32_t last;
  };
  const Case cases[] = {
      {"", 0, 0},
      {"rows = 1\ninterval = 300\n", 1'700'000'100, 1'700'000'100},
      {"rows = 3\ninterval = 3600\n", 1'699'999'200 - 7200, 1'699'999'200},
      {"rows = 3\ninterval = 60\nlast = 'now'\n", 1'699'999'980, 1'700'000'100},
      {"rows = 3\ninterval = 60\nlast = 'now-100'\n", 1'699'999'880, 1'700'000'000},
      {"rows = 2\ninterval = 60\nfirst = 1000\n", 1000, 1060},
      {"rows = 2\ninterval = 60\nfirst = 2024-02-29T12:00:00Z\n", 1709208000, 1709208060},
      {"rows = 2\ninterval = 60\nfirst = 2024-02-29T12:00:00\n", 1709208000, 1709208060},
      {"rows = 2\ninterval = 60\nfirst = 2024-02-29T12:00:00+01:00\n", 1709204400, 1709204460},
      {"rows = 2\ninterval = 60\nfirst = 1000\nlast_x = 0\n", 1000, 0},
      {"rows = [[100], [200]]\n", 100, 200},
      {"rows = [[-100], [0]]\n", 0, 0},
      {"rows = [[-100]]\n", 1'700'000'000, 1'700'000'000},
  };
  for (const Case& one : cases) {
    const auto parsed =
        parse_scenario("[source.A]\nid = 1\n[[source.A.class]]\nid = 1\nname = 'C'\n" + one.keys +
                           "[[system]]\naddress = '127.0.0.1'\nrepository = "
                           "[{source = 'A'}]\n",
                       kNow);
    if (one.keys == "rows = [[-100], [0]]\n") {
      ASSERT_EQ(parsed.errors.size(), 1u);
      EXPECT_NE(parsed.errors[0].text.find("rising order"), std::string::npos);
      continue;
    }
    ASSERT_TRUE(parsed.errors.empty()) << one.keys << error_text("f", parsed.errors.front());
    const ClassData& data = parsed.scenario.systems[0].repositories[0].source->classes[0];
    EXPECT_EQ(data.first_x, one.first) << one.keys;
    EXPECT_EQ(data.last_x, one.last) << one.keys;
  }
}

TEST(Scenario, ServersTakeTheSystemsNetworkAndTheirOwn) {
  const auto parsed = parse_scenario(
      "[[system]]\naddress = '127.0.0.1'\n"
      "network = {seed = 4, incoming = {loss = 0.25, delay_ms = 2}, outgoing = {duplication = 1}}\n"
      "[system.mapper]\nmode = 'silent'\nnetwork = {seed = 5, outgoing = {truncation = 0.5}}\n"
      "[system.alarm]\nbyte_order = 'big'\ncall_back = 'none'\nbehaviour = [{operation = 'ag_Ping',"
      " late_ms = 5, after = 1, times = 2, fault = 0x1C000002}]\n",
      kNow);
  ASSERT_TRUE(parsed.errors.empty()) << error_text("f", parsed.errors.front());
  const System& system = parsed.scenario.systems[0];
  ASSERT_TRUE(system.alarm);
  EXPECT_EQ(system.alarm->server.network.incoming->loss, 0.25);
  EXPECT_EQ(system.alarm->server.network.incoming->delay_max.count(), 2000);
  EXPECT_NE(system.alarm->server.network.incoming->seed,
            system.alarm->server.network.outgoing->seed);
  EXPECT_FALSE(system.alarm->server.little_endian);
  EXPECT_EQ(system.alarm->server.behaviours[0].fault, 0x1C000002u);
  EXPECT_EQ(system.mapper.server.state, ServerState::mute);
  EXPECT_FALSE(system.mapper.server.network.incoming);
  EXPECT_EQ(system.mapper.server.network.outgoing->truncation, 0.5);
}

TEST(Scenario, EveryScenarioThatIsDeliveredIsSound) {
  std::size_t checked = 0;
  for (const auto& entry : std::filesystem::directory_iterator(ZT_SCENARIOS)) {
    if (entry.path().extension() != ".toml")
      continue;
    const std::string path = entry.path().string();
    for (const auto& error : load_scenario(path, kNow).errors)
      ADD_FAILURE() << error_text(path, error);
    ++checked;
  }
  EXPECT_GE(checked, 2u);
}

TEST(Scenario, AFileThatCannotBeReadIsSaid) {
  EXPECT_EQ(error_text("/no", load_scenario("/no/such/file", kNow).errors.at(0)),
            "/no: the file cannot be read: No such file or directory");
}

}  // namespace
}  // namespace agent
