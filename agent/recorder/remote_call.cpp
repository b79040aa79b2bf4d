// SPDX-License-Identifier: Apache-2.0
#include "agent/recorder/remote_call.h"

#include <chrono>
#include <utility>

#include "platform/numbers/network_error.h"
#include "platform/numbers/timeout_level.h"
#include "platform/rpc/names/socket_address.h"
#include "platform/sys/sockets.h"

namespace agent::recorder {

namespace {

using Kind = RpcCallOutcome::Kind;

constexpr int kLongestInSilences = 8;

std::string number_text(std::string_view what, std::uint32_t number) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text(what);
  text += " 0x";
  for (int shift = 28; shift >= 0; shift -= 4)
    text += kDigits[number >> shift & 0xF];
  char words[DCE_C_ERROR_STRING_LEN];
  if (DceErrorInqTextA(number, words) == RPC_S_OK)
    text += std::string(" (") + words + ")";
  return text;
}

}  // namespace

CallEnd end_of_call(RPC_STATUS status, bool undecodable) {
  return {status, RpcLastCallOutcome(), undecodable};
}

bool CallEnd::refused() const {
  return outcome.kind == Kind::undelivered && outcome.network != sockets::WSAETIMEDOUT;
}

bool CallEnd::unanswered() const {
  return !undecodable && (outcome.kind == Kind::silent || outcome.kind == Kind::undelivered ||
                          outcome.kind == Kind::question_lost);
}

std::string CallEnd::words() const {
  if (undecodable)
    return "a reply that cannot be decoded";
  switch (outcome.kind) {
    case Kind::answered:
      return number_text("status", status);
    case Kind::undelivered:
      if (outcome.network == sockets::WSAETIMEDOUT)
        return "no answer";
      return outcome.network == sockets::WSAECONNREFUSED
                 ? "the port is refused"
                 : "the network is no way there (" + std::to_string(outcome.network) + ")";
    case Kind::silent:
      return "it fell silent, or said for too long that it works";
    case Kind::question_lost:
      return "its question who asks is lost on the way";
    case Kind::restarted:
      return "it was started anew meanwhile";
    case Kind::fault:
      return number_text("fault", outcome.number);
    case Kind::reject:
      return number_text("reject", outcome.number);
    case Kind::local:
      break;
  }
  return number_text("status", status);
}

OperationBehaviour CallEnd::behaviour(std::string operation) const {
  OperationBehaviour rule;
  rule.operation = std::move(operation);
  if (undecodable)
    rule.cut = 1;
  else if (outcome.kind == Kind::fault)
    rule.fault = outcome.number;
  else if (outcome.kind == Kind::reject)
    rule.reject = outcome.number;
  else if (answered())
    rule.status = status;
  else if (refused())
    rule.die = true;
  else if (outcome.kind == Kind::restarted)
    rule.restart = true;
  else
    rule.silent = true;
  return rule;
}

Server::Server(std::uint32_t address, std::uint16_t port, unsigned level) {
  const std::string text =
      "ncadg_ip_udp:" + rpc::dotted(address) + "[" + std::to_string(port) + "]";
  RpcBindingFromStringBindingA(text.c_str(), &handle_);
  RpcMgmtSetComTimeout(handle_, level);
  if (const auto silence = rpc::silence_of_level(level))
    RpcMgmtSetComLongest(handle_, *silence * kLongestInSilences);
}

Server::~Server() {
  RpcBindingFree(&handle_);
}

}  // namespace agent::recorder
