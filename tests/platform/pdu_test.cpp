#include "platform/rpc/pdu.h"

#include <gtest/gtest.h>

#include "tests/platform/rpc_bytes.h"

namespace rpc {
namespace {

using test::Bytes;
using test::hex;

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
// The example of docs/formats/fack.md.
const Bytes kFackBody = hex("01 00 18 00 00 c0 00 00 b8 05 00 00 05 00 01 00 06 00 00 00");

PacketHeader request_header() {
  PacketHeader header;
  header.interface_id = kAlarm;
  header.activity = kActivity;
  header.interface_version = 2;
  header.opnum = 20;
  return header;
}

TEST(Pdu, EncodesTheExampleRequest) {
  EXPECT_EQ(encode_packet(request_header(), {}), kRequest);
}

TEST(Pdu, DecodesTheExampleAnswerOfABigEndianServer) {
  const auto packet = decode_packet(kResponse);
  ASSERT_TRUE(packet);
  const PacketHeader& header = packet->header;
  EXPECT_EQ(header.type, PacketType::response);
  EXPECT_FALSE(header.representation.little_endian);
  EXPECT_EQ(header.interface_id, kAlarm);
  EXPECT_EQ(header.activity, kActivity);
  EXPECT_EQ(header.server_boot, 0x67456A12U);
  EXPECT_EQ(header.interface_version, 2U);
  EXPECT_EQ(header.sequence, 0U);
  EXPECT_EQ(header.opnum, 20);
  EXPECT_EQ(header.interface_hint, 3);
  EXPECT_EQ(header.activity_hint, 7);
  EXPECT_EQ(packet->body.size(), 4U);
  EXPECT_EQ(encode_packet(header, packet->body), kResponse);
}

TEST(Pdu, EveryFieldSurvivesBothByteOrders) {
  for (const bool little : {true, false}) {
    PacketHeader header;
    header.type = PacketType::fack;
    header.flags1 = kFlagFragment | kFlagNoFack;
    header.flags2 = 2;
    header.representation = {little, true, 3};
    header.serial = 0x1234;
    header.object = kActivity;
    header.interface_id = kAlarm;
    header.activity = kActivity;
    header.server_boot = 0x01020304;
    header.interface_version = 0x00050006;
    header.sequence = 0xFFFFFFFE;
    header.opnum = 7;
    header.interface_hint = 8;
    header.activity_hint = 9;
    header.fragment = 0xABCD;
    const Bytes datagram = encode_packet(header, test::pattern(13));
    const auto packet = decode_packet(datagram);
    ASSERT_TRUE(packet);
    EXPECT_EQ(encode_packet(packet->header, packet->body), datagram);
    EXPECT_EQ(packet->header.serial, 0x1234);
    EXPECT_EQ(packet->header.fragment, 0xABCD);
    EXPECT_EQ(packet->header.representation, header.representation);
    EXPECT_EQ(packet->header.object, kActivity);
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
