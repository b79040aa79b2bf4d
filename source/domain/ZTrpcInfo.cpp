// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTrpcInfo.h"

#include <cinttypes>
#include <cstdio>

#include "present/util/util.h"
#include "source/support/ZTformat.h"

std::string zt_status_text(error_status_t status) {
  char text[DCE_C_ERROR_STRING_LEN] = {};
  if (DceErrorInqTextA(status, text) != RPC_S_OK)
    return format_text("Couldn't get DCE message text for status %d.",
                       static_cast<std::int32_t>(status));
  return text;
}

void zt_rpc_log(int enter, const char* operation, const zt_RPCinfo_t& RPCinfo,
                error_status_t status) {
  DateTime now;
  now.SetTimeNow();
  std::string text = zt_status_text(status);
  if (const auto& outcome = RpcLastCallOutcome(); !enter && status != 0 && outcome.number != 0)
    append_text(text, " (%s 0x%08X)",
                outcome.kind == RpcCallOutcome::Kind::fault ? "fault" : "reject", outcome.number);
  if (const unsigned verifiers = RpcLastCallOutcome().verifiers; !enter && verifiers != 0)
    append_text(text, " (%u packets with a verifier)", verifiers);
  const char* time = now.FmtTime();
  const char* date = now.FmtMdy();
  const auto number = [](const void* handle) { return reinterpret_cast<std::uintptr_t>(handle); };
  const std::string line =
      format_text("%s %s %s %-25s status:0x%x text:%s v.%d --hd:0x%08" PRIxPTR " vc:0x%08" PRIxPTR
                  " fc:0x%08" PRIxPTR "--",
                  date, time, enter ? "enter" : "exit ", operation, status, text.c_str(),
                  static_cast<int>(RPCinfo.version), number(RPCinfo.rpc_handle),
                  number(RPCinfo.view_context), number(RPCinfo.filter_context));
  std::fprintf(stderr, "RPC_TRACE: %s\n", line.c_str());
  std::fflush(stderr);
}
