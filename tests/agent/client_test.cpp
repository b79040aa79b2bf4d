// SPDX-License-Identifier: Apache-2.0
// The generated client stubs against running agents: views, long replies, both byte orders and
// call-backs.

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ag.h"
#include "agent/scenario.h"
#include "agent/simulator.h"
#include "platform/rpc/names/tower.h"
#include "platform/rpc/rpc.h"
#include "platform/rpc/server/server_core.h"
#include "rep.h"
#include "repFilteredView.h"
#include "repTimeFilter.h"
#include "repView.h"

namespace agent {
namespace {

using Numbers = std::vector<std::uint32_t>;

constexpr std::uint32_t kSunday = 1'704'585'600;  // 2024-01-07 00:00 UTC

// Two days of hourly rows from a Sunday's midnight.
const std::string kSource =
    "[source.A]\nid = 7\npath = '/a'\n"
    "[[source.A.class]]\nid = 3\nname = 'C'\nrows = 48\ninterval = 3600\nfirst = 1704585600\n"
    "[[source.A.class.metric]]\nid = 4\nname = 'M'\nramp = {from = 0, to = 1000, step = 1}\n";

class Clients : public testing::Test {
 protected:
  ~Clients() override { stop(); }

  void start(const std::string& text) {
    simulator_.emplace(loop_, log_, parse(text));
    ASSERT_EQ(simulator_->open(), std::vector<std::string>{});
    thread_ = std::thread([this] { loop_.run(); });
  }
  void stop() {
    for (RPC_BINDING_HANDLE& binding : bindings_)
      RpcBindingFree(&binding);
    bindings_.clear();
    if (thread_.joinable()) {
      loop_.stop();
      thread_.join();
    }
  }
  // To another scenario while the servers run, as on SIGHUP.
  void change(const std::string& text) {
    loop_.stop();
    thread_.join();
    EXPECT_EQ(simulator_->apply(parse(text)), std::vector<std::string>{});
    thread_ = std::thread([this] { loop_.run(); });
  }
  static Scenario parse(const std::string& text) {
    auto parsed = parse_scenario(text, kSunday);
    EXPECT_TRUE(parsed.errors.empty()) << error_text("text", parsed.errors.front());
    for (System& system : parsed.scenario.systems)
      system.broker.port = system.mapper.server.port = 0;
    return std::move(parsed.scenario);
  }
  // A binding to the server of the system's element.
  RPC_BINDING_HANDLE bind(std::size_t system, std::size_t element) {
    const auto& entry = simulator_->systems()[system]->endpoint_map().entry(element);
    const auto tower = rpc::decode_tower(entry.tower);
    return bind_to(tower->network_address, tower->endpoint);
  }
  RPC_BINDING_HANDLE bind_to(const std::string& address, const std::string& port) {
    const std::string text = "ncadg_ip_udp:" + address + "[" + port + "]";
    RPC_BINDING_HANDLE binding = nullptr;
    EXPECT_EQ(RpcBindingFromStringBindingA(text.c_str(), &binding), RPC_S_OK);
    bindings_.push_back(binding);
    return binding;
  }

  struct Rows {
    Numbers positions;
    Numbers integers;
    std::string characters;
  };
  Rows read(RPC_CONTEXT_HANDLE view, std::uint32_t most = 256) {
    Rows rows{Numbers(256), Numbers(4096), std::string(32768, '?')};
    std::uint32_t last[3] = {};
    zt_v2_repView_Read(view, most - 1, &last[0], 4095, &last[1], 32767, &last[2],
                       rows.positions.data(), rows.integers.data(), rows.characters.data(),
                       &status_);
    rows.positions.resize(last[0] + 1);
    rows.integers.resize(last[1] + 1);
    rows.characters.resize(last[2] + 1);
    return rows;
  }
  RPC_CONTEXT_HANDLE filter(RPC_BINDING_HANDLE server, std::int32_t start, std::int32_t stop,
                            std::int16_t type) {
    const repTimeFilter_sShiftDescriptor shift{start, stop, type};
    RPC_CONTEXT_HANDLE result = nullptr;
    zt_v2_repTimeFilter_Create(server, 0, &shift, &result, &status_);
    EXPECT_EQ(status_, 0u);
    return result;
  }

  rpc::server::EventLoop loop_;
  const Log log_;
  std::optional<Simulator> simulator_;
  std::thread thread_;
  std::vector<RPC_BINDING_HANDLE> bindings_;
  error_status_t status_ = 0;
};

TEST_F(Clients, ReadFilteredViewsThroughTheOperationsOfBaseViews) {
  start(kSource +
        "[[system]]\naddress = '127.0.0.1'\nrepository = [{source = 'A', "
        "byte_order = 'big'}]\n");
  const RPC_BINDING_HANDLE server = bind(0, 0);
  RPC_CONTEXT_HANDLE shifts = filter(server, 8 * 3600, 10 * 3600, repTimeFilter_cShiftDaily);
  RPC_CONTEXT_HANDLE copy = nullptr;
  zt_v2_repTimeFilter_Copy(shifts, &copy, &status_);
  zt_v2_repTimeFilter_Destroy(&shifts, &status_);
  EXPECT_EQ(shifts, nullptr);

  const std::uint32_t metric = 4;
  RPC_CONTEXT_HANDLE view = nullptr;
  zt_v2_repFilteredView_Create(server, 3, copy, 0, &metric, &view, &status_);
  ASSERT_EQ(status_, 0u);
  zt_v2_repTimeFilter_Destroy(&copy, &status_);
  std::uint32_t where = 0;
  zt_v2_repFilteredView_GetLastPosition(view, &where, &status_);
  EXPECT_EQ(where, kSunday + 33 * 3600);
  where = kSunday + 9 * 3600;
  zt_v2_repView_SetPosition(view, &where, &status_);
  EXPECT_EQ(where, kSunday + 9 * 3600);
  EXPECT_EQ(read(view, 2).integers, (Numbers{9, 32}));
  const Rows rest = read(view, 2);
  EXPECT_EQ(rest.positions, (Numbers{kSunday + 33 * 3600, kEndPosition}));
  EXPECT_EQ(rest.integers, (Numbers{33}));
  zt_v2_repView_Destroy(&view, &status_);
  EXPECT_EQ(view, nullptr);
  EXPECT_EQ(status_, 0u);
}

TEST_F(Clients, ListManyClassesInOneReplyAndInSeveral) {
  start(
      "[source.A]\nid = 1\n[[source.A.class]]\nid = 1\nname = 'CLASS'\ncount = 300\n"
      "[[system]]\naddress = '127.0.0.1'\nrepository = [{source = 'A'}]\n");
  const RPC_BINDING_HANDLE server = bind(0, 0);
  std::vector<rep_sTableDescriptor> tables(251);
  std::uint32_t handle = 0;
  std::uint32_t last = 0;
  zt_v2_rep_LookupTable(server, 0, &handle, 250, &last, tables.data(), &status_);
  ASSERT_EQ(status_, 0u);
  EXPECT_EQ(last, 250u);
  EXPECT_STREQ(tables[250].Descriptor.fName, "CLASS_251");
  EXPECT_EQ(handle, 251u);
  zt_v2_rep_LookupTable(server, 0, &handle, 250, &last, tables.data(), &status_);
  EXPECT_EQ(last, 48u);
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(tables[48].Descriptor.fId, 300u);
  zt_v2_rep_LookupTable(server, 77, &handle, 250, &last, tables.data(), &status_);
  EXPECT_EQ(last, 0u);
  EXPECT_EQ(tables[0].Descriptor.fId, 77u);
  zt_v2_rep_LookupTable(server, 999, &handle, 250, &last, tables.data(), &status_);
  EXPECT_EQ(status_, 0x4C010001u);
}

// Whether a server keeps its port, and its client its context, through a change of the scenario.
TEST_F(Clients, FindWhatDidNotChangeAsItWas) {
  const std::string base = kSource + "[source.B]\nid = 8\n[[system]]\naddress = '127.0.0.1'\n";
  const std::string kept = "[[system.repository]]\nsource = 'A'\n";
  start(base + kept + "[[system.repository]]\nsource = 'B'\n[system.alarm]\n");
  const RPC_BINDING_HANDLE server = bind(0, 0);
  const RPC_BINDING_HANDLE other = bind(0, 5);
  const RPC_BINDING_HANDLE alarm = bind(0, 10);
  const std::uint32_t metric = 4;
  RPC_CONTEXT_HANDLE view = nullptr;
  zt_v2_repView_Create(server, 3, 0, &metric, &view, &status_);
  ASSERT_EQ(status_, 0u);

  change(base + kept +
         "behaviour = [{operation = 'rep_LookupRepository', status = 77}]\n"
         "[system.alarm]\nstate = 'dead'\n"
         "[[system]]\naddress = '127.0.0.5'\nrepository = [{source = 'B'}]\n");
  EXPECT_EQ(read(view).integers.size(), 48u);
  rep_sRepositoryDescriptor descriptor{};
  zt_v2_rep_LookupRepository(server, &descriptor, &status_);
  EXPECT_EQ(status_, 77u);
  zt_v2_rep_LookupRepository(other, &descriptor, &status_);
  EXPECT_EQ(status_, RPC_S_SERVER_UNAVAILABLE) << "it is gone from the scenario";
  zt_v2_ag_Ping(alarm, &status_);
  EXPECT_EQ(status_, RPC_S_SERVER_UNAVAILABLE) << "it is dead";
  zt_v2_rep_LookupRepository(bind(1, 0), &descriptor, &status_);
  EXPECT_EQ(status_, 0u);

  change(base + kept + "[system.alarm]\n");
  zt_v2_ag_Ping(alarm, &status_);
  EXPECT_EQ(status_, 0u) << "it is back at its port";
  zt_v2_repView_Destroy(&view, &status_);
  EXPECT_EQ(status_, 0u);
}

TEST_F(Clients, AnswerASweepOfThousandsOfSystemsOnAFewDescriptors) {
  constexpr std::size_t kSystems = 2000;
  const auto descriptors = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  const auto before = descriptors();
  start(kSource + "[[system]]\naddress = '127.0.10.1'\ncount = " + std::to_string(kSystems) +
        "\nrepository = [{source = 'A'}]\nalarm = {}\n");
  EXPECT_LT(descriptors() - before, 200);
  rep_sRepositoryDescriptor descriptor{};
  for (std::size_t i = 0; i < kSystems; i += 199) {
    zt_v2_rep_LookupRepository(bind(i, 0), &descriptor, &status_);
    ASSERT_EQ(status_, 0u) << i;
    zt_v2_ag_Ping(bind(i, 5), &status_);
    ASSERT_EQ(status_, 0u) << i;
  }
}

}  // namespace
}  // namespace agent
