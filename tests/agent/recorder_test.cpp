// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/recorder/anonymizer.h"
#include "agent/recorder/file_texts.h"
#include "agent/recorder/scenario_writer.h"

namespace agent::recorder {
namespace {

constexpr std::uint32_t kNow = 1'700'000'000;

// A class of one text metric with the cells, on a host of several names.
std::vector<System> system_with(const std::vector<std::string>& cells) {
  auto source = std::make_shared<DataSource>();
  source->name = source->label = "SHOP";
  source->path = "/srv/shop data";
  ClassData& data = source->classes.emplace_back();
  data.name = data.label = "QUEUES";
  data.metrics.emplace_back().data_type = kTextType;
  data.metrics.front().name = "NAME";
  data.metrics.front().model = TextsModel{{""}};
  data.instances.emplace_back().name = "in";
  data.instances.front().label = "incoming orders";
  data.instances.emplace_back().name = "7";
  data.instances.back().id = 1;
  for (const std::string& cell : cells)
    data.rows.push_back({kNow, {cell}});
  std::vector<System> systems(1);
  systems.front().name = "web01.shop.example";
  systems.front().address = 0x0A010203;
  systems.front().repositories.emplace_back().source = source;
  systems.front().repositories.front().source_key = "SHOP";
  return systems;
}

TEST(Anonymizer, ReplacesTheSameByTheSameInsideTexts) {
  struct Case {
    const char* text;
    const char* made_up;
  };
  const Case cases[] = {
      {"web01", "host-1"},
      {"WEB01.shop.example  ", "host-1  "},
      {"on web01.other.example.", "on host-1."},
      {"web010 and myweb01", "web010 and myweb01"},
      {"in", "instance-1"},
      {"inner in, (in) in_", "inner instance-1, (instance-1) in_"},
      {"two Incoming orders", "two instance-2"},
      {"7", "instance-3"},
      {"7 of 17", "7 of 17"},
      {"10.1.2.3", "127.0.6.1"},
      {"from 10.9.8.7:80 to 10.9.8.7.", "from 127.0.6.2:80 to 127.0.6.2."},
      {"6.1.0-30, 1.2.3.4.5, 300.1.1.1", "6.1.0-30, 1.2.3.4.5, 300.1.1.1"},
      {"fe80::1 at 12:30:05, 00:1a:2b:3c:4d:5e", "fd00::1 at 12:30:05, fd00::2"},
      {"cp /srv/a \"/srv/a\" I/O / x", "cp /path-2 \"/path-2\" I/O / x"},
      {"C:\\Data\\x and \\\\web\\share", "/path-3 and /path-4"},
      {"", ""},
  };
  std::vector<std::string> cells;
  for (const Case& one : cases)
    cells.emplace_back(one.text);
  std::vector<System> systems = system_with(cells);
  LoopbackAddresses addresses;
  addresses.of(systems.front().address);
  anonymize(systems, addresses);
  const ClassData& data = systems.front().repositories.front().source->classes.front();
  for (std::size_t i = 0; i < data.rows.size(); ++i)
    EXPECT_EQ(std::get<std::string>(data.rows[i].cells[0]), cases[i].made_up) << cases[i].text;
  EXPECT_EQ(data.name, "CLASS_1");
}

TEST(FileTexts, AreUtf8AndTellWhatTheyLost) {
  std::vector<System> systems = system_with({"\xE9t\xE9", "caf\xC3\xA9"});
  const std::vector<ReplacedOctets> lost = make_utf8(systems);
  ASSERT_EQ(lost.size(), 1U);
  EXPECT_EQ(lost.front().where, "web01.shop.example, data source SHOP, class QUEUES");
  EXPECT_EQ(lost.front().count, 2U);
  const ClassData& data = systems.front().repositories.front().source->classes.front();
  EXPECT_EQ(data.rows[0].cells[0], Cell(std::string("?t?")));
  EXPECT_EQ(data.rows[1].cells[0], Cell(std::string("caf\xC3\xA9")));
}

// Whatever a server sends as a text, the file reads back as the same.
TEST(ScenarioWriter, WritesWhatTheReaderReads) {
  std::string odd;
  for (int c = 1; c < 0x80; ++c)
    odd += static_cast<char>(c);
  std::vector<System> systems = system_with({odd, "\"\"\"", "\\u0041", "\xC3\xA9\xF0\x9F\x98\x80"});
  System& system = systems.front();
  system.address = 0x7F000601;
  system.broker.mode = BrokerMode::malformed;
  system.broker.malformation = Malformation::length_huge;
  system.mapper.server.port = kEndpointMapperPort;
  system.mapper.fail_after = 3;
  system.mapper.failure = MapperFailure::silent;
  MapElement& element = system.mapper.elements.emplace_back();
  element.endpoint = "4711";
  element.annotation = odd.substr(0, 63);
  RepositoryServer& server = system.repositories.front();
  server.registration.registered = false;
  server.registration.annotation = server.source->label;
  server.server.behaviours.emplace_back().operation = "repView_Read";
  server.server.behaviours.front().fault = 0x1C000012;
  server.server.behaviours.emplace_back().operation = "repView_Create";
  server.server.behaviours.back().restart = true;
  server.server.state = ServerState::mute;
  const ParsedScenario parsed = parse_scenario(scenario_text(systems, {}), kNow);
  ASSERT_TRUE(parsed.errors.empty()) << error_text("f", parsed.errors.front());
  const System& read = parsed.scenario.systems.front();
  EXPECT_EQ(read.broker, system.broker);
  EXPECT_EQ(read.mapper, system.mapper);
  EXPECT_EQ(*read.repositories.front().source, *server.source);
  EXPECT_EQ(read.repositories.front().server, server.server);
  EXPECT_EQ(read.repositories.front().registration, server.registration);
}

}  // namespace
}  // namespace agent::recorder
