#include "platform/rpc/string_binding.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

constexpr char kUuid[] = "5b3c82a0-17e4-0000-020a-141e28000000";

rpc::StringBinding parts_of(std::string object, std::string sequence, std::string address,
                            std::string endpoint, std::string options) {
  return {std::move(object), std::move(sequence), std::move(address), std::move(endpoint),
          std::move(options)};
}

TEST(StringBinding, EveryFormIsReadAndItsPlainFormWritten) {
  struct Case {
    std::string text;
    rpc::StringBinding parts;
    std::string composed;  // empty: the text itself
  };
  const std::string object = kUuid;
  const Case cases[] = {
      {"ncadg_ip_udp:", parts_of("", "ncadg_ip_udp", "", "", ""), ""},
      {"ncadg_ip_udp:10.1.2.3[135]", parts_of("", "ncadg_ip_udp", "10.1.2.3", "135", ""), ""},
      {"ncadg_ip_udp:[135]", parts_of("", "ncadg_ip_udp", "", "135", ""), ""},
      {"ncadg_ip_udp:alpha[]", parts_of("", "ncadg_ip_udp", "alpha", "", ""), "ncadg_ip_udp:alpha"},
      {object + "@ncadg_ip_udp:alpha[1045]", parts_of(object, "ncadg_ip_udp", "alpha", "1045", ""),
       ""},
      {"ncadg_ip_udp:alpha[endpoint=1045]", parts_of("", "ncadg_ip_udp", "alpha", "1045", ""),
       "ncadg_ip_udp:alpha[1045]"},
      {"ncadg_ip_udp:alpha[,endpoint=1045]", parts_of("", "ncadg_ip_udp", "alpha", "1045", ""),
       "ncadg_ip_udp:alpha[1045]"},
      {"ncadg_ip_udp:alpha[security=none,endpoint=1045,cache=on]",
       parts_of("", "ncadg_ip_udp", "alpha", "1045", "security=none,cache=on"),
       "ncadg_ip_udp:alpha[1045,security=none,cache=on]"},
      {"ncadg_ip_udp:alpha[,security=a=b]",
       parts_of("", "ncadg_ip_udp", "alpha", "", "security=a=b"), ""},
      {R"(ncacn_np:\\\\server[\\pipe\\a\ b\,c])",
       parts_of("", "ncacn_np", R"(\\server)", R"(\pipe\a b,c)", ""), ""},
      {R"(ncalrpc:[x\=y\]z])", parts_of("", "ncalrpc", "", "x=y]z", ""), ""},
      {R"(ncacn_ip_tcp:fe80\:\:1[1\3\5])", parts_of("", "ncacn_ip_tcp", "fe80::1", "135", ""),
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
  struct Case {
    std::string text;
    RPC_STATUS status;
  };
  const Case cases[] = {
      {"", RPC_S_INVALID_STRING_BINDING},
      {":", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp", RPC_S_INVALID_STRING_BINDING},
      {"@ncadg_ip_udp:", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a[135", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a]135[", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a[135]x", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a[135][136]", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a[[135]]", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a[135,security]", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a[135,=x]", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a[135,]", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a[135,endpoint=136]", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a[,x=y\\,endpoint=136]", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a[,endpoint\\=x=y]", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a:b[135]", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a[135]\\", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:a\\", RPC_S_INVALID_STRING_BINDING},
      {"ncadg_ip_udp:" + std::string(rpc::kMaxStringBinding, 'a'), RPC_S_INVALID_STRING_BINDING},
      {"5b3c82a0@ncadg_ip_udp:a", RPC_S_INVALID_STRING_UUID},
  };
  for (const Case& c : cases) {
    rpc::StringBinding parts = parts_of("kept", "", "", "", "");
    EXPECT_EQ(rpc::parse_string_binding(c.text, &parts), c.status) << c.text;
    EXPECT_EQ(parts.object, "kept") << c.text;
  }
}

TEST(StringBinding, RandomPartsSurviveTheirText) {
  std::mt19937 random(20240817);
  const std::string alphabet = "ab:@\\[], =.09\xC3\x01";
  const auto text = [&](std::size_t least) {
    std::string made;
    const std::size_t length = least + random() % 12;
    for (std::size_t i = 0; i < length; ++i)
      made.push_back(alphabet[random() % alphabet.size()]);
    return made;
  };
  for (int i = 0; i < 20000; ++i) {
    const rpc::StringBinding parts =
        parts_of(random() % 2 == 0 ? "" : kUuid, text(1), text(0), text(0),
                 random() % 2 == 0 ? "" : "name=[v @\\],other=");
    std::string composed;
    ASSERT_EQ(rpc::compose_string_binding(parts, &composed), RPC_S_OK);
    rpc::StringBinding read;
    ASSERT_EQ(rpc::parse_string_binding(composed, &read), RPC_S_OK) << composed;
    ASSERT_EQ(read, parts) << composed;
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
