// SPDX-License-Identifier: Apache-2.0
// Endpoint maps from anywhere, through the stub, the tower reader and the inquiry to what a user
// sees. The first octet chooses who reads the map: the inquiry itself, the listing, or the check of
// the registered servers with its query. The rest is the replies of the mapper and of the servers.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/rpc/stub/stub.h"
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
  switch (data[0] % 3) {
    case 0:
      walk_elements();
      break;
    case 1:
      report(&zt_DiagComm_class::ListAllRegistered);
      break;
    default:
      report(&zt_DiagComm_class::Breakout);
      break;
  }
  return 0;
}
