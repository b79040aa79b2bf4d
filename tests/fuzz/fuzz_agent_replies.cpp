// SPDX-License-Identifier: Apache-2.0
// Replies of a repository server, from their bytes through the stubs and the client to the table
// that a user sees.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "source/domain/ZTdataTable.h"
#include "source/domain/ZTrepServerInfoObj.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/scripted_replies.h"
#include "tests/support/endpoint_map_bytes.h"

namespace {

constexpr SystemKey kLoopback = 0x0100007F;

void read_class(zt_RepServerInfo_class& client, int index) {
  const rep_sMetricDescriptor* metrics = client.ReturnMetrics(index);
  std::vector<const rep_sMetricDescriptor*> columns;
  std::vector<std::uint32_t> ids;
  for (int i = 0; i < std::min(client.ReturnNumMetrics(index), 5); ++i) {
    columns.push_back(&metrics[i]);
    ids.push_back(metrics[i].Descriptor.fId);
  }
  if (!client.CreateBaseView(index, ids.data(), static_cast<int>(ids.size())))
    return;
  client.SetPosition(index, 3600);
  for (int batch = 0; batch < 3 && client.ReadData(); ++batch) {
    // A line has its time stamp and a blank for each column, however the values look.
    const auto table = format_data_table(client, columns);
    fuzz::require(!table || table->size() >= client.ReturnRowCount() * (columns.size() + 14));
    fuzz::require(!table || fuzz::is_printable(*table, "\n"));
    if (!client.ReturnMoreData())
      break;
  }
  client.DisconnectFromClass();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::vector<std::byte> map = endpoint_map::lookup_reply(
      true, 0, {{0, endpoint_map::udp_tower(127, 0, 0, 1, 2001), ""}}, 0);
  fuzz::script_replies(data, size, map);
  zt_RepServerInfo_class client(kLoopback, "127.0.0.1");
  if (!client.ValidObj() || !client.ConnectToServer(client.ReturnDataSourceNames().front().c_str()))
    return 0;
  for (int i = 0; i < std::min(client.ReturnNumClasses(), 3); ++i) {
    if (client.ValidClassName(client.ReturnClassName(i)) == i)
      read_class(client, i);
  }
  return 0;
}
