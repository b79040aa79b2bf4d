// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "platform/rpc/rpc.h"

namespace {

constexpr uuid_t kRep = {0x5b3c82a0, 0x17e4, 0x0000, 0x02, 0x0a, {0x14, 0x1e, 0x28, 0, 0, 0}};
constexpr char kRepText[] = "5b3c82a0-17e4-0000-020a-141e28000000";

TEST(Uuid, IsWrittenInLowerCase) {
  char* text = nullptr;
  ASSERT_EQ(UuidToStringA(&kRep, &text), RPC_S_OK);
  EXPECT_STREQ(text, kRepText);
  EXPECT_EQ(RpcStringFreeA(&text), RPC_S_OK);
  EXPECT_EQ(text, nullptr);
}

TEST(Uuid, IsReadInEitherCase) {
  uuid_t uuid{};
  EXPECT_EQ(UuidFromStringA("5B3C82a0-17E4-0000-020a-141E28000000", &uuid), RPC_S_OK);
  EXPECT_EQ(uuid, kRep);
}

TEST(Uuid, RefusesEveryOtherForm) {
  const char* const texts[] = {
      "",
      "5b3c82a0-17e4-0000-020a-141e2800000",     // a digit short
      "5b3c82a0-17e4-0000-020a-141e280000000",   // a digit more
      "{5b3c82a0-17e4-0000-020a-141e28000000}",  // braces
      " 5b3c82a0-17e4-0000-020a-141e2800000",    // a blank in a digit's place
      "5b3c82a0 17e4-0000-020a-141e28000000",    // a blank in a dash's place
      "5b3c82a017e40000020a141e28000000",        // no dashes
      "5b3c82a-017e4-0000-020a-141e28000000",    // a dash too early
      "5b3c82g0-17e4-0000-020a-141e28000000",    // no hexadecimal digit
      "+b3c82a0-17e4-0000-020a-141e28000000",    // a sign
      "0x3c82a0-17e4-0000-020a-141e28000000",    // a prefix
      "5b3c82a0.17e4.0000.020a.141e28000000",    // the older form
  };
  for (const char* text : texts) {
    uuid_t uuid = kRep;
    EXPECT_EQ(UuidFromStringA(text, &uuid), RPC_S_INVALID_STRING_UUID) << text;
    EXPECT_EQ(uuid, kRep) << text;
  }
}

TEST(Uuid, NilIsNilAndNothingElse) {
  RPC_STATUS status = 99;
  uuid_t uuid = kRep;
  EXPECT_EQ(UuidIsNil(&uuid, &status), 0);
  EXPECT_EQ(status, RPC_S_OK);
  ASSERT_EQ(UuidCreateNil(&uuid), RPC_S_OK);
  EXPECT_EQ(UuidIsNil(&uuid, &status), 1);
  EXPECT_EQ(UuidIsNil(nullptr, nullptr), 1);
}

TEST(Uuid, CreatedOnesAreRandomVersion4AndSurviveTheirText) {
  std::set<uuid_t> seen;
  for (int i = 0; i < 1000; ++i) {
    uuid_t uuid{};
    ASSERT_EQ(UuidCreate(&uuid), RPC_S_OK);
    EXPECT_EQ(uuid.time_hi_and_version >> 12, 4);
    EXPECT_EQ(uuid.clock_seq_hi_and_reserved & 0xC0, 0x80);
    EXPECT_TRUE(seen.insert(uuid).second);
    EXPECT_EQ(rpc::uuid_from_text(rpc::uuid_to_text(uuid)), uuid);
  }
}

}  // namespace
