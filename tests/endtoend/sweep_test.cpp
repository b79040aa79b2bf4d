// SPDX-License-Identifier: Apache-2.0
// The connection check over databases that ztsys made.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/endtoend/catalog_text.h"
#include "tests/endtoend/harness.h"
#include "tests/endtoend/scenario_text.h"
#include "tests/support/settings_text.h"

namespace endtoend {
namespace {

// An installation with a data folder of its own.
class Installation {
 public:
  Installation() {
    std::filesystem::create_directory(folder_.path() / "datafiles");
    const auto build = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
    registry_ = folder_.write(
        "zentrace.reg",
        test::settings_text((build / "share/zentrace").string(), folder_.path().string()));
  }

  std::map<std::string, std::string> environment() const {
    return {{"ZT_REGISTRY", registry_}, {"ZT_RPC_TIMEOUT", "0"}};
  }
  void ztsys(const std::vector<std::string>& arguments) const {
    const Result result = run("ztsys", arguments, environment());
    ASSERT_EQ(result.status, 0) << result.err;
  }
  Result check(std::vector<std::string> arguments = {"-zt"}) const {
    return ztcomm(arguments, environment());
  }
  std::filesystem::path database() const { return folder_.path() / "datafiles/ztdb"; }

 private:
  TemporaryFolder folder_;
  std::string registry_;
};

const std::string kHeading = heading("ztcomm -zt", "console", "127.0.0.2");
const std::string kTable =
    "Checking connection to all systems in Zentrace system database:\n"
    "\n"
    "  Status            System\n"
    "  ----------------- ------------------------------------------\n";

std::string level_note() {
  return message(20, 203, "0") + "\n";
}

std::string system_at(int last, std::string_view settings = {}, std::string_view alarm = {}) {
  return "[[system]]\naddress = \"127.0.1." + std::to_string(last) + "\"\n" +
         std::string(settings) +
         "[[system.repository]]\nsource = \"ORDERS\"\nport = " + std::to_string(1040 + last) +
         "\n" + std::string(alarm) + "\n";
}

constexpr std::string_view kSource = "[source.ORDERS]\nid = 1\npath = \"/var/opt/orders\"\n";
constexpr std::string_view kAlarm = "[system.alarm]\n";

std::string every_outcome() {
  return std::string(kSource) + system_at(1, {}, kAlarm) +
         system_at(2, "broker = {mode = \"refused\"}\n", kAlarm) +
         system_at(3, "broker = {version = \"1.9\"}\n", kAlarm) + system_at(4) +
         system_at(5, "broker = {mode = \"silent\"}\n", kAlarm) +
         system_at(6, {}, "state = \"mute\"\n[system.alarm]\n") +
         system_at(7, {}, "behaviour = [{silent = true}]\n[system.alarm]\n") +
         system_at(8, {}, "[system.alarm]\nbehaviour = [{operation = \"ag_Ping\", status = 5}]\n");
}

// One after another, many at once, and ztsys check: the same word for every system.
TEST(Sweep, GivesEverySystemItsLineInTheOrderOfTheFileHoweverManyAreAskedAtOnce) {
  const Agent agent(every_outcome());
  const Installation installation;
  // The unreachable one has no route, and one is known by its address alone.
  for (const std::string system :
       {"golf", "192.0.2.1", "alpha", "bravo", "echo", "charlie", "foxtrot", "127.0.1.4", "hotel"})
    installation.ztsys({"add", system});
  const Result result = installation.check();
  EXPECT_EQ(result.out, kHeading + kTable +
                            "  Failed ---------- golf\n"
                            "  Not Available --- 192.0.2.1\n"
                            "  Succeeded ------- alpha\n"
                            "  No Halvex ------- bravo\n"
                            "  Failed ---------- echo\n"
                            "  Not Supported --- charlie\n"
                            "  Failed ---------- foxtrot\n"
                            "  Failed ---------- delta\n"
                            "  Failed ---------- hotel\n"
                            "\n");
  EXPECT_EQ(result.err, level_note());
  EXPECT_EQ(result.status, 0);
  // One after another, too.
  auto environment = installation.environment();
  environment["ZT_SWEEP_JOBS"] = "1";
  EXPECT_EQ(ztcomm({"-zt"}, environment).out, result.out);
}

TEST(Sweep, ANameThatNoLongerResolvesHasFailed) {
  const Agent agent(every_outcome());
  const Installation installation;
  for (const std::string system : {"192.0.2.1", "hotel", "alpha"})
    installation.ztsys({"add", system});
  // The name is taken out of the record, as a host is taken out of the name service.
  std::string file;
  {
    std::ifstream in(installation.database(), std::ios::binary);
    file.assign(std::istreambuf_iterator<char>(in), {});
  }
  const std::size_t at = file.find(std::string("hotel\0\0\0\0", 9));
  ASSERT_NE(at, std::string::npos);
  file.replace(at, 7, std::string("no\33ody\0", 7));
  std::ofstream(installation.database(), std::ios::binary) << file;

  const Result result = installation.check();
  EXPECT_EQ(result.out, kHeading + kTable +
                            "  Not Available --- 192.0.2.1\n"
                            "  Failed ---------- no?ody\n"
                            "  Succeeded ------- alpha\n"
                            "\n");
  EXPECT_EQ(result.err, level_note());
}

TEST(Sweep, LeavesTheTargetToTheChecksThatFollow) {
  const Agent agent(every_outcome());
  const Installation installation;
  for (const std::string system : {"bravo", "golf"})
    installation.ztsys({"add", system});
  const Result result = installation.check({"-s", "alpha", "-zt", "-r"});
  const std::string expected = heading_of_alpha("ztcomm -s alpha -zt -r") + kTable +
                               "  No Halvex ------- bravo\n"
                               "  Failed ---------- golf\n"
                               "\n"
                               "Elements of the endpoint map or location broker.\n\n"
                               "  <object>         nil\n"
                               "  <interface id>   5b3c82a0-17e4-0000-020a-141e28000000\n"
                               "  <string binding> ncadg_ip_udp:127.0.1.1[1041]\n";
  EXPECT_EQ(result.out.substr(0, expected.size()), expected);
  EXPECT_EQ(result.out.find("127.0.1.7"), std::string::npos);
  EXPECT_EQ(result.err, level_note());
}

TEST(Sweep, SeesWhatZtsysChanged) {
  const Agent agent(every_outcome());
  const Installation installation;
  for (const std::string system : {"127.0.1.1", "bravo", "charlie", "delta"})
    installation.ztsys({"add", system});
  installation.ztsys({"delete", "--yes", "bravo"});
  installation.ztsys({"rename", "127.0.1.1", "alpha"});
  EXPECT_EQ(installation.check().out, kHeading + kTable +
                                          "  Succeeded ------- alpha\n"
                                          "  Not Supported --- charlie\n"
                                          "  Failed ---------- delta\n"
                                          "\n");
  installation.ztsys({"delete", "--yes", "127.0.1.1"});
  installation.ztsys({"delete", "--yes", "delta"});
  EXPECT_EQ(installation.check().out, kHeading + kTable +
                                          "  Not Supported --- charlie\n"
                                          "\n");
  // A new system may take the place of one that went; check and list agree where it stands.
  installation.ztsys({"add", "bravo"});
  installation.ztsys({"add", "alpha"});
  std::string expected = kHeading + kTable;
  const Result list = run("ztsys", {"list", "--json"}, installation.environment());
  const std::map<std::string, std::string> lines = {{"alpha", "  Succeeded ------- alpha\n"},
                                                    {"bravo", "  No Halvex ------- bravo\n"},
                                                    {"charlie", "  Not Supported --- charlie\n"}};
  const std::string mark = "{\"name\": \"";
  std::size_t systems = 0;
  for (std::size_t at = 0; (at = list.out.find(mark, at)) != std::string::npos; ++systems) {
    at += mark.size();
    expected += lines.at(list.out.substr(at, list.out.find('"', at) - at));
  }
  EXPECT_EQ(systems, 3U);
  EXPECT_EQ(installation.check().out, expected + "\n");
}

}  // namespace
}  // namespace endtoend
