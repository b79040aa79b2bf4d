// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/names/string_binding.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

constexpr char kUuid[] = "5b3c82a0-17e4-0000-020a-141e28000000";

TEST(StringBinding, EveryFormIsReadAndItsPlainFormWritten) {
  struct Case {
    std::string text;
    rpc::StringBinding parts;
    std::string composed;  // empty: the text itself
  };
  const std::string object = kUuid;
  const Case cases[] = {
      {"ncadg_ip_udp:", {"", "ncadg_ip_udp", "", "", ""}, ""},
      {"ncadg_ip_udp:10.1.2.3[135]", {"", "ncadg_ip_udp", "10.1.2.3", "135", ""}, ""},
      {"ncadg_ip_udp:[135]", {"", "ncadg_ip_udp", "", "135", ""}, ""},
      {"ncadg_ip_udp:alpha[]", {"", "ncadg_ip_udp", "alpha", "", ""}, "ncadg_ip_udp:alpha"},
      {object + "@ncadg_ip_udp:alpha[1045]", {object, "ncadg_ip_udp", "alpha", "1045", ""}, ""},
      {"ncadg_ip_udp:alpha[endpoint=1045]",
       {"", "ncadg_ip_udp", "alpha", "1045", ""},
       "ncadg_ip_udp:alpha[1045]"},
      {"ncadg_ip_udp:alpha[,endpoint=1045]",
       {"", "ncadg_ip_udp", "alpha", "1045", ""},
       "ncadg_ip_udp:alpha[1045]"},
      {"ncadg_ip_udp:alpha[security=none,endpoint=1045,cache=on]",
       {"", "ncadg_ip_udp", "alpha", "1045", "security=none,cache=on"},
       "ncadg_ip_udp:alpha[1045,security=none,cache=on]"},
      {"ncadg_ip_udp:alpha[,security=a=b]", {"", "ncadg_ip_udp", "alpha", "", "security=a=b"}, ""},
      {R"(ncacn_np:\\\\server[\\pipe\\a\ b\,c])",
       {"", "ncacn_np", R"(\\server)", R"(\pipe\a b,c)", ""},
       ""},
      {R"(ncalrpc:[x\=y\]z])", {"", "ncalrpc", "", "x=y]z", ""}, ""},
      {R"(ncalrpc:a\@\:\[\,\=\]\\\ b[c\@\:\[\,\=\]\\\ d,name=\[v\ \@\\\]])",
       {"", "ncalrpc", R"(a@:[,=]\ b)", R"(c@:[,=]\ d)", R"(name=[v @\])"},
       ""},
      {R"(ncacn_ip_tcp:fe80\:\:1[1\3\5])",
       {"", "ncacn_ip_tcp", "fe80::1", "135", ""},
       R"(ncacn_ip_tcp:fe80\:\:1[135])"},
  };
  for (const Case& c : cases) {
    rpc::StringBinding parts;
    ASSERT_EQ(rpc::parse_string_binding(c.text, &parts), RPC_S_OK) << c.text;
    EXPECT_EQ(parts, c.parts) << c.text;
    std::string composed;
    ASSERT_EQ(rpc::compose_string_binding(parts, &composed), RPC_S_OK) << c.text;
    EXPECT_EQ(composed, c.composed.empty() ? c.text : c.composed);
  }
}

TEST(StringBinding, MalformedTextsAreRefused) {
  const std::pair<RPC_STATUS, std::vector<std::string>> cases[] = {
      // Parts that must be there.
      {RPC_S_INVALID_STRING_BINDING, {"", ":", "ncadg_ip_udp", "@ncadg_ip_udp:"}},
      // Brackets, and what stands around them.
      {RPC_S_INVALID_STRING_BINDING,
       {"ncadg_ip_udp:a[135", "ncadg_ip_udp:a]135[", "ncadg_ip_udp:a[135]x",
        "ncadg_ip_udp:a[135][136]", "ncadg_ip_udp:a[[135]]", "ncadg_ip_udp:a:b[135]"}},
      // Options.
      {RPC_S_INVALID_STRING_BINDING,
       {"ncadg_ip_udp:a[135,security]", "ncadg_ip_udp:a[135,=x]", "ncadg_ip_udp:a[135,]",
        "ncadg_ip_udp:a[135,endpoint=136]", "ncadg_ip_udp:a[,x=y\\,endpoint=136]",
        "ncadg_ip_udp:a[,endpoint\\=x=y]"}},
      // A backslash that quotes nothing.
      {RPC_S_INVALID_STRING_BINDING, {"ncadg_ip_udp:a[135]\\", "ncadg_ip_udp:a\\"}},
      {RPC_S_INVALID_STRING_BINDING, {"ncadg_ip_udp:" + std::string(rpc::kMaxStringBinding, 'a')}},
      {RPC_S_INVALID_STRING_UUID, {"5b3c82a0@ncadg_ip_udp:a"}},
  };
  for (const auto& [status, texts] : cases) {
    for (const std::string& text : texts) {
      rpc::StringBinding parts = {"kept", "", "", "", ""};
      EXPECT_EQ(rpc::parse_string_binding(text, &parts), status) << text;
      EXPECT_EQ(parts.object, "kept") << text;
    }
  }
}

TEST(StringBinding, CallsLeaveOutNullAndEmptyParts) {
  char* text = nullptr;
  ASSERT_EQ(RpcStringBindingComposeA(nullptr, "ncadg_ip_udp", "10.1.2.3", "135", nullptr, &text),
            RPC_S_OK);
  EXPECT_STREQ(text, "ncadg_ip_udp:10.1.2.3[135]");
  RpcStringFreeA(&text);
  ASSERT_EQ(RpcStringBindingComposeA("", "ncadg_ip_udp", "", "", "", &text), RPC_S_OK);
  EXPECT_STREQ(text, "ncadg_ip_udp:");
  RpcStringFreeA(&text);

  EXPECT_EQ(RpcStringBindingComposeA("no uuid", "ncadg_ip_udp", nullptr, nullptr, nullptr, &text),
            RPC_S_INVALID_STRING_UUID);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(RpcStringBindingComposeA(nullptr, nullptr, "alpha", nullptr, nullptr, &text),
            RPC_S_INVALID_STRING_BINDING);
  EXPECT_EQ(RpcStringBindingComposeA(nullptr, "ncadg_ip_udp", "a", "1", "no value", &text),
            RPC_S_INVALID_STRING_BINDING);
  EXPECT_EQ(text, nullptr);
}

TEST(StringBinding, CallsHandOutOnlyWantedParts) {
  char* sequence = nullptr;
  char* address = nullptr;
  char* endpoint = nullptr;
  ASSERT_EQ(RpcStringBindingParseA("ncadg_ip_udp:10.1.2.3", nullptr, &sequence, &address, &endpoint,
                                   nullptr),
            RPC_S_OK);
  EXPECT_STREQ(sequence, "ncadg_ip_udp");
  EXPECT_STREQ(address, "10.1.2.3");
  EXPECT_STREQ(endpoint, "");
  RpcStringFreeA(&sequence);
  RpcStringFreeA(&address);
  RpcStringFreeA(&endpoint);

  EXPECT_EQ(RpcStringBindingParseA(nullptr, nullptr, &sequence, nullptr, nullptr, nullptr),
            RPC_S_INVALID_STRING_BINDING);
  EXPECT_EQ(sequence, nullptr);
}

}  // namespace
