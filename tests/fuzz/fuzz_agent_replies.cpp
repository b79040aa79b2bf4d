// SPDX-License-Identifier: Apache-2.0
// Replies of a repository server, from their bytes through the stubs and the client to the table
// that a user sees. The input is a list of replies: a byte for the data representation (bit 0:
// big-endian), two bytes of length (low first), and the body. A call without a reply fails.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

#include "platform/rpc/client/invoke.h"
#include "scripted_agent.h"
#include "source/domain/ZTdataTable.h"
#include "source/domain/ZTrepServerInfoObj.h"

namespace {

std::span<const std::uint8_t> replies;

}  // namespace

namespace rpc {

Reply invoke(const CallTarget&, const OperationSpec&, std::span<const std::byte>,
             std::size_t reply_limit) {
  if (replies.size() < 3)
    throw RpcException(1726, FailureKind::communication);
  Reply reply;
  reply.representation.little_endian = (replies[0] & 1) == 0;
  const std::size_t length =
      std::min<std::size_t>(replies[1] | std::size_t{replies[2]} << 8, replies.size() - 3);
  if (length > reply_limit)
    throw RpcException(1783, FailureKind::local);
  const auto body = std::as_bytes(replies.subspan(3, length));
  reply.body.assign(body.begin(), body.end());
  replies = replies.subspan(3 + length);
  return reply;
}

void release_activities(bool) {}

std::optional<std::chrono::milliseconds> limit_waits(std::optional<std::chrono::milliseconds>) {
  return std::nullopt;
}

}  // namespace rpc

namespace {

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
    if (table && table->size() < client.ReturnRowCount() * (columns.size() + 14))
      std::abort();
    if (!client.ReturnMoreData())
      break;
  }
  client.DisconnectFromClass();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  replies = {data, size};
  agent = {};
  agent.servers = {{"", "SERVER", 1, "", 2001}};
  zt_RepServerInfo_class client(kLoopback, "127.0.0.1");
  if (!client.ValidObj() || !client.ConnectToServer(client.ReturnDataSourceNames().front().c_str()))
    return 0;
  for (int i = 0; i < std::min(client.ReturnNumClasses(), 3); ++i) {
    if (client.ValidClassName(client.ReturnClassName(i)) == i)
      read_class(client, i);
  }
  return 0;
}
