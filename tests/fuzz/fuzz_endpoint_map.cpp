// SPDX-License-Identifier: Apache-2.0
// Endpoint maps from anywhere, through the stub, the tower reader and the inquiry to what a user
// sees. The first octet chooses who reads the map: the inquiry itself, the listing, the check of
// the registered servers with its query, or the query alone. The rest is the replies of the mapper
// and of the servers.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <vector>

#include "platform/rpc/stub/stub.h"
#include "shared/dce/ncs2dce.h"
#include "shared/general/SHNLSmsg.h"
#include "source/domain/ZTdiagCommObj.h"
#include "tests/fuzz/printed.h"
#include "tests/fuzz/scripted_replies.h"

namespace {

void walk_elements() {
  RPC_EP_INQ_HANDLE inquiry = nullptr;
  fuzz::require(RpcMgmtEpEltInqBegin(nullptr, RPC_C_EP_ALL_ELTS, nullptr, 0, nullptr, &inquiry) ==
                RPC_S_OK);
  rpc_if_id_t interface_id{};
  uuid_t object{};
  RPC_BINDING_HANDLE binding = nullptr;
  char* annotation = nullptr;
  while (RpcMgmtEpEltInqNextA(inquiry, &interface_id, &binding, &object, &annotation) == RPC_S_OK) {
    fuzz::require(std::strlen(annotation) <= 63);
    // Every binding has a text, but for names of pipes that are longer than a text may be.
    char* text = nullptr;
    const rpc::CallTarget target = rpc::target_of(binding);
    fuzz::require(RpcBindingToStringBindingA(binding, &text) == RPC_S_OK ||
                  target.endpoint.size() + target.network_address.size() >= 2000);
    RpcStringFreeA(&text);
    RpcStringFreeA(&annotation);
    RpcBindingFree(&binding);
  }
  RpcMgmtEpEltInqDone(&inquiry);
}

// Twice with one memory of the silent, as a check's two interfaces have it.
void look_up() {
  static const std::vector<std::int32_t> ignored{0x0200007F};
  static constexpr rpc_if_id_t kInterface{{}, 2, 0};
  KnownSilence silence;
  for (int i = 0; i < 2; ++i) {
    ptc_RpcClientContextStruct records[8];
    std::uint32_t count = std::size(records);
    error_status_t status = RPC_S_OK;
    QueryEPT(nullptr, &kInterface, nullptr, records, &count, &status, nullptr,
             {&ignored, &silence, 0x0100007F});
    fuzz::require(status == RPC_S_OK ? count <= std::size(records) : count == 0);
    ptc_rpc_clnt_ctx_free(records, count, &status);
  }
}

template <typename Check>
void report(Check check) {
  const std::string text = fuzz::printed([&] {
    zt_DiagComm_class diagnostic;
    fuzz::require(diagnostic.ValidSystemName("127.0.0.1") == 1);
    if ((diagnostic.*check)() == 0)
      diagnostic.DisplayErrors();
  });
  fuzz::require(!text.empty() && fuzz::is_printable(text, "\n"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const NLS_MESSAGE_OBJ catalog(ZT_CATALOG);
  if (size == 0)
    return 0;
  fuzz::script_replies(data + 1, size - 1);
  switch (data[0] % 4) {
    case 0:
      walk_elements();
      break;
    case 1:
      report(&zt_DiagComm_class::ListAllRegistered);
      break;
    case 2:
      report(&zt_DiagComm_class::Breakout);
      break;
    default:
      look_up();
      break;
  }
  return 0;
}
