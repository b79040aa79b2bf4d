// SPDX-License-Identifier: Apache-2.0
// The runtime's calls, under the workstation's names: string bindings, binding handles, endpoint
// inquiry, management, UUIDs and status texts. Every call returns a status of the workstation, 0
// for success. Handles are checked: null, stale and foreign ones give 1702.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/numbers/status.h"
#include "platform/rpc/exception.h"
#include "platform/rpc/names/uuid.h"
#include "platform/rpc/stub/interface.h"

struct rpc_if_id_t {
  uuid_t uuid;
  std::uint16_t vers_major;
  std::uint16_t vers_minor;
};

// A binding: protocol sequence, address, endpoint, object and time-out level. Owned by the runtime.
struct RpcBinding;
using RPC_BINDING_HANDLE = RpcBinding*;
using handle_t = RPC_BINDING_HANDLE;
// An open endpoint inquiry.
struct RpcInquiry;
using RPC_EP_INQ_HANDLE = RpcInquiry*;
// A server object that a client holds, from its creation to its destruction. Null when none.
struct RpcContext;
using RPC_CONTEXT_HANDLE = RpcContext*;
// An interface as its generated header names it (zt_v2_rep_v2_0_c_ifspec).
using RPC_IF_HANDLE = const rpc::InterfaceSpec*;

inline constexpr std::uint32_t RPC_C_EP_ALL_ELTS = 0;
inline constexpr std::uint32_t RPC_C_EP_MATCH_BY_IF = 1;
inline constexpr std::uint32_t RPC_C_EP_MATCH_BY_OBJ = 2;
inline constexpr std::uint32_t RPC_C_EP_MATCH_BY_BOTH = 3;
inline constexpr std::uint32_t RPC_C_VERS_ALL = 1;
inline constexpr std::uint32_t RPC_C_VERS_COMPATIBLE = 2;
inline constexpr std::uint32_t RPC_C_VERS_EXACT = 3;
inline constexpr std::uint32_t RPC_C_VERS_MAJOR_ONLY = 4;
inline constexpr std::uint32_t RPC_C_VERS_UPTO = 5;

// --- String bindings: [object@]protseq:[address]['['endpoint[,option=value]']']. Parts that are
// null or empty are left out. Texts handed out are freed with RpcStringFreeA.
RPC_STATUS RpcStringBindingComposeA(const char* object, const char* protocol_sequence,
                                    const char* network_address, const char* endpoint,
                                    const char* options, char** string_binding);
// A null out-pointer means that the part is not wanted; a part that is not there is an empty text.
RPC_STATUS RpcStringBindingParseA(const char* string_binding, char** object,
                                  char** protocol_sequence, char** network_address, char** endpoint,
                                  char** options);
// Frees a text of the runtime and sets the pointer to null; a null text is fine.
RPC_STATUS RpcStringFreeA(char** text);

// --- Binding handles. The address is resolved when the first call is made.
RPC_STATUS RpcBindingFromStringBindingA(const char* string_binding, RPC_BINDING_HANDLE* binding);
RPC_STATUS RpcBindingToStringBindingA(RPC_BINDING_HANDLE binding, char** string_binding);
RPC_STATUS RpcBindingCopy(RPC_BINDING_HANDLE source, RPC_BINDING_HANDLE* copy);
// Frees the binding and sets the handle to null.
RPC_STATUS RpcBindingFree(RPC_BINDING_HANDLE* binding);
// Null clears the object.
RPC_STATUS RpcBindingSetObject(RPC_BINDING_HANDLE binding, const uuid_t* object);
// Levels 0 to 10; any other gives 1709.
RPC_STATUS RpcMgmtSetComTimeout(RPC_BINDING_HANDLE binding, std::uint32_t level);
// Gives a call up after so long, whatever the server says meanwhile: one that says "working" for
// ever would hold its client for ever.
RPC_STATUS RpcMgmtSetComLongest(RPC_BINDING_HANDLE binding, std::chrono::milliseconds longest);
RPC_STATUS RpcMgmtInqComTimeout(RPC_BINDING_HANDLE binding, std::uint32_t* level);

// --- Endpoint inquiry (C706 appendix O). A null binding asks this host.
RPC_STATUS RpcMgmtEpEltInqBegin(RPC_BINDING_HANDLE mapper, std::uint32_t inquiry_type,
                                const rpc_if_id_t* interface_id, std::uint32_t version_option,
                                const uuid_t* object, RPC_EP_INQ_HANDLE* inquiry);
// The next element; any out-pointer but `interface_id` may be null. 1772 at the end. The binding
// (RpcBindingFree) and the annotation (RpcStringFreeA) belong to the caller.
RPC_STATUS RpcMgmtEpEltInqNextA(RPC_EP_INQ_HANDLE inquiry, rpc_if_id_t* interface_id,
                                RPC_BINDING_HANDLE* binding, uuid_t* object, char** annotation);
// How elements are handed out whose protocols the runtime does not know: with the floors of their
// towers in place of a binding.
struct RpcEndpointElement {
  rpc_if_id_t interface_id{};
  RPC_BINDING_HANDLE binding = nullptr;  // RpcBindingFree; null for other protocols
  uuid_t object{};
  std::string annotation;
  std::vector<unsigned> floors;  // identifiers of the protocol floors, from the third on
};
// The next element of any protocol; else as RpcMgmtEpEltInqNextA. An inquiry is read by one of
// both.
RPC_STATUS RpcMgmtEpEltInqNextAny(RPC_EP_INQ_HANDLE inquiry, RpcEndpointElement* element);
// Elements so far that were left out because theirs is no tower.
std::uint32_t RpcMgmtEpEltInqUnreadable(RPC_EP_INQ_HANDLE inquiry);
// Closes the inquiry, on the mapper too, and sets the handle to null.
RPC_STATUS RpcMgmtEpEltInqDone(RPC_EP_INQ_HANDLE* inquiry);

// --- Management.
RPC_STATUS RpcMgmtIsServerListening(RPC_BINDING_HANDLE binding);
// Acknowledges the last replies to all jobs of this thread. To be called before a pause: servers
// repeat what was not acknowledged until the next call does so.
void RpcMgmtAcknowledge();
// From now on no call of this job or thread waits longer without a sign of the server, whatever its
// level; nothing: as long as the level says. For who knows that an answer would come at once. Gives
// the limit that was.
std::optional<std::chrono::milliseconds> RpcMgmtLimitWaits(
    std::optional<std::chrono::milliseconds> longest);
// How a remote call ended, beyond its status.
struct RpcCallOutcome {
  enum class Kind : std::uint8_t {
    answered,       // a reply came, whatever status stands in it
    undelivered,    // nothing of the server was heard; `network` says why
    silent,         // the server was heard and then no more
    question_lost,  // it said that it works, never asked who we are, and was heard no more
    restarted,      // the server was started anew; `number` is its reject's, or 0
    fault,          // `number` is the fault's
    reject,         // `number` is the reject's
    local,          // ended on this side: a binding that cannot be called, a reply that is too long
  };
  Kind kind = Kind::answered;
  // 10061 the port was refused, 10065 the host and 10051 the network cannot be reached, 10013 it is
  // prohibited, 10060 silence.
  RPC_STATUS network = 0;
  std::uint32_t number = 0;  // as it came (C706 appendix E, or the server's own)
  RPC_STATUS status = 0;     // the call's own; a stub may report another
  bool big_endian = false;   // how the server writes the numbers of its reply
  // Packets of the call with an authentication verifier, which nobody here reads.
  unsigned verifiers = 0;
  // The server's question who we are got no answer, so that it did not run the call.
  bool call_back_lost() const {
    return kind == Kind::question_lost || (kind == Kind::reject && number == 0x1C00000B);
  }
  // The server gave no sign, or no further one, for as long as the level allows.
  bool timed_out() const {
    return (kind == Kind::undelivered && network == 10060) || kind == Kind::silent ||
           kind == Kind::question_lost;
  }
};
// Of this thread's last remote call; to be read before the next one.
const RpcCallOutcome& RpcLastCallOutcome();
RPC_STATUS RpcIfInqId(RPC_IF_HANDLE interface, rpc_if_id_t* id);

// --- UUIDs.
RPC_STATUS UuidCreate(uuid_t* uuid);
RPC_STATUS UuidCreateNil(uuid_t* uuid);
// 1 for a nil UUID (a null pointer counts as one), else 0.
int UuidIsNil(const uuid_t* uuid, RPC_STATUS* status);
RPC_STATUS UuidToStringA(const uuid_t* uuid, char** text);
RPC_STATUS UuidFromStringA(const char* text, uuid_t* uuid);

// --- Status texts. The buffer of DceErrorInqTextA must hold this many characters.
inline constexpr int DCE_C_ERROR_STRING_LEN = 160;
// One short sentence without line end. A number without a text gives 87 and an empty text.
RPC_STATUS DceErrorInqTextA(RPC_STATUS number, char* text);
