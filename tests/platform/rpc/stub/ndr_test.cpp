// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/stub/ndr.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/rpc/exception.h"
#include "tests/support/rpc_bytes.h"

namespace rpc::ndr {
namespace {

using test::hex;
using test::hex_text;

constexpr DataRepresentation kLittle{.little_endian = true};
constexpr DataRepresentation kBig{.little_endian = false};
constexpr DataRepresentation kEbcdic{.little_endian = true, .ebcdic = true};

// The status that `action` throws, 0 when it does not.
template <typename Action>
std::uint32_t status_of(Action action) {
  try {
    action();
    return 0;
  } catch (const RpcException& failure) {
    return failure.status();
  }
}

struct Text {
  std::uint16_t length = 0;
  char text[40] = {};
};

std::uint32_t decode_text(const std::string& body, Text& value, DataRepresentation representation) {
  const std::vector<std::byte> bytes = hex(body);
  return status_of([&] {
    Decoder in(bytes, representation);
    value.length = in.get<std::uint16_t>();
    const Fields head = in.fields(4, 8);
    in.get_text(value.text, head.get<std::uint32_t>(0), head.get<std::uint32_t>(4),
                std::uint32_t{value.length} + 1);
  });
}

TEST(NdrEncoder, AlignsFromTheBodysFirstByteAndWritesZeroGaps) {
  for (const bool little : {true, false}) {
    Encoder out(little);
    out.put(std::uint8_t{0xFF});
    out.put(std::uint16_t{0x0102});
    out.put(true);
    out.put(std::uint32_t{0x03040506});
    out.put('A');
    out.put(std::uint64_t{0x0708090A0B0C0D0E});
    EXPECT_EQ(hex_text(out.body()), little
                                        ? "ff000201 01000000 06050403 41000000 0e0d0c0b 0a090807"
                                        : "ff000102 01000000 03040506 41000000 0708090a 0b0c0d0e");
  }
}

TEST(NdrEncoder, SwapsTheFirstThreeFieldsOfUuidsAndContexts) {
  const uuid_t id{0x5b3c82a0, 0x17e4, 0x0102, 0x02, 0x0a, {0x14, 0x1e, 0x28, 0, 0, 0x07}};
  Encoder little(true);
  little.put(std::uint8_t{1});
  little.put(id);
  EXPECT_EQ(hex_text(little.body()), "01000000 a0823c5b e4170201 020a141e 28000007");
  Encoder big(false);
  big.put(WireContext{9, id});
  EXPECT_EQ(hex_text(big.body()), "00000009 5b3c82a0 17e40102 020a141e 28000007");
}

TEST(NdrEncoder, RefusesTextsAndArraysThatDoNotHold) {
  char text[4] = {'a', 'b', 'c', 'd'};
  Encoder out;
  EXPECT_EQ(status_of([&] { out.put_text(text, 0); }), 1783u);
  EXPECT_EQ(status_of([&] { out.put_text(text, 4); }), 1783u);  // not terminated
  EXPECT_EQ(status_of([&] { out.put_text(text, 5); }), 1783u);
  EXPECT_EQ(status_of([&] { out.put_string(text); }), 1783u);
  EXPECT_EQ(status_of([&] { out.put_conformant_varying(2, 3); }), 1783u);
  EXPECT_EQ(status_of([&] { out.put_conformant_varying(std::uint64_t{1} << 32, 1); }), 1783u);
  EXPECT_TRUE(out.body().empty());
}

TEST(NdrEncoder, SendsAnArrayOfNoElementForALastIndexOfNone) {
  constexpr std::uint64_t kSize = std::uint64_t{0xFFFFFFFF} + 1;
  Encoder out;
  out.put_conformant_varying(kSize, 0);
  EXPECT_EQ(hex_text(out.body()), "00000000 00000000 00000000");
  Decoder in(out.body(), kLittle);
  EXPECT_EQ(in.get_exact_conformant_varying(kSize, 0, 4), 0u);
}

// What the product's interfaces use is read in both byte orders in tests/idl/stub_test.cpp.
TEST(NdrDecoder, ReadsWhatNoInterfaceUses) {
  const std::vector<std::byte> body = hex("fbffffff 01020304 01");
  for (const DataRepresentation& representation : {kLittle, kBig}) {
    Decoder in(body, representation);
    EXPECT_EQ(in.get<std::uint64_t>(),
              representation.little_endian ? 0x04030201FFFFFFFB : 0xFBFFFFFF01020304);
    EXPECT_TRUE(in.get<bool>());
    EXPECT_EQ(in.remaining(), 0u);
  }
}

TEST(NdrDecoder, IgnoresGapBytes) {
  const std::vector<std::byte> body = hex("07ffffff 01000000");
  Decoder in(body, kLittle);
  EXPECT_EQ(in.get<std::uint8_t>(), 7);
  EXPECT_EQ(in.get<std::uint32_t>(), 1u);
}

TEST(NdrDecoder, RefusesEveryReadPastTheEnd) {
  const std::vector<std::byte> body = hex("01020304 05");
  const auto at_end = [&](auto read) {
    return status_of([&] {
      Decoder in(body, kLittle);
      in.get<std::uint32_t>();
      read(in);
    });
  };
  EXPECT_EQ(at_end([](Decoder& in) { in.get<std::uint8_t>(); }), 0u);
  EXPECT_EQ(at_end([](Decoder& in) { in.get<std::uint16_t>(); }), 1783u);
  EXPECT_EQ(at_end([](Decoder& in) { in.get<std::uint64_t>(); }), 1783u);
  EXPECT_EQ(at_end([](Decoder& in) { in.get<uuid_t>(); }), 1783u);
  EXPECT_EQ(at_end([](Decoder& in) { in.fields(4, 12); }), 1783u);
  EXPECT_EQ(at_end([](Decoder& in) { (void)in.get<char>(), in.align(4); }), 1783u);
  std::uint32_t numbers[2];
  EXPECT_EQ(at_end([&](Decoder& in) { in.get_array(numbers, 2); }), 1783u);
  EXPECT_EQ(at_end([&](Decoder& in) { in.get_array(numbers, 0); }), 0u);
}

TEST(NdrDecoder, ChecksCountsOfArrays) {
  struct Case {
    const char* head;  // maximum, offset, actual
    std::uint64_t room;
    std::uint32_t expected;
    std::uint32_t status;
  };
  const Case cases[] = {
      {"04000000 00000000 04000000", 4, 4, 0},
      {"02000000 00000000 02000000", 4, 2, 0},  // the filled count as maximum
      {"00000000 00000000 00000000", 4, 0, 0},
      {"04000000 00000000 00000000", 0, 0, 1783},  // maximum beyond the room
      {"05000000 00000000 04000000", 4, 4, 1783},
      {"03000000 00000000 04000000", 4, 4, 1783},  // count beyond the maximum
      {"04000000 01000000 03000000", 4, 3, 1783},  // offset
      {"04000000 00000000 03000000", 4, 4, 1783},  // count against the index beside it
      {"ffffffff 00000000 ffffffff", 4, 0, 1783},
      {"ffffffff 00000000 01000000", std::uint64_t{1} << 32, 1, 0},
      {"04000000 00000000 040000", 4, 4, 1783},
  };
  for (const Case& c : cases) {
    const std::vector<std::byte> body = hex(c.head);
    Decoder in(body, kLittle);
    EXPECT_EQ(status_of([&] { in.get_conformant_varying(c.room, c.expected); }), c.status)
        << c.head;
  }
}

TEST(NdrDecoder, NeverAllocatesForMoreThanTheBodyHolds) {
  const std::vector<std::byte> body = hex("00000040 00000000 00000040 01000000");
  const auto head = [&](std::size_t element) {
    return status_of([&] {
      Decoder in(body, kLittle);
      in.get_exact_conformant_varying(0x40000000, 0x40000000, element);
    });
  };
  EXPECT_EQ(head(4), 1783u);
  const std::vector<std::byte> one = hex("01000000 00000000 01000000 01000000");
  Decoder in(one, kLittle);
  EXPECT_EQ(in.get_exact_conformant_varying(1, 1, 4), 1u);
  Decoder other(one, kLittle);
  EXPECT_EQ(status_of([&] { other.get_exact_conformant_varying(2, 1, 4); }), 1783u);

  std::vector<std::uint8_t> octets;
  Decoder huge(one, kLittle);
  EXPECT_EQ(status_of([&] { huge.get_octets(octets, 0xFFFFFFFF, 0xFFFFFFFF); }), 1783u);
  EXPECT_EQ(octets.capacity(), 0u);
}

TEST(NdrText, IsTerminatedAndClearedBehind) {
  struct Case {
    const char* body;
    const char* text;
  };
  const Case cases[] = {
      {"03000000 00000000 04000000 41424300", "ABC"},
      {"00000000 00000000 01000000 00", ""},
      {"00000000 00000000 00000000", ""},  // nothing transmitted for a length of 0
      {"27000000 00000000 28000000"
       "30313233 34353637 38393031 32333435 36373839 30313233 34353637 38393031 32333435 36373800",
       "012345678901234567890123456789012345678"},
      // Short text with much behind it in the body.
      {"01000000 00000000 02000000 5a00ffff"
       "ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff",
       "Z"},
      {"04000000 00000000 05000000 41004300 00", "A"},  // a zero inside ends the text early
  };
  for (const Case& c : cases) {
    Text value;
    std::memset(value.text, 0x55, sizeof(value.text));
    ASSERT_EQ(decode_text(c.body, value, kLittle), 0u) << c.body;
    EXPECT_STREQ(value.text, c.text);
    for (std::size_t i = value.length; i < sizeof(value.text); ++i)
      EXPECT_EQ(value.text[i], '\0') << c.body << " at " << i;
  }
}

TEST(NdrText, RefusesWhatDoesNotAgree) {
  const char* cases[] = {
      "03000000 01000000 03000000 41424300",  // offset
      "03000000 00000000 03000000 41424300",  // count is not length + 1
      "03000000 00000000 05000000 41424300 00",
      "03000000 00000000 04000000 41424344",  // not terminated
      "03000000 00000000 04000000 414243",    // cut
      "03000000 00000000 00000000",           // nothing transmitted for three characters
      "00000000 01000000 00000000",
      "ffff0000 00000000 00000100 41424300",  // beyond the array
      "28000000 00000000 29000000"            // one beyond the array
      "30313233 34353637 38393031 32333435 36373839 30313233 34353637 38393031 32333435 36373839 "
      "00",
      "03000000 00000000 ffffffff 41424300",
      "03000000 00000000",
  };
  for (const char* body : cases) {
    Text value;
    EXPECT_EQ(decode_text(body, value, kLittle), 1783u) << body;
  }
}

TEST(NdrText, RefusesEbcdicOnlyWhereCharactersAre) {
  Text value;
  EXPECT_EQ(decode_text("03000000 00000000 04000000 c1c2c300", value, kEbcdic), 1730u);
  EXPECT_EQ(decode_text("00000000 00000000 00000000", value, kEbcdic), 0u);
  const std::vector<std::byte> body = hex("c1000000 01000000");
  Decoder in(body, kEbcdic);
  char none = 'x';
  in.get_array(&none, 0);
  EXPECT_EQ(status_of([&] { in.get<char>(); }), 1730u);
  EXPECT_EQ(in.get<std::uint32_t>(), 0xC1u);
}

TEST(NdrPointer, ReadsNullNewAndKnownTargets) {
  const std::vector<std::byte> body =
      hex("00000000 07000000 2a000000 07000000 09000000 2b000000 07000000");
  Decoder in(body, kLittle);
  const auto number = [&](std::uint32_t& value) { value = in.get<std::uint32_t>(); };
  EXPECT_EQ(in.get_pointer<std::uint32_t>(number), nullptr);
  const auto first = in.get_pointer<std::uint32_t>(number);
  EXPECT_EQ(*first, 42u);
  EXPECT_EQ(in.get_pointer<std::uint32_t>(number), first);
  EXPECT_EQ(*in.get_pointer<std::uint32_t>(number), 43u);
  // A number of a target of another type is no pointer to it.
  EXPECT_EQ(status_of([&] { in.get_pointer<uuid_t>([](uuid_t&) {}); }), 1783u);
}

TEST(NdrPointer, NumbersEachTargetOnce) {
  const std::uint32_t one = 1;
  const std::uint32_t two = 2;
  const std::pair<ReferentNumbers, const char*> cases[] = {
      {{}, "00000000 01000000 02000000 01000000"},
      {kReplyReferents, "00000000 00000200 04000200 00000200"},
  };
  for (const auto& [numbers, body] : cases) {
    Encoder out(true, numbers);
    EXPECT_FALSE(out.put_referent(static_cast<const std::uint32_t*>(nullptr)));
    EXPECT_TRUE(out.put_referent(&one));
    EXPECT_TRUE(out.put_referent(&two));
    EXPECT_FALSE(out.put_referent(&one));
    EXPECT_EQ(hex_text(out.body()), body);
  }
  // A number of the request would be a pointer to what the client sent.
  const std::vector<std::byte> request = hex("04000200 2a000000");
  Decoder in(request, kLittle);
  in.get_pointer<std::uint32_t>([&](std::uint32_t& value) { value = in.get<std::uint32_t>(); });
  Encoder reply(true, kReplyReferents, &in);
  reply.put_referent(&one);
  reply.put_referent(&two);
  reply.put_referent(&two);
  EXPECT_EQ(hex_text(reply.body()), "00000200 08000200 08000200");
}

}  // namespace
}  // namespace rpc::ndr
