// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/wire/pdu.h"

#include <gtest/gtest.h>

#include "tests/support/rpc_bytes.h"

namespace rpc {
namespace {

using test::Bytes;
using test::hex;
using test::hex_text;

constexpr uuid_t kAlarm = {0x5e61c7d3, 0xa04b, 0x0000, 0x02, 0x0a, {0x14, 0x1e, 0x32, 0, 0, 0}};
constexpr uuid_t kActivity = {0x2f0c8a1e, 0x90b2, 0x11ef,
                              0x8a,       0x3c,   {0x02, 0x42, 0xac, 0x11, 0x00, 0x02}};

// The examples of docs/formats/packet.md.
const Bytes kRequest =
    hex("04 00 00 00 10 00 00 00 00000000000000000000000000000000 d3 c7 61 5e 4b a0 00 00"
        "02 0a 14 1e 32 00 00 00 1e 8a 0c 2f b2 90 ef 11 8a 3c 02 42 ac 11 00 02 00 00 00 00"
        "02 00 00 00 00 00 00 00 14 00 ff ff ff ff 00 00 00 00 00 00");
const Bytes kResponse =
    hex("04 02 00 00 00 00 00 00 00000000000000000000000000000000 5e 61 c7 d3 a0 4b 00 00"
        "02 0a 14 1e 32 00 00 00 2f 0c 8a 1e 90 b2 11 ef 8a 3c 02 42 ac 11 00 02 67 45 6a 12"
        "00 00 00 02 00 00 00 00 00 14 00 03 00 07 00 04 00 00 00 00 00 00 00 00");
// Every field has a value of its own, in either byte order.
const Bytes kFullLittle =
    hex("04 09 0c 02 11 03 00 12 04 03 02 01 06 05 08 07 09 0a 0b 0c 0d 0e 0f 10"
        "d3 c7 61 5e 4b a0 00 00 02 0a 14 1e 32 00 00 00 1e 8a 0c 2f b2 90 ef 11"
        "8a 3c 02 42 ac 11 00 02 24 23 22 21 06 00 05 00 fe ff ff ff 28 27 2a 29"
        "2c 2b 02 00 cd ab 00 34 55 66");
const Bytes kFullBig =
    hex("04 09 0c 02 01 03 00 12 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10"
        "5e 61 c7 d3 a0 4b 00 00 02 0a 14 1e 32 00 00 00 2f 0c 8a 1e 90 b2 11 ef"
        "8a 3c 02 42 ac 11 00 02 21 22 23 24 00 05 00 06 ff ff ff fe 27 28 29 2a"
        "2b 2c 00 02 ab cd 00 34 55 66");
// The example of docs/formats/fack.md.
const Bytes kFackBody = hex("01 00 18 00 00 c0 00 00 b8 05 00 00 05 00 01 00 06 00 00 00");

TEST(Pdu, HeadersAreTheirBytes) {
  PacketHeader request;
  request.interface_id = kAlarm;
  request.activity = kActivity;
  request.interface_version = 2;
  request.opnum = 20;
  PacketHeader response = request;
  response.type = PacketType::response;
  response.representation.little_endian = false;
  response.server_boot = 0x67456A12;
  response.interface_hint = 3;
  response.activity_hint = 7;
  PacketHeader full = request;
  full.type = PacketType::fack;
  full.flags1 = kFlagFragment | kFlagNoFack;
  full.flags2 = 2;
  full.representation = {true, true, 3};
  full.serial = 0x1234;
  full.object = {0x01020304, 0x0506, 0x0708, 9, 10, {11, 12, 13, 14, 15, 16}};
  full.server_boot = 0x21222324;
  full.interface_version = 0x00050006;
  full.sequence = 0xFFFFFFFE;
  full.opnum = 0x2728;
  full.interface_hint = 0x292A;
  full.activity_hint = 0x2B2C;
  full.fragment = 0xABCD;
  PacketHeader full_big = full;
  full_big.representation.little_endian = false;

  const struct {
    const PacketHeader& header;
    Bytes body;
    const Bytes& datagram;
  } cases[] = {{request, {}, kRequest},
               {response, Bytes(4), kResponse},
               {full, hex("5566"), kFullLittle},
               {full_big, hex("5566"), kFullBig}};
  for (const auto& c : cases) {
    EXPECT_EQ(hex_text(encode_packet(c.header, c.body)), hex_text(c.datagram));
    const auto packet = decode_packet(c.datagram);
    ASSERT_TRUE(packet);
    EXPECT_EQ(hex_text(packet->body), hex_text(c.body));
    EXPECT_EQ(hex_text(encode_packet(packet->header, packet->body)), hex_text(c.datagram));
  }
}

TEST(Pdu, DropsWhatIsNoPacket) {
  for (std::size_t size = 0; size < kResponse.size(); ++size)
    EXPECT_FALSE(decode_packet(std::span(kResponse).first(size))) << size;
  const struct {
    const char* what;
    std::size_t at;
    int value;
  } cases[] = {
      {"protocol version 5", 0, 5},
      {"packet type 11", 1, 11},
      {"packet type 31", 1, 31},
      {"integer format 2", 4, 0x20},
      {"body longer than the datagram", 75, 5},
      {"authentication", 78, 1},
  };
  for (const auto& each : cases) {
    Bytes datagram = kResponse;
    datagram[each.at] = static_cast<std::byte>(each.value);
    EXPECT_FALSE(decode_packet(datagram)) << each.what;
  }
}

TEST(Pdu, IgnoresBytesBehindTheBodyAndTheUpperBitsOfTheType) {
  Bytes datagram = kResponse;
  datagram[1] = std::byte{0xE2};
  datagram.resize(datagram.size() + 7);
  const auto packet = decode_packet(datagram);
  ASSERT_TRUE(packet);
  EXPECT_EQ(packet->header.type, PacketType::response);
  EXPECT_EQ(packet->body.size(), 4U);
}

TEST(Pdu, ReadsAndWritesTheExampleFack) {
  const auto fack = decode_fack(kFackBody, true);
  ASSERT_TRUE(fack);
  EXPECT_EQ(fack->window_kilobytes, 24);
  EXPECT_EQ(fack->max_tsdu, 49152U);
  EXPECT_EQ(fack->max_fragment, 1464U);
  EXPECT_EQ(fack->serial, 5);
  EXPECT_EQ(fack->selective, std::vector<std::uint32_t>{6});
  EXPECT_EQ(encode_fack(*fack, true), kFackBody);
  const auto other_order = decode_fack(encode_fack(*fack, false), false);
  ASSERT_TRUE(other_order);
  EXPECT_EQ(other_order->selective, fack->selective);
  EXPECT_EQ(other_order->max_tsdu, fack->max_tsdu);
}

TEST(Pdu, TakesAWindowInPacketsAndRefusesFacksThatLie) {
  Bytes body = kFackBody;
  body[0] = std::byte{0};
  EXPECT_EQ(decode_fack(body, true)->window_kilobytes, (24 * 1464 + 1023) / 1024);
  body[2] = body[3] = std::byte{0xFF};
  EXPECT_EQ(decode_fack(body, true)->window_kilobytes, 0xFFFF);
  body[0] = std::byte{2};
  EXPECT_FALSE(decode_fack(body, true));
  for (std::size_t size = 0; size < kFackBody.size(); ++size)
    EXPECT_FALSE(decode_fack(std::span(kFackBody).first(size), true)) << size;
  body = kFackBody;
  body[14] = std::byte{2};
  EXPECT_FALSE(decode_fack(body, true));
}

TEST(Pdu, StatusAndCancelBodies) {
  const Bytes status = encode_status_body(0x1C010003, false);
  EXPECT_EQ(status, hex("1c 01 00 03"));
  EXPECT_EQ(decode_status_body(status, false), 0x1C010003U);
  EXPECT_EQ(decode_status_body(encode_status_body(5, true), true), 5U);
  EXPECT_FALSE(decode_status_body(std::span(status).first(3), false));
  EXPECT_EQ(encode_cancel_body(1, true), hex("00 00 00 00 01 00 00 00"));
}

}  // namespace
}  // namespace rpc
