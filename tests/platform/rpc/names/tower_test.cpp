// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/names/tower.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Octets = std::vector<std::byte>;

constexpr rpc_if_id_t kRep = {
    {0x5b3c82a0, 0x17e4, 0, 0x02, 0x0a, {0x14, 0x1e, 0x28, 0, 0, 0}}, 2, 0};

template <typename... Octet>
Octets octets(Octet... values) {
  return {static_cast<std::byte>(values)...};
}

// docs/formats/tower.md shows these bytes.
const Octets kExample = octets(
    0x05, 0x00, 0x13, 0x00, 0x0d, 0xa0, 0x82, 0x3c, 0x5b, 0xe4, 0x17, 0x00, 0x00, 0x02, 0x0a, 0x14,
    0x1e, 0x28, 0x00, 0x00, 0x00, 0x02, 0x00, 0x02, 0x00, 0x00, 0x00, 0x13, 0x00, 0x0d, 0x04, 0x5d,
    0x88, 0x8a, 0xeb, 0x1c, 0xc9, 0x11, 0x9f, 0xe8, 0x08, 0x00, 0x2b, 0x10, 0x48, 0x60, 0x02, 0x00,
    0x02, 0x00, 0x00, 0x00, 0x01, 0x00, 0x0a, 0x02, 0x00, 0x00, 0x00, 0x01, 0x00, 0x08, 0x02, 0x00,
    0x04, 0x15, 0x01, 0x00, 0x09, 0x04, 0x00, 0x0a, 0x01, 0x02, 0x03);

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

// The example's first two floors and then floors of any make.
Octets with_floors(std::uint8_t count, const std::vector<std::pair<Octets, Octets>>& floors) {
  Octets made(kExample.begin(), kExample.begin() + 52);
  made[0] = std::byte{count};
  for (const auto& [left, right] : floors)
    for (const Octets& part : {left, right}) {
      made.push_back(static_cast<std::byte>(part.size()));
      made.push_back(std::byte{0});
      made.insert(made.end(), part.begin(), part.end());
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
  const Octets six = with_floors(6, {{octets(0x0a), octets(0, 0)},
                                     {octets(0x08), octets(4, 0x15)},
                                     {octets(0x09), octets(10, 1, 2, 3)},
                                     {octets(0x99, 0x98), octets()}});
  EXPECT_TRUE(rpc::decode_tower(six));
}

TEST(Tower, EveryProtocolSequenceIsReadAndWritten) {
  const Octets cl = octets(0x0a), co = octets(0x0b), local = octets(0x0c), zero = octets(0, 0);
  const Octets ip = octets(192, 168, 0, 255);
  const Octets netware = octets(0, 0, 0, 1, 8, 0, 0x2b, 0x30, 0xfb, 0x89);
  struct Case {
    Octets tower;
    std::string text;
  };
  const Case cases[] = {
      {with_floors(5, {{cl, zero}, {octets(0x08), octets(0, 135)}, {octets(0x09), ip}}),
       "ncadg_ip_udp:192.168.0.255[135]"},
      {with_floors(5, {{cl, zero}, {octets(0x08), zero}, {octets(0x09), octets(0, 0, 0, 0)}}),
       "ncadg_ip_udp:0.0.0.0[]"},
      {with_floors(5, {{co, zero}, {octets(0x07), octets(0xff, 0xff)}, {octets(0x09), ip}}),
       "ncacn_ip_tcp:192.168.0.255[65535]"},
      {with_floors(5, {{co, octets(1, 0)}, {octets(0x1f), octets(2, 81)}, {octets(0x09), ip}}),
       "ncacn_http:192.168.0.255[593]"},
      {with_floors(5, {{co, zero},
                       {octets(0x0f), octets('\\', 'p', 'i', 'p', 'e', '\\', 'x', 0)},
                       {octets(0x11), octets('\\', '\\', 'A', 0)}}),
       "ncacn_np:\\\\A[\\pipe\\x]"},
      {with_floors(5, {{co, zero}, {octets(0x0f), octets('x', 0)}, {octets(0x11), octets(0)}}),
       "ncacn_np:[x]"},
      {with_floors(4, {{local, zero}, {octets(0x10), octets('L', 'R', 0, 'C', 0)}}),
       "ncalrpc:[LR]"},
      {with_floors(4, {{cl, zero}, {octets(0x0e), octets(0x85, 0xe8)}}), "ncadg_ipx:[34280]"},
      {with_floors(5, {{cl, zero}, {octets(0x0e), octets(0x85, 0xe8)}, {octets(0x0e), netware}}),
       "ncadg_ipx:0000000108002b30fb89[34280]"},
      {with_floors(4,
                   {{co, zero},
                    {octets(0x13), octets(0, 0, 0, 1, 8, 0, 0x2b, 0x30, 0xfb, 0x89, 0x85, 0xe8)}}),
       "ncacn_spx:0000000108002b30fb89[34280]"},
  };
  for (const Case& c : cases) {
    const std::optional<rpc::Tower> read = rpc::decode_tower(c.tower);
    ASSERT_EQ(text_of(read), c.text);
    const std::optional<Octets> written = rpc::encode_tower(*read);
    ASSERT_TRUE(written) << c.text;
    EXPECT_EQ(text_of(rpc::decode_tower(*written)), c.text);
  }
}

TEST(Tower, OtherShapesAreUnusable) {
  const Octets cl = octets(0x0a), co = octets(0x0b), zero = octets(0, 0), port = octets(4, 0x15);
  const Octets ip = octets(10, 1, 2, 3);
  const std::pair<const char*, Octets> cases[] = {
      {"two floors", with_floors(2, {})},
      {"three floors", with_floors(3, {{cl, zero}})},
      {"no address", with_floors(4, {{cl, zero}, {octets(0x08), port}})},
      {"short address", with_floors(5, {{cl, zero}, {octets(8), port}, {octets(9), octets(1, 2)}})},
      {"sixteen-byte address",
       with_floors(5, {{cl, zero}, {octets(8), port}, {octets(9), Octets(16)}})},
      {"long port", with_floors(5, {{cl, zero}, {octets(8), octets(0, 4, 5)}, {octets(9), ip}})},
      {"UDP over connections", with_floors(5, {{co, zero}, {octets(8), port}, {octets(9), ip}})},
      {"TCP without", with_floors(5, {{cl, zero}, {octets(7), port}, {octets(9), ip}})},
      {"unknown transport", with_floors(5, {{cl, zero}, {octets(5), port}, {octets(9), ip}})},
      {"unknown address", with_floors(5, {{cl, zero}, {octets(8), port}, {octets(6), ip}})},
      {"empty left part", with_floors(5, {{cl, zero}, {octets(), port}, {octets(9), ip}})},
      {"long left part", with_floors(5, {{cl, zero}, {octets(8, 8), port}, {octets(9), ip}})},
      {"no protocol version", with_floors(5, {{cl, {}}, {octets(8), port}, {octets(9), ip}})},
      {"pipe without end",
       with_floors(5, {{co, zero}, {octets(0x0f), octets('x')}, {octets(0x11), octets(0)}})},
      {"pipe without text",
       with_floors(5, {{co, zero}, {octets(0x0f), octets()}, {octets(0x11), octets(0)}})},
      {"pipe without server", with_floors(4, {{co, zero}, {octets(0x0f), octets('x', 0)}})},
      {"short netware", with_floors(5, {{cl, zero}, {octets(0x0e), port}, {octets(0x0e), ip}})},
      {"all floors claimed", with_floors(0xFF, {{cl, zero}, {octets(8), port}, {octets(9), ip}})},
  };
  for (const auto& [name, tower] : cases)
    EXPECT_FALSE(rpc::decode_tower(tower)) << name;

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
