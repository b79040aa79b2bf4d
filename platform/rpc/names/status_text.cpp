// SPDX-License-Identifier: Apache-2.0
#include "platform/rpc/names/status_text.h"

#include <algorithm>
#include <iterator>

#include "platform/rpc/rpc.h"

namespace rpc {
namespace {

constexpr StatusText kTexts[] = {
    {0, "The operation completed successfully."},
    {5, "Access to the resource was denied."},
    {6, "The server does not know the object that was named; it may have been started anew."},
    {8, "This program is out of memory."},
    {87, "A parameter of the call has a value that is not allowed."},
    {1130, "The server is out of memory."},
    {1700, "The string binding is not written correctly."},
    {1701, "The binding handle is of the wrong kind for this call."},
    {1702, "The binding handle is not valid."},
    {1703, "Calls over this protocol sequence are not supported."},
    {1704, "The protocol sequence is not known."},
    {1705, "The text is not a valid UUID."},
    {1706, "The endpoint is not written correctly for its protocol sequence."},
    {1707, "The network address is not valid or cannot be resolved."},
    {1708, "No endpoint was found."},
    {1709, "The communications time-out is outside the range 0 to 10."},
    {1715, "The server answers, but does not accept calls."},
    {1717, "The server does not know the interface."},
    {1722, "The server does not answer; it may not be running, or the network may be down."},
    {1723, "The server is too busy to take the call."},
    {1726, "The call failed; it may have run on the server."},
    {1727, "The call failed before it ran on the server."},
    {1728, "The rules of the RPC protocol were broken by one of the two sides."},
    {1730, "The server answers in a data representation that is not supported."},
    {1732, "The server does not support the type of the object."},
    {1733, "The server met a union tag that is not valid."},
    {1734, "The server met an array bound that is not valid."},
    {1745, "The server does not know the operation."},
    {1753, "The server has no endpoint registered for the interface."},
    {1764, "The operation is not supported."},
    {1767, "The server divided an integer by zero or met an integer overflow."},
    {1768, "The server met an addressing error."},
    {1769, "The server divided a floating-point number by zero."},
    {1770, "The server met a floating-point underflow."},
    {1771, "The server met a floating-point overflow or another floating-point error."},
    {1772, "There are no more entries."},
    {1775, "The call names no object of the server; none is open."},
    {1780, "A pointer that the call needs is null."},
    {1783, "The server's answer cannot be decoded."},
    {1818, "The call was cancelled."},
    {1820, "Communications with the server failed."},
    {10013, "The system does not permit the socket operation."},
    {10022, "The other side sent something that is not valid here."},
    {10024, "Too many sockets or files are open."},
    {10050, "The network is down."},
    {10051, "The network cannot be reached."},
    {10053, "The connection was aborted."},
    {10054, "The connection was reset by the other side."},
    {10060, "The connection timed out."},
    {10061, "The connection was refused; no server listens at the port."},
    {10064, "The host is down."},
    {10065, "The host cannot be reached."},
    {11001, "The host name is not known."},
    {0x16C9A0CD, "The endpoint mapper cannot perform the operation."},
    {0x16C9A0D6, "Nothing is registered in the endpoint map that matches."},
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
