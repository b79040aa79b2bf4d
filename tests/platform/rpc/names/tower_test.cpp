// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/names/tower.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/support/rpc_bytes.h"

namespace {

using rpc::test::hex;
using Octets = rpc::test::Bytes;

constexpr rpc_if_id_t kRep = {
    {0x5b3c82a0, 0x17e4, 0, 0x02, 0x0a, {0x14, 0x1e, 0x28, 0, 0, 0}}, 2, 0};

// docs/formats/tower.md shows these bytes.
const Octets kExample =
    hex("0500 1300 0da0823c5be417000002 0a141e28000000 0200 0200 0000"
        "1300 0d045d888aeb1cc9119fe808002b104860 0200 0200 0000"
        "0100 0a 0200 0000  0100 08 0200 0415  0100 09 0400 0a010203");

std::string text_of(const std::optional<rpc::Tower>& tower) {
  if (!tower)
    return "unusable";
  const rpc_if_id_t& id = tower->interface_id;
  const bool of_rep = id.uuid == kRep.uuid && id.vers_major == 2 && id.vers_minor == 0;
  return tower->protocol_sequence + ":" + tower->network_address + "[" + tower->endpoint + "]" +
         (of_rep ? "" : " of another interface");
}

rpc::Tower tower_of(const char* sequence, const char* address, const char* endpoint) {
  return {kRep, sequence, address, endpoint};
}

// The example's first two floors and then floors of any make, as "left:right left:right".
Octets with_floors(std::uint8_t count, const std::string& floors) {
  Octets made(kExample.begin(), kExample.begin() + 52);
  made[0] = std::byte{count};
  std::istringstream stream(floors);
  for (std::string floor; stream >> floor;) {
    const std::size_t colon = floor.find(':');
    for (const Octets& part : {hex(floor.substr(0, colon)), hex(floor.substr(colon + 1))}) {
      made.push_back(static_cast<std::byte>(part.size()));
      made.push_back(std::byte{0});
      made.insert(made.end(), part.begin(), part.end());
    }
  }
  return made;
}

TEST(Tower, ExampleIsReadAndWrittenByteForByte) {
  const std::optional<rpc::Tower> read = rpc::decode_tower(kExample);
  ASSERT_EQ(text_of(read), "ncadg_ip_udp:10.1.2.3[1045]");
  EXPECT_EQ(rpc::encode_tower(*read), kExample);
}

TEST(Tower, EveryTruncationIsUnusable) {
  for (std::size_t length = 0; length < kExample.size(); ++length) {
    // A copy of exactly this size, so that a read beyond it is seen by the sanitizer.
    const Octets cut(kExample.begin(), kExample.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_FALSE(rpc::decode_tower(cut)) << length;
  }
}

TEST(Tower, BytesBehindTheLastFloorAndSurplusFloorsAreIgnored) {
  Octets longer = kExample;
  longer.push_back(std::byte{0xFF});
  EXPECT_TRUE(rpc::decode_tower(longer));
  EXPECT_TRUE(rpc::decode_tower(with_floors(6, "0a:0000 08:0415 09:0a010203 9998:")));
}

TEST(Tower, EveryProtocolSequenceIsReadAndWritten) {
  struct Case {
    std::uint8_t count;
    const char* floors;
    const char* text;
  };
  const Case cases[] = {
      {5, "0a:0000 08:0087 09:c0a800ff", "ncadg_ip_udp:192.168.0.255[135]"},
      {5, "0a:0000 08:0000 09:00000000", "ncadg_ip_udp:0.0.0.0[]"},
      {5, "0b:0000 07:ffff 09:c0a800ff", "ncacn_ip_tcp:192.168.0.255[65535]"},
      {5, "0b:0100 1f:0251 09:c0a800ff", "ncacn_http:192.168.0.255[593]"},
      {5, "0b:0000 0f:5c706970655c7800 11:5c5c4100", "ncacn_np:\\\\A[\\pipe\\x]"},
      {5, "0b:0000 0f:7800 11:00", "ncacn_np:[x]"},
      {4, "0c:0000 10:4c52004300", "ncalrpc:[LR]"},
      {4, "0a:0000 0e:85e8", "ncadg_ipx:[34280]"},
      {5, "0a:0000 0e:85e8 0e:0000000108002b30fb89", "ncadg_ipx:0000000108002b30fb89[34280]"},
      {4, "0b:0000 13:0000000108002b30fb8985e8", "ncacn_spx:0000000108002b30fb89[34280]"},
  };
  for (const Case& c : cases) {
    const std::optional<rpc::Tower> read = rpc::decode_tower(with_floors(c.count, c.floors));
    ASSERT_EQ(text_of(read), c.text);
    const std::optional<Octets> written = rpc::encode_tower(*read);
    ASSERT_TRUE(written) << c.text;
    EXPECT_EQ(text_of(rpc::decode_tower(*written)), c.text);
  }
}

TEST(Tower, OtherShapesAreUnusable) {
  const struct {
    const char* name;
    std::uint8_t count;
    const char* floors;
  } cases[] = {
      {"two floors", 2, ""},
      {"three floors", 3, "0a:0000"},
      {"no address", 4, "0a:0000 08:0415"},
      {"short address", 5, "0a:0000 08:0415 09:0102"},
      {"sixteen-byte address", 5, "0a:0000 08:0415 09:00000000000000000000000000000000"},
      {"long port", 5, "0a:0000 08:000405 09:0a010203"},
      {"UDP over connections", 5, "0b:0000 08:0415 09:0a010203"},
      {"TCP without", 5, "0a:0000 07:0415 09:0a010203"},
      {"unknown transport", 5, "0a:0000 05:0415 09:0a010203"},
      {"unknown address", 5, "0a:0000 08:0415 06:0a010203"},
      {"empty left part", 5, "0a:0000 :0415 09:0a010203"},
      {"long left part", 5, "0a:0000 0808:0415 09:0a010203"},
      {"no protocol version", 5, "0a: 08:0415 09:0a010203"},
      {"pipe without end", 5, "0b:0000 0f:78 11:00"},
      {"pipe without text", 5, "0b:0000 0f: 11:00"},
      {"pipe without server", 4, "0b:0000 0f:7800"},
      {"short netware", 5, "0a:0000 0e:0415 0e:0a010203"},
      {"all floors claimed", 0xFF, "0a:0000 08:0415 09:0a010203"},
  };
  for (const auto& c : cases)
    EXPECT_FALSE(rpc::decode_tower(with_floors(c.count, c.floors))) << c.name;

  Octets no_uuid = kExample;
  no_uuid[4] = std::byte{0x0a};
  EXPECT_FALSE(rpc::decode_tower(no_uuid));
}

TEST(Tower, WriterRefusesWhatNoTowerCanCarry) {
  const rpc::Tower cases[] = {
      tower_of("ncadg_dnet_nsp", "1.2.3.4", "1"),
      tower_of("ncadg_ip_udp", "alpha", "1"),
      tower_of("ncadg_ip_udp", "", "1"),
      tower_of("ncadg_ip_udp", "1.2.3.4", "65536"),
      tower_of("ncadg_ip_udp", "1.2.3.4", "12x"),
      tower_of("ncadg_ip_udp", "1.2.3.4", "-1"),
      tower_of("ncadg_ipx", "0000000108002b30", ""),
      tower_of("ncadg_ipx", "0000000108002b30fb8g", ""),
      tower_of("ncacn_spx", "1.2.3.4", "1"),
  };
  for (const rpc::Tower& tower : cases)
    EXPECT_FALSE(rpc::encode_tower(tower)) << tower.network_address << '[' << tower.endpoint << ']';
  EXPECT_FALSE(rpc::encode_tower({kRep, "ncalrpc", "", std::string(0x10000, 'x')}));
}

}  // namespace
