// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/binding.h"

#include <algorithm>
#include <optional>

#include "platform/numbers/timeout_level.h"
#include "platform/rpc/handed_out_text.h"
#include "platform/rpc/handle_table.h"
#include "platform/rpc/names/protocol_sequence.h"
#include "platform/rpc/names/string_binding.h"
#include "platform/rpc/stub/stub.h"

namespace rpc {
namespace {

constexpr ProtocolSequence kProtocolSequences[] = {
    {protseq::kUdp, EndpointForm::port, true},
    {protseq::kTcp, EndpointForm::port, true},
    {protseq::kNamedPipe, EndpointForm::named_pipe, false},
    {protseq::kLocal, EndpointForm::name, false},
    {protseq::kHttp, EndpointForm::port, true},
    {protseq::kIpx, EndpointForm::port, false},
    {protseq::kSpx, EndpointForm::port, false},
};

// The longest name of the domain name system (RFC 1035 2.3.4); other networks' are shorter.
constexpr std::size_t kMaxAddress = 255;
constexpr std::string_view kPipePrefix = "\\pipe\\";

HandleTable<RPC_BINDING_HANDLE, Binding>& bindings() {
  static HandleTable<RPC_BINDING_HANDLE, Binding> table;
  return table;
}

constexpr bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

constexpr char to_lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool is_control(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

// Bytes outside ASCII are left to the resolver: a hosts file may hold names in UTF-8.
constexpr bool is_host_character(char c) {
  return is_digit(c) || (to_lower(c) >= 'a' && to_lower(c) <= 'z') || c == '-' || c == '.' ||
         c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

bool is_port(std::string_view text) {
  if (text.empty() || text.size() > 5 || !std::all_of(text.begin(), text.end(), is_digit))
    return false;
  unsigned port = 0;
  for (const char c : text)
    port = port * 10 + static_cast<unsigned>(c - '0');
  return port >= 1 && port <= 65535;
}

bool is_named_pipe(std::string_view text) {
  return text.size() > kPipePrefix.size() &&
         std::equal(kPipePrefix.begin(), kPipePrefix.end(), text.begin(),
                    [](char a, char b) { return a == to_lower(b); });
}

bool endpoint_fits(const ProtocolSequence& sequence, std::string_view endpoint) {
  if (endpoint.empty())
    return true;
  if (std::any_of(endpoint.begin(), endpoint.end(), is_control))
    return false;
  switch (sequence.endpoint) {
    case EndpointForm::port:
      return is_port(endpoint);
    case EndpointForm::named_pipe:
      return is_named_pipe(endpoint);
    case EndpointForm::name:
      return true;
  }
  return false;
}

bool address_fits(const ProtocolSequence& sequence, std::string_view address) {
  if (address.size() > kMaxAddress)
    return false;
  if (sequence.internet_address)
    return std::all_of(address.begin(), address.end(), is_host_character);
  return std::none_of(address.begin(), address.end(), is_control);
}

}  // namespace

const ProtocolSequence* find_protocol_sequence(std::string_view name) {
  const auto* found =
      std::find_if(std::begin(kProtocolSequences), std::end(kProtocolSequences),
                   [&](const ProtocolSequence& sequence) { return sequence.name == name; });
  return found == std::end(kProtocolSequences) ? nullptr : found;
}

RPC_STATUS binding_from_text(std::string_view text, Binding* binding) {
  StringBinding parts;
  const RPC_STATUS status = parse_string_binding(text, &parts);
  if (status != RPC_S_OK)
    return status;
  const ProtocolSequence* sequence = find_protocol_sequence(parts.protocol_sequence);
  if (sequence == nullptr)
    return RPC_S_INVALID_RPC_PROTSEQ;
  if (!endpoint_fits(*sequence, parts.endpoint))
    return RPC_S_INVALID_ENDPOINT_FORMAT;
  if (!address_fits(*sequence, parts.network_address))
    return RPC_S_INVALID_NET_ADDR;
  binding->target.protocol_sequence = std::move(parts.protocol_sequence);
  binding->target.network_address = std::move(parts.network_address);
  binding->target.endpoint = std::move(parts.endpoint);
  binding->target.object = uuid_from_text(parts.object).value_or(uuid_t{});
  binding->target.timeout_level = kDefaultTimeoutLevel;
  binding->options = std::move(parts.options);
  return RPC_S_OK;
}

RPC_BINDING_HANDLE register_binding(Binding binding) {
  return bindings().insert(std::move(binding));
}

bool unregister_binding(RPC_BINDING_HANDLE binding) {
  return bindings().remove(binding) != nullptr;
}

CallTarget target_of(RPC_BINDING_HANDLE binding) {
  const std::shared_ptr<Binding> found = bindings().find(binding);
  if (found == nullptr)
    throw RpcException(RPC_S_INVALID_BINDING, FailureKind::communication);
  return found->target;
}

}  // namespace rpc

RPC_STATUS RpcBindingFromStringBindingA(const char* string_binding, RPC_BINDING_HANDLE* binding) {
  if (binding == nullptr)
    return RPC_S_INVALID_ARG;
  *binding = nullptr;
  if (string_binding == nullptr)
    return RPC_S_INVALID_STRING_BINDING;
  rpc::Binding made;
  const RPC_STATUS status = rpc::binding_from_text(string_binding, &made);
  if (status == RPC_S_OK)
    *binding = rpc::register_binding(std::move(made));
  return status;
}

RPC_STATUS RpcBindingToStringBindingA(RPC_BINDING_HANDLE binding, char** string_binding) {
  if (string_binding == nullptr)
    return RPC_S_INVALID_ARG;
  *string_binding = nullptr;
  const std::shared_ptr<rpc::Binding> found = rpc::bindings().find(binding);
  if (found == nullptr)
    return RPC_S_INVALID_BINDING;
  const rpc::CallTarget& target = found->target;
  const rpc::StringBinding parts{
      target.object == uuid_t{} ? std::string{} : rpc::uuid_to_text(target.object),
      target.protocol_sequence, target.network_address, target.endpoint, found->options};
  std::string text;
  const RPC_STATUS status = rpc::compose_string_binding(parts, &text);
  return status == RPC_S_OK ? rpc::hand_out_text(text, string_binding) : status;
}

RPC_STATUS RpcBindingCopy(RPC_BINDING_HANDLE source, RPC_BINDING_HANDLE* copy) {
  if (copy == nullptr)
    return RPC_S_INVALID_ARG;
  *copy = nullptr;
  const std::shared_ptr<rpc::Binding> found = rpc::bindings().find(source);
  if (found == nullptr)
    return RPC_S_INVALID_BINDING;
  *copy = rpc::register_binding(*found);
  return RPC_S_OK;
}

RPC_STATUS RpcBindingFree(RPC_BINDING_HANDLE* binding) {
  if (binding == nullptr)
    return RPC_S_INVALID_ARG;
  if (!rpc::unregister_binding(*binding))
    return RPC_S_INVALID_BINDING;
  *binding = nullptr;
  rpc::release_activities();
  return RPC_S_OK;
}

RPC_STATUS RpcBindingSetObject(RPC_BINDING_HANDLE binding, const uuid_t* object) {
  const std::shared_ptr<rpc::Binding> found = rpc::bindings().find(binding);
  if (found == nullptr)
    return RPC_S_INVALID_BINDING;
  found->target.object = object == nullptr ? uuid_t{} : *object;
  return RPC_S_OK;
}

RPC_STATUS RpcMgmtSetComTimeout(RPC_BINDING_HANDLE binding, std::uint32_t level) {
  const std::shared_ptr<rpc::Binding> found = rpc::bindings().find(binding);
  if (found == nullptr)
    return RPC_S_INVALID_BINDING;
  if (level >= rpc::kTimeoutLevels)
    return RPC_S_INVALID_TIMEOUT;
  found->target.timeout_level = level;
  return RPC_S_OK;
}

RPC_STATUS RpcMgmtSetComLongest(RPC_BINDING_HANDLE binding, std::chrono::milliseconds longest) {
  const std::shared_ptr<rpc::Binding> found = rpc::bindings().find(binding);
  if (found == nullptr)
    return RPC_S_INVALID_BINDING;
  found->target.longest = longest;
  return RPC_S_OK;
}

RPC_STATUS RpcMgmtInqComTimeout(RPC_BINDING_HANDLE binding, std::uint32_t* level) {
  const std::shared_ptr<rpc::Binding> found = rpc::bindings().find(binding);
  if (found == nullptr)
    return RPC_S_INVALID_BINDING;
  if (level == nullptr)
    return RPC_S_INVALID_ARG;
  *level = found->target.timeout_level;
  return RPC_S_OK;
}
