// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "platform/rpc/stub/stub.h"

namespace {

constexpr uuid_t kObject = {0x5b3c82a0, 0x17e4, 0, 2, 10, {0x14, 0x1e, 0x28, 0, 0, 0}};

RPC_BINDING_HANDLE make_binding(const char* text) {
  RPC_BINDING_HANDLE binding = nullptr;
  EXPECT_EQ(RpcBindingFromStringBindingA(text, &binding), RPC_S_OK) << text;
  return binding;
}

std::string text_of(RPC_BINDING_HANDLE binding) {
  char* text = nullptr;
  EXPECT_EQ(RpcBindingToStringBindingA(binding, &text), RPC_S_OK);
  std::string copy = text == nullptr ? "" : text;
  RpcStringFreeA(&text);
  return copy;
}

using Raised = std::pair<RPC_STATUS, rpc::FailureKind>;

template <typename Action>
Raised raised_by(Action action) {
  try {
    action();
  } catch (const rpc::RpcException& failure) {
    return {failure.status(), failure.kind()};
  }
  return {};
}

// Every call must see that the handle is none.
void expect_refused(RPC_BINDING_HANDLE binding) {
  char* text = nullptr;
  RPC_BINDING_HANDLE copy = nullptr;
  RPC_BINDING_HANDLE freed = binding;
  EXPECT_EQ(RpcBindingToStringBindingA(binding, &text), RPC_S_INVALID_BINDING);
  EXPECT_EQ(RpcBindingCopy(binding, &copy), RPC_S_INVALID_BINDING);
  EXPECT_EQ(RpcBindingSetObject(binding, &kObject), RPC_S_INVALID_BINDING);
  EXPECT_EQ(RpcMgmtSetComTimeout(binding, 3), RPC_S_INVALID_BINDING);
  EXPECT_EQ(RpcBindingFree(&freed), RPC_S_INVALID_BINDING);
  EXPECT_EQ(raised_by([&] { rpc::target_of(binding); }),
            Raised(RPC_S_INVALID_BINDING, rpc::FailureKind::communication));
}

TEST(Binding, NullStaleAndForeignHandlesAreRefused) {
  expect_refused(nullptr);

  RPC_BINDING_HANDLE binding = make_binding("ncadg_ip_udp:10.1.2.3[135]");
  const RPC_BINDING_HANDLE stale = binding;
  ASSERT_EQ(RpcBindingFree(&binding), RPC_S_OK);
  EXPECT_EQ(binding, nullptr);
  expect_refused(stale);

  // A new binding must not bring the old handle back to life.
  RPC_BINDING_HANDLE next = make_binding("ncadg_ip_udp:10.1.2.3[135]");
  expect_refused(stale);

  int own = 0;
  expect_refused(reinterpret_cast<RPC_BINDING_HANDLE>(&own));
  RPC_CONTEXT_HANDLE context = nullptr;
  rpc::store_context(&context, {0, kObject}, rpc::target_of(next));
  expect_refused(reinterpret_cast<RPC_BINDING_HANDLE>(context));
  rpc::store_context(&context, {}, {});
  EXPECT_EQ(RpcBindingFree(&next), RPC_S_OK);
}

TEST(Binding, UnusableStringsHaveTheirStatuses) {
  struct Case {
    const char* text;
    RPC_STATUS status;
  };
  const std::string long_address = "ncadg_ip_udp:" + std::string(256, 'a');
  const Case cases[] = {
      {"ncadg_ip_udp", RPC_S_INVALID_STRING_BINDING},
      {"no-uuid@ncadg_ip_udp:", RPC_S_INVALID_STRING_UUID},
      {"ncadg_ip_tcp:alpha", RPC_S_INVALID_RPC_PROTSEQ},
      {"NCADG_IP_UDP:alpha", RPC_S_INVALID_RPC_PROTSEQ},
      {"ncadg_ip_udp:alpha[0]", RPC_S_INVALID_ENDPOINT_FORMAT},
      {"ncadg_ip_udp:alpha[4294967431]", RPC_S_INVALID_ENDPOINT_FORMAT},
      {"ncacn_np:alpha[pipe]", RPC_S_INVALID_ENDPOINT_FORMAT},
      {"ncadg_ip_udp:al pha", RPC_S_INVALID_NET_ADDR},
      {"ncadg_ip_udp:al/pha", RPC_S_INVALID_NET_ADDR},
      {"ncadg_ip_udp:al\npha", RPC_S_INVALID_NET_ADDR},
      {long_address.c_str(), RPC_S_INVALID_NET_ADDR},
  };
  for (const Case& c : cases) {
    RPC_BINDING_HANDLE binding = nullptr;
    EXPECT_EQ(RpcBindingFromStringBindingA(c.text, &binding), c.status) << c.text;
    EXPECT_EQ(binding, nullptr) << c.text;
  }
}

TEST(Binding, KnownProtocolSequencesAreKeptThoughTheyCannotBeCalled) {
  for (const char* text :
       {"ncadg_ip_udp:10.1.2.3[65535]", "ncacn_ip_tcp:alpha.example[1]", "ncacn_http:alpha[593]",
        R"(ncacn_np:\\\\ALPHA[\\PIPE\\epmapper])", "ncalrpc:[epmapper]",
        "ncadg_ipx:0000000108002b30fb89[34280]", "ncacn_spx:0000000108002b30fb89[34280]"}) {
    RPC_BINDING_HANDLE binding = make_binding(text);
    EXPECT_EQ(text_of(binding), text);
    RpcBindingFree(&binding);
  }
}

TEST(Binding, CopiesShareNothing) {
  RPC_BINDING_HANDLE binding = make_binding("ncadg_ip_udp:alpha[135]");
  RPC_BINDING_HANDLE copy = nullptr;
  ASSERT_EQ(RpcMgmtSetComTimeout(binding, 2), RPC_S_OK);
  ASSERT_EQ(RpcBindingCopy(binding, &copy), RPC_S_OK);
  EXPECT_NE(copy, binding);

  ASSERT_EQ(RpcBindingSetObject(binding, &kObject), RPC_S_OK);
  ASSERT_EQ(RpcMgmtSetComTimeout(binding, 10), RPC_S_OK);
  EXPECT_EQ(text_of(copy), "ncadg_ip_udp:alpha[135]");
  EXPECT_EQ(text_of(binding), "5b3c82a0-17e4-0000-020a-141e28000000@ncadg_ip_udp:alpha[135]");
  EXPECT_EQ(rpc::target_of(copy).timeout_level, 2u);

  ASSERT_EQ(RpcBindingFree(&binding), RPC_S_OK);
  EXPECT_EQ(rpc::target_of(copy).endpoint, "135");
  ASSERT_EQ(RpcBindingSetObject(copy, &kObject), RPC_S_OK);
  ASSERT_EQ(RpcBindingSetObject(copy, nullptr), RPC_S_OK);
  EXPECT_EQ(rpc::target_of(copy).object, uuid_t{});
  RpcBindingFree(&copy);
}

TEST(Binding, TimeoutLevelsAreZeroToTen) {
  RPC_BINDING_HANDLE binding = make_binding("ncadg_ip_udp:alpha[135]");
  EXPECT_EQ(rpc::target_of(binding).timeout_level, 5u);
  for (std::uint32_t level = 0; level <= 10; ++level) {
    EXPECT_EQ(RpcMgmtSetComTimeout(binding, level), RPC_S_OK);
    std::uint32_t kept = 99;
    EXPECT_EQ(RpcMgmtInqComTimeout(binding, &kept), RPC_S_OK);
    EXPECT_EQ(kept, level);
    EXPECT_EQ(rpc::target_of(binding).timeout_level, level);
  }
  EXPECT_EQ(RpcMgmtSetComTimeout(binding, 11), RPC_S_INVALID_TIMEOUT);
  EXPECT_EQ(RpcMgmtSetComTimeout(binding, 0xFFFFFFFF), RPC_S_INVALID_TIMEOUT);
  EXPECT_EQ(rpc::target_of(binding).timeout_level, 10u);
  RpcBindingFree(&binding);
}

rpc::CallTarget target_at(const char* address) {
  rpc::CallTarget target;
  target.network_address = address;
  return target;
}

void expect_no_context(RPC_CONTEXT_HANDLE context) {
  const Raised expected(RPC_X_SS_IN_NULL_CONTEXT, rpc::FailureKind::local);
  EXPECT_EQ(raised_by([&] { rpc::target_of(context); }), expected);
  EXPECT_EQ(raised_by([&] { rpc::wire_context(context); }), expected);
}

TEST(Context, LivesFromCreationToDestruction) {
  RPC_CONTEXT_HANDLE context = nullptr;
  rpc::store_context(&context, {}, target_at("alpha"));
  EXPECT_EQ(context, nullptr);
  expect_no_context(nullptr);

  rpc::store_context(&context, {0, kObject}, target_at("alpha"));
  ASSERT_NE(context, nullptr);
  EXPECT_EQ(rpc::wire_context(context).id, kObject);
  EXPECT_EQ(rpc::target_of(context).network_address, "alpha");

  const RPC_CONTEXT_HANDLE before = context;
  rpc::store_context(&context, {7, kObject}, target_at("beta"));
  EXPECT_EQ(context, before);
  EXPECT_EQ(rpc::wire_context(context).attributes, 7u);
  EXPECT_EQ(rpc::target_of(context).network_address, "beta");

  rpc::store_context(&context, {}, target_at("beta"));
  EXPECT_EQ(context, nullptr);
  expect_no_context(before);
}

TEST(Interface, IdentifierIsThatOfTheInterface) {
  const rpc::InterfaceSpec spec = {kObject, 2, 1, "rep"};
  rpc_if_id_t id{};
  ASSERT_EQ(RpcIfInqId(&spec, &id), RPC_S_OK);
  EXPECT_EQ(id.uuid, kObject);
  EXPECT_EQ(id.vers_major, 2);
  EXPECT_EQ(id.vers_minor, 1);
  EXPECT_EQ(RpcIfInqId(nullptr, &id), RPC_S_INVALID_ARG);
}

}  // namespace
