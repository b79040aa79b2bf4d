// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/names/status_text.h"

#include <algorithm>
#include <iterator>

#include "platform/numbers/network_error.h"
#include "platform/rpc/rpc.h"

namespace rpc {
namespace {

constexpr StatusText kTexts[] = {
    {RPC_S_OK, "The operation completed successfully."},
    {RPC_S_ACCESS_DENIED, "Access to the resource was denied."},
    {RPC_X_INVALID_HANDLE,
     "The server does not know the object that was named; it may have been started anew."},
    {RPC_S_OUT_OF_MEMORY, "This program is out of memory."},
    {RPC_S_INVALID_ARG, "A parameter of the call has a value that is not allowed."},
    {RPC_S_SERVER_OUT_OF_MEMORY, "The server is out of memory."},
    {RPC_S_INVALID_STRING_BINDING, "The string binding is not written correctly."},
    {RPC_S_WRONG_KIND_OF_BINDING, "The binding handle is of the wrong kind for this call."},
    {RPC_S_INVALID_BINDING, "The binding handle is not valid."},
    {RPC_S_PROTSEQ_NOT_SUPPORTED, "Calls over this protocol sequence are not supported."},
    {RPC_S_INVALID_RPC_PROTSEQ, "The protocol sequence is not known."},
    {RPC_S_INVALID_STRING_UUID, "The text is not a valid UUID."},
    {RPC_S_INVALID_ENDPOINT_FORMAT,
     "The endpoint is not written correctly for its protocol sequence."},
    {RPC_S_INVALID_NET_ADDR, "The network address is not valid or cannot be resolved."},
    {RPC_S_NO_ENDPOINT_FOUND, "No endpoint was found."},
    {RPC_S_INVALID_TIMEOUT, "The communications time-out is outside the range 0 to 10."},
    {RPC_S_NOT_LISTENING, "The server answers, but does not accept calls."},
    {RPC_S_UNKNOWN_IF, "The server does not know the interface."},
    {RPC_S_SERVER_UNAVAILABLE,
     "The server does not answer; it may not be running, or the network may be down."},
    {RPC_S_SERVER_TOO_BUSY, "The server is too busy to take the call."},
    {RPC_S_CALL_FAILED, "The call failed; it may have run on the server."},
    {RPC_S_CALL_FAILED_DNE, "The call failed before it ran on the server."},
    {RPC_S_PROTOCOL_ERROR, "The rules of the RPC protocol were broken by one of the two sides."},
    {RPC_S_UNSUPPORTED_TRANS_SYN,
     "The server answers in a data representation that is not supported."},
    {RPC_S_UNSUPPORTED_TYPE, "The server does not support the type of the object."},
    {RPC_S_INVALID_TAG, "The server met a union tag that is not valid."},
    {RPC_S_INVALID_BOUND, "The server met an array bound that is not valid."},
    {RPC_S_PROCNUM_OUT_OF_RANGE, "The server does not know the operation."},
    {EPT_S_NOT_REGISTERED, "The server has no endpoint registered for the interface."},
    {RPC_S_CANNOT_SUPPORT, "The operation is not supported."},
    {RPC_S_ZERO_DIVIDE, "The server divided an integer by zero or met an integer overflow."},
    {RPC_S_ADDRESS_ERROR, "The server met an addressing error."},
    {RPC_S_FP_DIV_ZERO, "The server divided a floating-point number by zero."},
    {RPC_S_FP_UNDERFLOW, "The server met a floating-point underflow."},
    {RPC_S_FP_OVERFLOW,
     "The server met a floating-point overflow or another floating-point error."},
    {RPC_X_NO_MORE_ENTRIES, "There are no more entries."},
    {RPC_X_SS_IN_NULL_CONTEXT, "The call names no object of the server; none is open."},
    {RPC_X_NULL_REF_POINTER, "A pointer that the call needs is null."},
    {RPC_X_BAD_STUB_DATA, "The server's answer cannot be decoded."},
    {RPC_S_CALL_CANCELLED, "The call was cancelled."},
    {RPC_S_COMM_FAILURE, "Communications with the server failed."},
    {sockets::WSAEACCES, "The system does not permit the socket operation."},
    {sockets::WSAEINVAL, "The other side sent something that is not valid here."},
    {sockets::WSAEMFILE, "Too many sockets or files are open."},
    {sockets::WSAENETDOWN, "The network is down."},
    {sockets::WSAENETUNREACH, "The network cannot be reached."},
    {sockets::WSAECONNABORTED, "The connection was aborted."},
    {sockets::WSAECONNRESET, "The connection was reset by the other side."},
    {sockets::WSAETIMEDOUT, "The connection timed out."},
    {sockets::WSAECONNREFUSED, "The connection was refused; no server listens at the port."},
    {sockets::WSAEHOSTDOWN, "The host is down."},
    {sockets::WSAEHOSTUNREACH, "The host cannot be reached."},
    {sockets::WSAHOST_NOT_FOUND, "The host name is not known."},
    {ept::kCannotPerform, "The endpoint mapper cannot perform the operation."},
    {ept::kNotRegistered, "Nothing is registered in the endpoint map that matches."},
};

constexpr bool by_number(const StatusText& a, const StatusText& b) {
  return a.number < b.number;
}

constexpr bool is_presentable(const StatusText& entry) {
  return !entry.text.empty() && entry.text.size() < DCE_C_ERROR_STRING_LEN &&
         entry.text.find_first_of("%!\n") == std::string_view::npos;
}

static_assert(std::is_sorted(std::begin(kTexts), std::end(kTexts), by_number));
static_assert(std::all_of(std::begin(kTexts), std::end(kTexts), is_presentable));

}  // namespace

std::string_view status_text(std::uint32_t number) {
  const auto* found =
      std::lower_bound(std::begin(kTexts), std::end(kTexts), StatusText{number, {}}, by_number);
  return found != std::end(kTexts) && found->number == number ? found->text : std::string_view{};
}

}  // namespace rpc

RPC_STATUS DceErrorInqTextA(RPC_STATUS number, char* text) {
  if (text == nullptr)
    return RPC_S_INVALID_ARG;
  const std::string_view sentence = rpc::status_text(number);
  text[sentence.copy(text, sentence.size())] = '\0';
  return sentence.empty() ? RPC_S_INVALID_ARG : RPC_S_OK;
}
