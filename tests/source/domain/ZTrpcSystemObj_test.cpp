// SPDX-License-Identifier: Apache-2.0
// The connected system: probe, version, listing, selection of a server, and the messages that each
// failure leaves.

#include "source/domain/ZTrpcSystemObj.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "scripted_agent.h"

namespace {

// What a connection has recorded.
class System : public RPC_MONITORED_SYSTEM_OBJ {
 public:
  explicit System(SystemKey key = kLoopback) : RPC_MONITORED_SYSTEM_OBJ(key, "127.0.0.1") {}
  int set() const { return objErrorMessageSet; }
  int number() const { return objErrorMessageNum; }
  int repository_number() const { return objRepErrorMessageNum; }
  const std::string& cause() const { return objErrorCause; }
  const std::string& current() const { return objServerName; }
  const std::string& full_name() const { return objServerFullName; }
  SystemKey current_key() const { return objServerKey; }
  int slot() const { return objSocketIndex; }
  const zt_RPCinfo_t& record() const { return fRPCinfo; }
  void forget() { ForgetMessages(); }
  void hold(const char* collector) {
    struct Info : BASIC_SERVER_INFO_OBJ {
      explicit Info(const char* text) : BASIC_SERVER_INFO_OBJ(nullptr, 1) {
        snprintf(objCollector, sizeof objCollector, "%s", text);
      }
    };
    objServerInfo = std::make_unique<Info>(collector);
  }
};

void script_three_servers() {
  agent = {};
  agent.servers = {{"", "FIRST", 11, "/one", 2001},
                   {"Second label", "SECOND", 12, "/two", 2002},
                   {"", "THIRD", 13, "/three", 2003}};
}

std::string endpoint_of(RPC_BINDING_HANDLE binding) {
  if (binding == nullptr)
    return "none";
  char* text = nullptr;
  RpcBindingToStringBindingA(binding, &text);
  const std::string result = text;
  RpcStringFreeA(&text);
  return result;
}

TEST(RpcSystem, ListsEveryServerAndBindsTheOnlyOne) {
  script_three_servers();
  System three;
  EXPECT_EQ(1, three.ValidObj());
  EXPECT_EQ(3, three.ReturnServerCount());
  EXPECT_EQ((std::vector<std::string>{"FIRST", "Second label", "THIRD"}),
            three.ReturnDataSourceNames());
  EXPECT_EQ((std::vector<std::string>{"/one", "/two", "/three"}), three.ReturnRepositoryPaths());
  EXPECT_EQ((std::vector<std::string>{"2001", "2002", "2003"}), three.ReturnRepositoryEndPoints());
  EXPECT_EQ("FIRST", three.current());
  EXPECT_EQ("127.0.0.1:FIRST", three.full_name());
  EXPECT_EQ("none", endpoint_of(three.record().rpc_handle));
  EXPECT_EQ(0, agent.records_held);

  script_one_server("ONLY");
  const System one;
  EXPECT_EQ("ncadg_ip_udp:127.0.0.1[2001]", endpoint_of(one.record().rpc_handle));
  EXPECT_EQ(ZT_RPC_V2, one.record().version);
}

TEST(RpcSystem, SelectsByNameOrKey) {
  struct Case {
    const char* name;
    SystemKey key;
    error_status_t status;
    const char* current;
    const char* bound;
  };
  const Case cases[] = {
      {"Second label", 0, 0, "Second label", "ncadg_ip_udp:127.0.0.1[2002]"},
      {"SECOND", 0, 0x4C010001, "FIRST", "none"},
      {"third", 13, 0x4C010001, "FIRST", "none"},
      {nullptr, 13, 0, "THIRD", "ncadg_ip_udp:127.0.0.1[2003]"},
      {nullptr, 99, 0x4C010001, "FIRST", "none"},
      {nullptr, 0, 0, "FIRST", "none"},
      {nullptr, -5, 0, "FIRST", "ncadg_ip_udp:127.0.0.1[2001]"},
  };
  for (const Case& test : cases) {
    script_three_servers();
    System system;
    EXPECT_EQ(test.status, system.BindToServer("127.0.0.1", test.name, test.key));
    EXPECT_EQ(test.current, system.current());
    EXPECT_EQ(test.bound, endpoint_of(system.record().rpc_handle));
    EXPECT_EQ(3, system.ReturnServerCount()) << "the lists are made anew, not added to";
    EXPECT_EQ(0, agent.records_held);
    if (test.status != 0) {
      EXPECT_EQ(11, system.set());
      EXPECT_EQ(43, system.number());
      system.RMSOHandleError(test.status);
      EXPECT_EQ(43, system.number());
      EXPECT_EQ(2, system.repository_number());
    }
  }
}

TEST(RpcSystem, MapsStatusesToRepositoryMessages) {
  script_three_servers();
  System system;
  struct Case {
    error_status_t status;
    int message;
  };
  std::vector<Case> cases = {{101, 101},       {120, 120},       {300, -1},        {301, 301},
                             {0x4C01000A, 17}, {0x4C01000B, 18}, {0x4C01000C, 90}, {0x4C010000, 90},
                             {1722, 90},       {100, 90},        {302, 90}};
  for (error_status_t i = 0; i < 9; ++i)
    cases.push_back({0x4C010001 + i, static_cast<int>(2 + i)});
  for (const Case& test : cases) {
    system.forget();
    system.RMSOHandleError(test.status);
    EXPECT_EQ(test.message, system.repository_number()) << test.status;
    EXPECT_EQ(11, system.set());
    EXPECT_EQ(32, system.number());
    EXPECT_EQ(test.message == 90, system.cause() == zt_status_text(test.status)) << test.status;
  }
  EXPECT_EQ("Couldn't get DCE message text for status 305419896.", zt_status_text(0x12345678));
}

TEST(RpcSystem, SharesAndBoundsTheProbeConnections) {
  script_three_servers();
  {
    auto first = std::make_unique<System>();
    const System second;
    EXPECT_EQ(first->slot(), second.slot());
    EXPECT_GT(first->ReturnSocketFile(), 0);
    const int slot = first->slot();
    first.reset();
    const SystemKey other = kLoopback + (60 << 16);
    listen_on(other);
    EXPECT_EQ(slot, System(other).slot()) << "the slot is free again";
  }
  std::vector<std::unique_ptr<System>> systems;
  for (int i = 0; i < 51; ++i) {
    if (i != 0)
      listen_on(kLoopback + (i << 16));
    systems.push_back(std::make_unique<System>(kLoopback + (i << 16)));
  }
  EXPECT_EQ(1, systems[49]->ValidObj());
  EXPECT_EQ(0, systems[50]->ValidObj());
  EXPECT_EQ(11, systems[50]->set());
  EXPECT_EQ(4, systems[50]->number());
  EXPECT_EQ(-1, systems[50]->ReturnSocketFile());
}

TEST(RpcSystem, CountedUsersKeepTheirSlot) {
  script_three_servers();
  System system;
  EXPECT_EQ(system.slot(), system.AllocateSocket(kLoopback, 1));
  EXPECT_EQ(system.slot(), system.AllocateSocket(kLoopback, 1));
  system.DeallocateSocket(kLoopback);
  EXPECT_GT(system.ReturnSocketFile(), 0);
  system.DeallocateSocket(kLoopback);
  EXPECT_EQ(0, system.ReturnSocketFile());
  system.CancelDuplicateConnection();
  EXPECT_EQ(-1, system.ReturnSocketFile());
  system.ConnectionLost();
  EXPECT_EQ(0, system.ValidObj());
}

TEST(RpcSystem, NeedsAKey) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(System(0), ::testing::ExitedWithCode(1),
              "Must have a valid system_key RPC_MONITORED_SYSTEM constructor");
}

TEST(RpcSystem, KnowsTheCollectorByItsName) {
  script_three_servers();
  System system;
  EXPECT_EQ(0, system.IsTAMBO());
  for (const char* yes : {"TAMBO", "TAMBO 4.1"}) {
    system.hold(yes);
    EXPECT_EQ(1, system.IsTAMBO());
  }
  for (const char* no : {"", "TAMB", "tambo", "XTAMBO"}) {
    system.hold(no);
    EXPECT_EQ(0, system.IsTAMBO());
  }
}

}  // namespace
