// SPDX-License-Identifier: Apache-2.0
// The management interface of every server. The first octet says how many interfaces the server
// has, the second the operation, the third the data representations, whether the call is logged and
// whether the server listens; the rest is the request.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/rpc/server/management_interface.h"
#include "platform/rpc/stub/ndr.h"
#include "tests/fuzz/require.h"
#include "tests/support/echo_interface.h"

using namespace rpc;
using namespace rpc::server;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3)
    return 0;
  EchoInterface echo;
  const std::size_t count = data[0] % 70;
  ManagementInterface management(std::vector<Interface*>(count, &echo));
  const std::uint16_t opnum = data[1] % 8;
  const DataRepresentation representation{(data[2] & 1) == 0, (data[2] & 2) != 0, 0};
  const bool little_endian = (data[2] & 4) == 0;
  const bool listening = (data[2] & 16) == 0;
  management.set_listening(listening);
  CallRecord record;
  CallInfo call;
  call.record = (data[2] & 8) != 0 ? &record : nullptr;
  const Outcome outcome = management.dispatch(
      call, opnum, std::as_bytes(std::span(data + 3, size - 3)), representation, little_endian);
  const bool replied = outcome.kind == Outcome::Kind::reply;
  fuzz::require(replied == (outcome.status == 0));
  fuzz::require(management.operation(opnum) != nullptr || !replied);
  if (!replied)
    return 0;
  // Every reply is as long as its out-parameters. Its last is the status, but for the question
  // whether the server listens.
  constexpr std::size_t kInterfaceId = 20;
  const std::size_t sizes[] = {16 + count * (4 + kInterfaceId), 12, 8, 4, 20};
  fuzz::require(opnum < std::size(sizes) && outcome.reply.size() == sizes[opnum]);
  ndr::Decoder last(std::span(outcome.reply).last(4), {little_endian, false, 0});
  fuzz::require((last.get<std::uint32_t>() == 0) == (opnum == 0 || (opnum == 2 && !listening)));
  return 0;
}
