// SPDX-License-Identifier: Apache-2.0
// The stubs of the endpoint mapper. What they refuse and send beyond this, and the management call,
// is in tests/platform/rpc/endpoint_inquiry_test.cpp.

#include <gtest/gtest.h>

#include <cstring>

#include "epm.h"
#include "epm_server.h"
#include "platform/rpc/stub/skeleton.h"
#include "platform/rpc/stub/stub.h"
#include "tests/idl/stub_runtime.h"
#include "tests/support/rpc_bytes.h"

namespace stub_test {
namespace {

using rpc::FailureKind;
using rpc::test::hex;
using rpc::test::hex_text;

constexpr uuid_t kRep{0x5b3c82a0, 0x17e4, 0, 0x02, 0x0a, {0x14, 0x1e, 0x28, 0, 0, 0}};
const char kNull[] = "00000000 00000000 00000000 00000000 00000000";

class Mapper : public epm_Server {
 public:
  void ept_lookup(const rpc::server::CallInfo&, std::uint32_t inquiry_type, const uuid_t* object,
                  const ept_if_id_t* interface_id, std::uint32_t vers_option,
                  rpc::WireContext* entry_handle, std::uint32_t max_ents, std::uint32_t* num_ents,
                  ept_entry_t* entries, error_status_t* status) override {
    heard = std::to_string(inquiry_type) + (object == nullptr ? " all" : " object") +
            (interface_id == nullptr ? " any " : " interface ") + std::to_string(vers_option) +
            (entry_handle->null() ? " first " : " next ") + std::to_string(max_ents);
    *entry_handle = kView;
    *num_ents = 3;
    for (std::uint32_t i = 0; i < 3; ++i) {
      entries[i].object = {i, 0, 0, 0, 0, {}};
      std::strcpy(entries[i].annotation, i == 0 ? "" : "repository");
    }
    // The first two share one tower, the third has none.
    entries[0].tower = std::make_shared<twr_t>(twr_t{3, {1, 2, 3}});
    entries[1].tower = entries[0].tower;
    *status = 0;
  }
  void ept_lookup_handle_free(const rpc::server::CallInfo&, rpc::WireContext* entry_handle,
                              error_status_t* status) override {
    heard = entry_handle->null() ? "free null" : "free";
    *entry_handle = {};
    *status = 0;
  }

  std::string heard;
};

struct Lookup {
  RPC_CONTEXT_HANDLE handle = nullptr;
  std::uint32_t number = 0;
  std::vector<ept_entry_t> entries = std::vector<ept_entry_t>(64);
  error_status_t status = 99;

  void run(const Binding& binding, const uuid_t* object, const ept_if_id_t* interface_id) {
    ept_lookup(binding, 1, object, interface_id, 3, &handle,
               static_cast<std::uint32_t>(entries.size()), &number, entries.data(), &status);
  }
};

TEST(EndpointMapperStub, LooksUpEntriesInBothByteOrders) {
  const Binding binding;
  const ept_if_id_t interface_id{kRep, 2, 0};
  for (const bool little_endian : {true, false}) {
    Mapper mapper;
    Runtime runtime(served_by(mapper, little_endian));
    Lookup lookup;
    lookup.run(binding, nullptr, &interface_id);
    EXPECT_EQ(hex_text(runtime.last().request),
              "01000000 00000000 01000000 a0823c5b e4170000 020a141e 28000000 02000000 03000000 " +
                  std::string(kNull) + " 40000000");
    EXPECT_TRUE(runtime.last().operation->idempotent);
    EXPECT_EQ(runtime.last().operation->opnum, 2);
    EXPECT_EQ(mapper.heard, "1 all interface 3 first 64");
    EXPECT_EQ(lookup.status, 0u);
    ASSERT_EQ(lookup.number, 3u);
    const std::vector<std::uint8_t> octets = {1, 2, 3};
    ASSERT_NE(lookup.entries[0].tower, nullptr);
    EXPECT_EQ(lookup.entries[0].tower->tower_octet_string, octets);
    EXPECT_EQ(lookup.entries[1].tower, lookup.entries[0].tower);
    EXPECT_EQ(lookup.entries[2].tower, nullptr);
    EXPECT_STREQ(lookup.entries[0].annotation, "");
    EXPECT_STREQ(lookup.entries[2].annotation, "repository");
    EXPECT_EQ(lookup.entries[2].object.time_low, 2u);

    lookup.run(binding, &kRep, nullptr);
    EXPECT_EQ(mapper.heard, "1 object any 3 next 64");
    ept_lookup_handle_free(binding, &lookup.handle, &lookup.status);
    EXPECT_EQ(mapper.heard, "free");
    EXPECT_EQ(lookup.handle, nullptr);
    EXPECT_FALSE(runtime.last().operation->idempotent);
    EXPECT_EQ(runtime.last().operation->opnum, 4);
    // A null handle is sent, since the binding names the server.
    ept_lookup_handle_free(binding, &lookup.handle, &lookup.status);
    EXPECT_EQ(mapper.heard, "free null");
  }
}

TEST(EndpointMapperStub, RefusesHostileTowers) {
  const Binding binding;
  const struct {
    const char* tower;
    std::uint32_t status;
  } towers[] = {
      {"02000000 02000000 aabb0000", 0},
      {"03000000 02000000 aabb0000", 1783},  // maximum and length differ
      {"01080000 01080000 aabb0000", 1783},  // longer than any tower
      {"ffffffff ffffffff aabb0000", 1783},
      {"00070000 00070000 aabb0000", 1783},  // longer than the body
  };
  for (const auto& c : towers) {
    const std::string body = std::string(kNull) +
                             "01000000 40000000 00000000 01000000"
                             "00000000 00000000 00000000 00000000 05000000"
                             "00000000 01000000 00000000" +
                             c.tower + "00000000";
    Runtime runtime([&](const Call&) { return rpc::Reply{hex(body), {.little_endian = true}}; });
    Lookup lookup;
    EXPECT_EQ(raised_by([&] { lookup.run(binding, nullptr, nullptr); }).status, c.status)
        << c.tower;
  }
}

TEST(EndpointMapperStub, BoundsReplies) {
  const Binding binding;
  Runtime runtime(failing(1722));
  Lookup lookup;
  lookup.run(binding, nullptr, nullptr);
  EXPECT_EQ(lookup.status, 1722u);
  // entry: object, referent, annotation 8 + 64; tower: maximum, length, 2048 octets
  const std::size_t entry = 16 + 4 + 72 + 4 + 4 + 2048;
  const std::size_t greatest = 20 + 4 + 12 + 64 * entry + 4;
  EXPECT_GE(runtime.last().reply_limit, greatest);
  EXPECT_LE(runtime.last().reply_limit, greatest + 8);  // gaps before the towers
}

TEST(EndpointMapperSkeleton, ServesOnlyTheOperationsOfAClient) {
  Mapper mapper;
  for (const std::uint16_t opnum : std::initializer_list<std::uint16_t>{0, 1, 3, 5, 6, 7}) {
    EXPECT_EQ(mapper.operation(opnum), nullptr);
    const rpc::server::Outcome outcome = mapper.dispatch({}, opnum, {}, {}, true);
    EXPECT_EQ(outcome.kind, rpc::server::Outcome::Kind::reject);
    EXPECT_EQ(outcome.status, rpc::nca::kOperationRange);
  }
}

}  // namespace
}  // namespace stub_test
