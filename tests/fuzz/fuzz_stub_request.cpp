// SPDX-License-Identifier: Apache-2.0
// Requests from anywhere, through the simulated agent's interfaces and the management interface:
// the first byte chooses the interface, the second the operation, the third the data
// representation and whether the call is logged or refused, the rest is the body.

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "platform/rpc/server/management_interface.h"
#include "tests/support/agent_interfaces.h"

namespace {

// A class with two metrics and an instance, and ten rows.
std::shared_ptr<const agent::DataSource> source() {
  auto result = std::make_shared<agent::DataSource>();
  result->name = "S";
  agent::ClassData data;
  data.id = 1;
  data.name = "C";
  data.metrics.resize(2);
  data.metrics[0].id = 1;
  data.metrics[1].id = 2;
  data.instances = {{7, "x", "X", 0, 9999}};
  data.first_time = 600;
  data.row_count = 10;
  result->classes.push_back(data);
  return result;
}

std::vector<rpc::server::Interface*> servers() {
  static agent::test::Interfaces interfaces(source(), {});
  interfaces.map().add(
      {.object = {}, .interface_id = {}, .tower = {std::byte{1}, std::byte{2}}, .annotation = "x"});
  static rpc::server::ManagementInterface management(interfaces.all());
  std::vector<rpc::server::Interface*> all = interfaces.all();
  all.push_back(&management);
  return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::vector<rpc::server::Interface*> all = servers();
  if (size < 3)
    return 0;
  rpc::server::Interface& server = *all[data[0] % all.size()];
  const std::span body(reinterpret_cast<const std::byte*>(data + 3), size - 3);
  rpc::server::CallRecord record;
  rpc::server::CallInfo call;
  if ((data[2] & 8) != 0)
    call.record = &record;
  if ((data[2] & 16) != 0)
    call.forced_status = 5;
  const rpc::server::Outcome outcome = server.dispatch(
      call, data[1], body, {.little_endian = (data[2] & 1) == 0, .ebcdic = (data[2] & 2) != 0},
      (data[2] & 4) == 0);
  if ((outcome.kind == rpc::server::Outcome::Kind::reply) != (outcome.status == 0))
    std::abort();
  if (record.octets_left_over > body.size())
    std::abort();
  return 0;
}
