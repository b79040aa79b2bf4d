// SPDX-License-Identifier: Apache-2.0
#include "agent/endpoint_map.h"

#include <gtest/gtest.h>

#include "agent/mapper_interface.h"

namespace agent {
namespace {

constexpr uuid_t kRep = {0x5b3c82a0, 0x17e4, 0, 2, 10, {0x14, 0x1e, 0x28, 0, 0, 0}};
constexpr uuid_t kObject = {1, 2, 3, 4, 5, {6, 7, 8, 9, 10, 11}};

class Inquiries : public testing::Test {
 protected:
  Inquiries() {
    for (const auto& [major, minor] : {std::pair<int, int>{1, 9}, {2, 0}, {2, 1}, {3, 0}})
      add(kRep, major, minor, {});
    add(kObject, 2, 0, kObject);
    map_.add(raw_entry(
        MapElement{{}, 0, 0, "", "", "", kObject, "odd", std::vector<std::byte>(3), 1, false}));
  }

  void add(const uuid_t& id, int major, int minor, const uuid_t& object) {
    const rpc::Tower tower{
        {id, static_cast<std::uint16_t>(major), static_cast<std::uint16_t>(minor)},
        "ncadg_ip_udp",
        "10.1.2.3",
        std::to_string(1000 + map_.size())};
    ASSERT_TRUE(map_.add(tower, object, "annotation"));
  }

  // The indexes of all matches, as text.
  std::string found(const MapInquiry& inquiry) const {
    std::string text;
    for (std::size_t i = map_.find(inquiry, 0); i < map_.size(); i = map_.find(inquiry, i + 1))
      text += std::to_string(i);
    return text;
  }

  EndpointMap map_;
};

TEST_F(Inquiries, FindByTypeAndVersion) {
  const rpc_if_id_t rep20{kRep, 2, 0};
  const rpc_if_id_t rep21{kRep, 2, 1};
  struct Case {
    const char* name;
    MapInquiry inquiry;
    const char* found;
  };
  const Case cases[] = {
      {"all", {RPC_C_EP_ALL_ELTS, {}, {}, 0}, "012345"},
      {"any version", {RPC_C_EP_MATCH_BY_IF, {}, rep20, RPC_C_VERS_ALL}, "0123"},
      {"compatible", {RPC_C_EP_MATCH_BY_IF, {}, rep20, RPC_C_VERS_COMPATIBLE}, "12"},
      {"compatible with 2.1", {RPC_C_EP_MATCH_BY_IF, {}, rep21, RPC_C_VERS_COMPATIBLE}, "2"},
      {"exact", {RPC_C_EP_MATCH_BY_IF, {}, rep20, RPC_C_VERS_EXACT}, "1"},
      {"major", {RPC_C_EP_MATCH_BY_IF, {}, rep21, RPC_C_VERS_MAJOR_ONLY}, "12"},
      {"up to", {RPC_C_EP_MATCH_BY_IF, {}, rep20, RPC_C_VERS_UPTO}, "01"},
      {"object", {RPC_C_EP_MATCH_BY_OBJ, kObject, {}, 0}, "45"},
      {"nil object", {RPC_C_EP_MATCH_BY_OBJ, uuid_t{}, {}, 0}, "0123"},
      {"both",
       {RPC_C_EP_MATCH_BY_BOTH, kObject, rpc_if_id_t{kObject, 2, 0}, RPC_C_VERS_EXACT},
       "4"},
      {"both, of different entries",
       {RPC_C_EP_MATCH_BY_BOTH, kObject, rep20, RPC_C_VERS_EXACT},
       ""},
  };
  for (const Case& one : cases) {
    EXPECT_TRUE(one.inquiry.sound()) << one.name;
    EXPECT_EQ(found(one.inquiry), one.found) << one.name;
  }
  EXPECT_FALSE((MapInquiry{4, kObject, rep20, RPC_C_VERS_ALL}).sound());
  EXPECT_FALSE((MapInquiry{RPC_C_EP_MATCH_BY_IF, {}, {}, RPC_C_VERS_ALL}).sound());
  EXPECT_FALSE((MapInquiry{RPC_C_EP_MATCH_BY_OBJ, {}, {}, 0}).sound());
  EXPECT_FALSE((MapInquiry{RPC_C_EP_MATCH_BY_IF, {}, rep20, 0}).sound());
  EXPECT_FALSE((MapInquiry{RPC_C_EP_MATCH_BY_IF, {}, rep20, 6}).sound());
}

// Answers of the mapper: numbers of entries, status, and whether the handle stays open.
class Batches : public Inquiries {
 protected:
  struct Answer {
    std::uint32_t entries = 0;
    error_status_t status = 0;
  };
  Answer ask(MapperInterface& mapper, std::uint32_t most, std::uint32_t client = 1,
             std::uint32_t type = RPC_C_EP_ALL_ELTS) {
    rpc::server::CallInfo call;
    call.client.time_low = client;
    rpc::server::Results<ept_entry_t> entries(most);
    Answer answer;
    mapper.ept_lookup(call, type, nullptr, nullptr, RPC_C_VERS_ALL, &handle_, most, &answer.entries,
                      entries, &answer.status);
    return answer;
  }

  static EndpointMapper batches_of(std::uint32_t most) {
    EndpointMapper settings;
    settings.batch = most;
    return settings;
  }

  rpc::WireContext handle_;
};

TEST_F(Batches, GoOnUntilTheMapIsAtItsEnd) {
  MapperInterface mapper(map_, batches_of(4));
  Answer answer = ask(mapper, 64);
  EXPECT_EQ(answer.entries, 4u);
  EXPECT_FALSE(handle_.null());
  answer = ask(mapper, 1);
  EXPECT_EQ(answer.entries, 1u);
  EXPECT_FALSE(handle_.null());
  answer = ask(mapper, 64);
  EXPECT_EQ(answer.entries, 1u);
  EXPECT_EQ(answer.status, 0u);
  EXPECT_TRUE(handle_.null());
  EXPECT_EQ(mapper.open_inquiries(), 0u);
}

TEST_F(Batches, AnEmptyMapHasNothingRegistered) {
  const EndpointMap empty;
  MapperInterface mapper(empty, batches_of(4));
  EXPECT_EQ(ask(mapper, 64).status, rpc::ept::kNotRegistered);
  EXPECT_TRUE(handle_.null());
}

TEST_F(Batches, CannotPerformWithoutRoomOrInterface) {
  MapperInterface mapper(map_, batches_of(4));
  EXPECT_EQ(ask(mapper, 0).status, rpc::ept::kCannotPerform);
  EXPECT_EQ(ask(mapper, 9, 1, RPC_C_EP_MATCH_BY_IF).status, rpc::ept::kCannotPerform);
  EXPECT_EQ(ask(mapper, 9, 1, 77).status, rpc::ept::kCannotPerform);
}

TEST_F(Batches, FailAfterSoManyElementsOfTheListing) {
  EndpointMapper settings = batches_of(2);
  settings.fail_after = 3;
  MapperInterface mapper(map_, settings);
  EXPECT_EQ(ask(mapper, 9).entries, 2u);
  EXPECT_EQ(ask(mapper, 9).entries, 1u);
  const Answer failed = ask(mapper, 9);
  EXPECT_EQ(failed.entries, 0u);
  EXPECT_EQ(failed.status, rpc::ept::kCannotPerform);
}

TEST_F(Batches, HandlesEndWhenFreedAndWithTheirClient) {
  MapperInterface mapper(map_, batches_of(1));
  ask(mapper, 1);
  const rpc::WireContext open = handle_;
  error_status_t status = 1;
  rpc::server::CallInfo call;
  // Freeing asks who the client is, which was only known by its activity.
  call.activity.time_low = 1;
  call.client.time_low = 9;
  mapper.ept_lookup_handle_free(call, &handle_, &status);
  EXPECT_TRUE(handle_.null());
  handle_ = open;
  EXPECT_THROW(ask(mapper, 1), rpc::server::Fault);

  handle_ = {};
  ask(mapper, 1, 5);
  mapper.run_down(uuid_t{5, 0, 0, 0, 0, {}});
  EXPECT_THROW(ask(mapper, 1, 5), rpc::server::Fault);
}

TEST_F(Batches, TheOldestInquiryGivesWay) {
  MapperInterface mapper(map_, batches_of(1));
  ask(mapper, 1);
  const rpc::WireContext oldest = handle_;
  for (std::size_t i = 0; i < MapperInterface::kMostInquiries; ++i) {
    handle_ = {};
    ask(mapper, 1);
  }
  EXPECT_EQ(mapper.open_inquiries(), MapperInterface::kMostInquiries);
  EXPECT_EQ(ask(mapper, 1).entries, 1u);
  handle_ = oldest;
  EXPECT_THROW(ask(mapper, 1), rpc::server::Fault);
}

}  // namespace
}  // namespace agent
