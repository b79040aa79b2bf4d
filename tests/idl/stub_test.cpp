// SPDX-License-Identifier: Apache-2.0
// The product's generated stubs and skeletons: every operation in both byte orders, what they send
// to the byte, and what they refuse.

#include "platform/rpc/stub/stub.h"

#include <gtest/gtest.h>

#include <map>

#include "platform/rpc/stub/ndr.h"
#include "platform/rpc/stub/skeleton.h"
#include "platform/rpc/wire/wire_bytes.h"
#include "repFilteredView.h"
#include "repTemporalView.h"
#include "repTimeFilter.h"
#include "repView.h"
#include "tests/idl/product_calls.h"
#include "tests/support/rpc_bytes.h"

namespace stub_test {
namespace {

using rpc::FailureKind;
using rpc::server::Outcome;
using rpc::test::hex;
using rpc::test::hex_text;

constexpr Raised kBadData{1783, FailureKind::local};
constexpr rpc::WireContext kView{0, {1, 2, 3, 4, 5, {6, 7, 8, 9, 10, 11}}};

rpc::Reply little(const std::string& text) {
  return {hex(text), {.little_endian = true}};
}

TEST(ProductStubs, RunEveryShapeInBothByteOrders) {
  Product product;
  for (const bool little_endian : {true, false}) {
    for (const ProductCall& call : product.calls()) {
      SCOPED_TRACE(call.name + (little_endian ? ", little-endian" : ", big-endian"));
      Runtime runtime(served_by(*call.server, little_endian));
      EXPECT_EQ(call.run(), call.results);
      EXPECT_EQ(runtime.calls(), 1u);
      EXPECT_EQ(hex_text(runtime.last().request), hex_text(hex(call.request)));
      EXPECT_FALSE(runtime.last().operation->idempotent);
    }
  }
}

// The operations by number, without the interface's name.
std::string operations(const rpc::server::Interface& interface) {
  std::string names;
  const std::size_t prefix = std::string(interface.spec().name).size() + 1;
  for (std::uint16_t opnum = 0; interface.operation(opnum) != nullptr; ++opnum)
    names +=
        (names.empty() ? "" : " ") + std::string(interface.operation(opnum)->name).substr(prefix);
  return names;
}

TEST(ProductSkeletons, HaveTheirOperationsInOrder) {
  const char* const views =
      "Create Destroy GetFirstPosition GetLastPosition GetPosition SetPosition GetXInterval Read";
  const std::map<std::string, std::string> expected = {
      {"epm", "insert delete lookup map lookup_handle_free inq_object mgmt_delete"},
      {"rep", "LookupRepository LookupTable LookupInstance LookupMetric"},
      {"repView", views},
      {"repFilteredView", views},
      {"repTemporalView",
       "Create Destroy GetFirstPosition GetLastPosition GetPosition SetPosition GetXInterval "
       "SetXInterval Read"},
      {"repTimeFilter", "Create Destroy Copy"},
      {"ag",
       "Register Unregister SetEvCFlag GetEvCFlag SetExecFlag GetExecFlag SetInterval GetInterval "
       "SetEvCError GetEvCError GetGeneralInfo RegisterZT UnregisterZT RegisterSNMP UnregisterSNMP "
       "SetZTError GetZTError SetSNMPError GetSNMPError GetSystems Ping DBChanged DeleteZT"}};
  const agent::test::Interfaces agent(std::make_shared<agent::DataSource>(), {});
  std::map<std::string, std::string> found;
  for (const rpc::server::Interface* interface : agent.all())
    found[interface->spec().name] = operations(*interface);
  EXPECT_EQ(found, expected);
}

TEST(ProductStubs, CarryTheInterfacesIdentities) {
  const struct {
    RPC_IF_HANDLE handle;
    const char* uuid;
  } cases[] = {
      {zt_v2_rep_v2_0_c_ifspec, "5b3c82a0-17e4-0000-020a-141e28000000"},
      {zt_v2_repView_v2_0_c_ifspec, "5d0e4c91-3a27-0000-020a-141e28000000"},
      {zt_v2_repTimeFilter_v2_0_c_ifspec, "5d0e3b6a-c4f9-0000-020a-141e28000000"},
      {zt_v2_repFilteredView_v2_0_c_ifspec, "5d0f9172-8e05-0000-020a-141e28000000"},
      {zt_v2_repTemporalView_v2_0_c_ifspec, "5d0e6f08-b2d6-0000-020a-141e28000000"},
      {zt_v2_ag_v2_0_c_ifspec, "5e61c7d3-a04b-0000-020a-141e32000000"},
  };
  for (const auto& c : cases) {
    uuid_t id{};
    ASSERT_EQ(UuidFromStringA(c.uuid, &id), RPC_S_OK);
    EXPECT_EQ(c.handle->id, id) << c.uuid;
    EXPECT_EQ(c.handle->version(), 2u);
  }
}

// Every byte of a reply is needed: each one cut off must be noticed. What is behind the last
// parameter does not matter.
TEST(ProductStubs, RefuseEveryTruncatedReply) {
  Product product;
  for (const bool little_endian : {true, false}) {
    for (const ProductCall& call : product.calls()) {
      rpc::Reply whole;
      {
        const Answer serve = served_by(*call.server, little_endian);
        Runtime runtime([&](const Call& c) { return whole = serve(c); });
        call.run();
      }
      for (std::size_t size = 0; size < whole.body.size(); ++size) {
        const auto end = whole.body.begin() + static_cast<std::ptrdiff_t>(size);
        const rpc::Reply cut{{whole.body.begin(), end}, whole.representation};
        Runtime runtime([&](const Call&) { return cut; });
        EXPECT_EQ(raised_by([&] { call.run(); }), kBadData) << call.name << " of " << size;
      }
      whole.body.resize(whole.body.size() + 3, std::byte{0xEE});
      Runtime runtime([&](const Call&) { return whole; });
      EXPECT_EQ(call.run(), call.results) << call.name;
    }
  }
}

TEST(ProductStubs, StoreFailuresOfCommunicationAndRaiseAllOthers) {
  Product product;
  for (const ProductCall& call : product.calls()) {
    SCOPED_TRACE(call.name);
    for (const std::uint32_t status : {1722u, 1726u, 1730u, 1130u}) {
      Runtime runtime(failing(status));
      const std::string results = call.run();
      EXPECT_EQ(results.substr(0, 4), std::to_string(status));
    }
    for (const Raised& raised : {Raised{1734, FailureKind::fault}, kBadData}) {
      Runtime runtime(failing(raised.status, raised.kind));
      EXPECT_EQ(raised_by([&] { call.run(); }), raised);
    }
  }
}

TEST(ProductStubs, LeaveTheStatusAloneWhenTheyRaise) {
  const Binding binding;
  Runtime runtime(failing(1734, FailureKind::fault));
  error_status_t status = 99;
  EXPECT_EQ(raised_by([&] { zt_v2_ag_Ping(binding, &status); }).status, 1734u);
  EXPECT_EQ(status, 99u);
}

TEST(ProductStubs, RefuseNullContextsBeforeAnythingIsSent) {
  const Binding binding;
  Runtime runtime([](const Call&) -> rpc::Reply { return {}; });
  const std::uint32_t id = 1;
  std::uint32_t number = 0;
  char character = 0;
  error_status_t status = 99;
  RPC_CONTEXT_HANDLE created = nullptr;
  const std::function<void()> calls[] = {
      [&] { zt_v2_repView_GetFirstPosition(nullptr, &number, &status); },
      [&] { zt_v2_repView_SetPosition(nullptr, &number, &status); },
      [&] {
        zt_v2_repView_Read(nullptr, 0, &number, 0, &number, 0, &number, &number, &number,
                           &character, &status);
      },
      [&] { zt_v2_repTemporalView_SetXInterval(nullptr, &number, &status); },
      [&] { zt_v2_repFilteredView_Create(binding, 1, nullptr, 0, &id, &created, &status); },
      [&] {
        zt_v2_repTemporalView_Create(binding, 1, nullptr, 1, 0, &id, 0, &id, &created, &status);
      },
      [&] { zt_v2_repTimeFilter_Copy(nullptr, &created, &status); },
  };
  for (const auto& call : calls)
    EXPECT_EQ(raised_by(call), (Raised{1775, FailureKind::local}));
  EXPECT_EQ(runtime.calls(), 0u);
  EXPECT_EQ(status, 99u);
  EXPECT_EQ(created, nullptr);
}

TEST(ProductStubs, SendNothingToDestroyANullContext) {
  Runtime runtime([](const Call&) -> rpc::Reply { return {}; });
  for (const auto destroy : {zt_v2_repView_Destroy, zt_v2_repFilteredView_Destroy,
                             zt_v2_repTemporalView_Destroy, zt_v2_repTimeFilter_Destroy}) {
    RPC_CONTEXT_HANDLE context = nullptr;
    error_status_t status = 99;
    destroy(&context, &status);
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(context, nullptr);
  }
  EXPECT_EQ(runtime.calls(), 0u);
}

TEST(ProductStubs, RefuseNullReferencePointers) {
  const Binding binding;
  Runtime runtime([](const Call&) -> rpc::Reply { return {}; });
  std::uint32_t number = 0;
  error_status_t status = 0;
  rep_sTableDescriptor table;
  const std::function<void()> calls[] = {
      [&] { zt_v2_ag_Ping(binding, nullptr); },
      [&] { zt_v2_ag_GetZTError(binding, 1, nullptr, &status); },
      [&] { zt_v2_rep_LookupRepository(binding, nullptr, &status); },
      [&] { zt_v2_rep_LookupTable(binding, 0, nullptr, 0, &number, &table, &status); },
      [&] { zt_v2_rep_LookupTable(binding, 0, &number, 0, nullptr, &table, &status); },
      [&] { zt_v2_rep_LookupTable(binding, 0, &number, 0, &number, nullptr, &status); },
      [&] { zt_v2_repView_Destroy(nullptr, &status); },
      [&] { zt_v2_repView_Create(binding, 0, 0, nullptr, nullptr, &status); },
  };
  for (const auto& call : calls)
    EXPECT_EQ(raised_by(call), (Raised{1780, FailureKind::local}));
  EXPECT_EQ(runtime.calls(), 0u);
}

TEST(ProductStubs, StoreABadBindingInTheStatus) {
  Runtime runtime([](const Call&) -> rpc::Reply { return {}; });
  error_status_t status = 0;
  zt_v2_ag_Ping(nullptr, &status);
  EXPECT_EQ(status, 1702u);
  EXPECT_EQ(runtime.calls(), 0u);
}

// A call on a context goes to the server that issued it, whatever became of the binding.
TEST(ProductStubs, CallTheServerThatIssuedTheContext) {
  agent::test::Interfaces agent(data_source(), {});
  RPC_CONTEXT_HANDLE view = nullptr;
  error_status_t status = 0;
  Runtime runtime(served_by(agent.views(), false));
  {
    const Binding binding;
    const std::uint32_t metric = 40;
    zt_v2_repView_Create(binding, 10, 0, &metric, &view, &status);
  }
  ASSERT_NE(view, nullptr);
  std::uint32_t where = 1001;
  zt_v2_repView_SetPosition(view, &where, &status);
  EXPECT_EQ(where, 1300u);
  EXPECT_EQ(runtime.last().target.network_address, "127.0.0.1");
  EXPECT_EQ(runtime.last().target.endpoint, "1045");

  const RPC_CONTEXT_HANDLE old = view;
  zt_v2_repView_Destroy(&view, &status);
  EXPECT_EQ(view, nullptr);
  EXPECT_EQ(raised_by([&] { zt_v2_repView_GetPosition(old, &where, &status); }).status, 1775u);
}

TEST(ProductStubs, KeepTheContextWhenDestroyFails) {
  RPC_CONTEXT_HANDLE view = issued_context(kView);
  error_status_t status = 0;
  {
    Runtime runtime(failing(1726));
    zt_v2_repView_Destroy(&view, &status);
    EXPECT_EQ(status, 1726u);
    EXPECT_NE(view, nullptr);
  }
  // A server that gives another handle back still holds the object.
  Runtime runtime(
      [&](const Call&) { return little("00000000 0c000000 02000300 04050607 08090a0b 07000000"); });
  zt_v2_repView_Destroy(&view, &status);
  EXPECT_EQ(status, 7u);
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(rpc::wire_context(view).id.time_low, 12u);
  rpc::store_context(&view, {}, {});
}

TEST(ProductStubs, BoundReplies) {
  const Binding binding;
  Runtime runtime(failing(1722));
  error_status_t status = 0;
  zt_v2_ag_Ping(binding, &status);
  EXPECT_EQ(runtime.last().reply_limit, 4u);
  std::uint32_t lookup = 0;
  std::uint32_t last = 0;
  std::vector<rep_sMetricDescriptor> metrics(500);
  zt_v2_rep_LookupMetric(binding, 1, 0, &lookup, 499, &last, metrics.data(), &status);
  EXPECT_EQ(runtime.last().reply_limit, 8u + 12 + 500 * (344 + 20 + 88 + 88) + 4);
  // The greatest index there is must not wrap to a small limit.
  zt_v2_rep_LookupMetric(binding, 1, 0, &lookup, 0xFFFFFFFF, &last, metrics.data(), &status);
  EXPECT_GT(runtime.last().reply_limit, std::size_t{1} << 40);
}

TEST(ProductStubs, AcceptASmallerMaximumAndNoElements) {
  const Binding binding;
  std::uint32_t lookup = 0;
  std::uint32_t last = 0;
  rep_sInstanceDescriptor instances[3] = {};
  error_status_t status = 0;
  {
    Runtime runtime([](const Call&) {
      return little(
          "00000000 00000000 01000000 00000000 01000000"
          "07000000 03000000 00000000 04000000 43505500 00000000 01000000 00000000"
          "01000000 02000000 03000000 00000000");
    });
    zt_v2_rep_LookupInstance(binding, 1, 0, &lookup, 2, &last, instances, &status);
    EXPECT_EQ(status, 0u);
    EXPECT_STREQ(instances[0].Descriptor.fName, "CPU");
    EXPECT_EQ(instances[0].DeathTime, 3);
  }
  Runtime runtime(
      [&](const Call&) { return little("00000000 ffffffff 03000000 00000000 00000000 0100014c"); });
  zt_v2_rep_LookupInstance(binding, 1, 0, &lookup, 2, &last, instances, &status);
  EXPECT_EQ(status, 0x4C010001u);
}

TEST(ProductStubs, RefuseHostileArrays) {
  const Binding binding;
  RPC_CONTEXT_HANDLE view = issued_context(kView);
  const std::string tail = " 00000000 00000000 00000000 00000000";
  // Replies of Read with room for 2 positions, 2 integers and 4 characters.
  const char* bodies[] = {
      // A last index that the array does not confirm, both ways.
      "01000000 00000000 00000000 02000000 00000000 01000000 07000000",
      "00000000 00000000 00000000 02000000 00000000 02000000 07000000 08000000",
      // Counts beyond the room.
      "02000000 00000000 00000000 03000000 00000000 03000000 07000000 08000000 09000000",
      "ffffff3f 00000000 00000000 00000040 00000000 00000040 07000000",
      // An offset.
      "00000000 00000000 00000000 02000000 01000000 01000000 07000000",
      // Good positions, too many integers.
      ("00000000 09000000 00000000 01000000 00000000 01000000 07000000"
       " 0a000000 00000000 0a000000"),
  };
  for (const std::string body : bodies) {
    std::uint32_t last[3] = {};
    // The arrays end where the room does, so that a store beyond it is seen.
    std::vector<std::uint32_t> positions(2);
    std::vector<std::uint32_t> ints(2);
    std::vector<char> chars(4);
    error_status_t status = 0;
    Runtime runtime([&](const Call&) { return little(body + tail); });
    const Raised raised = raised_by([&] {
      zt_v2_repView_Read(view, 1, &last[0], 1, &last[1], 3, &last[2], positions.data(), ints.data(),
                         chars.data(), &status);
    });
    EXPECT_EQ(raised, kBadData) << body;
  }
  rpc::store_context(&view, {}, {});
}

TEST(ProductStubs, StoreForeignCharactersAsCommunicationFailure) {
  Product product;
  for (const ProductCall& call : product.calls()) {
    const Answer serve = served_by(*call.server, true);
    Runtime runtime([&](const Call& c) {
      rpc::Reply reply = serve(c);
      reply.representation.ebcdic = true;
      return reply;
    });
    const std::string results = call.run();
    const bool has_characters = call.results.find('\'') != std::string::npos;
    EXPECT_EQ(results.substr(0, 5) == "1730 ", has_characters) << call.name;
  }
}

// --- skeletons

Outcome dispatch(rpc::server::Interface& server, std::uint16_t opnum, const std::string& request,
                 bool little_endian = true) {
  return server.dispatch({}, opnum, hex(request), {.little_endian = little_endian}, true);
}

void expect_end(const Outcome& outcome, Outcome::Kind kind, std::uint32_t status) {
  EXPECT_EQ(outcome.kind, kind);
  EXPECT_EQ(outcome.status, status);
}

// The last four bytes of a reply in little-endian order.
std::uint32_t status_of(const Outcome& outcome) {
  EXPECT_EQ(outcome.kind, Outcome::Kind::reply);
  return rpc::load32(outcome.reply.data() + outcome.reply.size() - 4, true);
}

TEST(ProductSkeletons, ReadBigEndianRequests) {
  agent::test::Interfaces agent(data_source(), {});
  const auto created = [&](rpc::server::Interface& server, const char* request) {
    return status_of(dispatch(server, 0, request, false));
  };
  EXPECT_EQ(
      created(agent.views(), "0000000a 00000001 00000002 00000000 00000002 00000028 00000029"), 0u);
  EXPECT_EQ(created(agent.filters(),
                    "00000001 00000002 00000000 00000002 00000008 00000011 0001ffff ffffffff"
                    "00000001 0000"),
            0u);
  EXPECT_EQ(agent.contexts().objects(), 2u);
}

TEST(ProductSkeletons, RejectTruncatedRequestsAndUnknownOperations) {
  Product product;
  for (const ProductCall& call : product.calls()) {
    std::uint16_t opnum = 0;
    {
      Runtime runtime(served_by(*call.server, true));
      call.run();
      opnum = runtime.last().operation->opnum;
    }
    const rpc::test::Bytes request = hex(call.request);
    for (std::size_t size = 0; size < request.size(); ++size) {
      const Outcome outcome = call.server->dispatch({}, opnum, std::span(request).first(size),
                                                    {.little_endian = true}, true);
      EXPECT_EQ(outcome.kind, Outcome::Kind::reject) << call.name << " of " << size;
    }
    expect_end(dispatch(*call.server, 200, ""), Outcome::Kind::reject, rpc::nca::kOperationRange);
  }
}

TEST(ProductSkeletons, RefuseHostileCounts) {
  agent::test::Interfaces agent(data_source(), {});
  const char* creates[] = {
      // Sizes that are not the index plus one, and indexes that wrap.
      "05000000 01000000 01000000 00000000 01000000 09000000",
      "05000000 ffffff3f 00000040 00000000 00000040 09000000",
      "05000000 00000000 01000000 01000000 00000000 09000000",
      "05000000 00000000 ffffffff 00000000 01000000 09000000",
  };
  for (const char* request : creates)
    expect_end(dispatch(agent.views(), 0, request), Outcome::Kind::reject,
               rpc::nca::kProtocolError);
  // A view of no metric is for the server to judge.
  EXPECT_EQ(status_of(dispatch(agent.views(), 0, "0a000000 ffffffff 00000000 00000000 00000000")),
            static_cast<std::uint32_t>(agent::RepositoryStatus::no_metrics));
  for (const char* most : {"ffffffff", "00000001"})
    expect_end(dispatch(agent.metadata(), 1, std::string("00000000 00000000 ") + most),
               Outcome::Kind::fault, rpc::nca::kOutArgumentsTooBig);
}

TEST(ProductSkeletons, FaultOnNullContextsButLetDestroyHaveThem) {
  agent::test::Interfaces agent(data_source(), {});
  const std::string null_context(40, '0');
  // The agent's operation would know no such view either; the forced status keeps it from being
  // run.
  rpc::server::CallInfo call;
  call.forced_status = 5;
  expect_end(agent.views().dispatch(call, 4, hex(null_context), {.little_endian = true}, true),
             Outcome::Kind::fault, rpc::nca::kContextMismatch);
  EXPECT_EQ(status_of(dispatch(agent.views(), 1, null_context)), 0u);
}

// An operation whose results do not hold, or that throws.
struct BrokenRep : agent::MetadataInterface {
  using Act = void (*)(std::uint32_t* last_index,
                       rpc::server::Results<rep_sTableDescriptor>& results);
  BrokenRep(const agent::Repository& repository, Act broken)
      : MetadataInterface(repository), act(broken) {}
  void LookupTable(const rpc::server::CallInfo&, std::uint32_t, std::uint32_t*, std::uint32_t,
                   std::uint32_t* last_index, rpc::server::Results<rep_sTableDescriptor>& results,
                   error_status_t*) override {
    act(last_index, results);
  }
  Act act;
};

TEST(ProductSkeletons, FaultWhenAnOperationFails) {
  const struct {
    BrokenRep::Act act;
    std::uint32_t status;
  } cases[] = {
      {[](auto* last_index, auto&) { *last_index = 6; }, rpc::nca::kInvalidBound},
      {[](auto*, auto& results) { results[0].Descriptor.NameLength = 256; },
       rpc::nca::kInvalidBound},
      {[](auto*, auto&) { throw rpc::server::Fault(0x1C000012); }, 0x1C000012},
      {[](auto*, auto&) { throw std::bad_alloc(); }, rpc::nca::kRemoteNoMemory},
  };
  const agent::Repository repository(data_source());
  for (const auto& c : cases) {
    BrokenRep server(repository, c.act);
    expect_end(dispatch(server, 1, "00000000 00000000 05000000"), Outcome::Kind::fault, c.status);
  }
}

// The descriptor of a three-character name and an empty label takes 29 bytes.
TEST(ProductSkeletons, SendShortTextsShort) {
  const agent::Repository repository(
      std::make_shared<agent::DataSource>(agent::DataSource{7, "CPU", "", 0, "", {}}));
  agent::MetadataInterface server(repository);
  EXPECT_EQ(hex_text(dispatch(server, 0, "").reply),
            "07000000 03000000 00000000 04000000 43505500 00000000 01000000 00000000 00000000"
            " 00000000 00000000 01000000 00000000 00000000");
}

}  // namespace
}  // namespace stub_test
