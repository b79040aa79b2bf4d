// SPDX-License-Identifier: Apache-2.0
// Finds the live servers of an interface in a host's endpoint map, in the terms of the older
// location model: one record per server, filtered by an ignore list, by repeated endpoints and by a
// listening probe.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/rpc/rpc.h"
#include "shared/dce/known_silence.h"

using _ptc_ObjId = uuid_t;

// Most records of a query, and most entries of an ignore list.
inline constexpr std::size_t kMostEndpoints = 1024;
inline constexpr std::size_t kMostIgnored = 1024;

// One server that a query found. The record owns its string binding and its binding.
struct ptc_RpcClientContextStruct {
  rpc_if_id_t fInterfaceId;
  _ptc_ObjId fObjectUuid;
  char* fStringBinding;               // RpcStringFreeA
  RPC_BINDING_HANDLE fBindingHandle;  // RpcBindingFree; carries the object UUID
};

// What a query that succeeded may have missed.
struct ptc_LookupLosses {
  LostCall mapper;  // the map was not read, or not to its end
  // The first server over ncadg_ip_udp that is registered and was left out for not answering, and
  // how many there are.
  LostCall server;
  std::string server_address;
  std::uint16_t server_port = 0;
  int servers = 0;
  // The map names more elements, or more servers that answer nothing, than a query has time for;
  // the rest was not looked at.
  bool unfinished = false;
  bool full = false;  // the list was full before the map ended
};

// What a query is made with besides the map.
struct ptc_LookupOptions {
  // Keys left out; null: those of ignoreip.txt.
  const std::vector<std::int32_t>* ignored = nullptr;
  // Servers that are known to be silent are left out, others that are silent noted; may be null.
  KnownSilence* silence = nullptr;
  // The address of the map's host, in network byte order; 0: not known. Behind one silent port of
  // another address, the rest of it gets less and less time, a tenth of the level's in all.
  std::uint32_t host = 0;
};

// The live servers of an interface over ncadg_ip_udp, in the map's order. `epHandle` is a binding
// to the host's endpoint mapper with its time-out set; `objectId` may be null. The count is the
// list's capacity (at most kMostEndpoints) on entry and the records filled on success; on failure
// it is left alone and nothing is to be released.
//
// `losses`, where it is given, says what a successful query may have missed.
void ptc_rpc_ep_lookup(RPC_BINDING_HANDLE epHandle, const rpc_if_id_t* interfaceId,
                       const uuid_t* objectId, ptc_RpcClientContextStruct* clientContextList,
                       std::uint32_t* clientContextListSize, error_status_t* status,
                       ptc_LookupLosses* losses = nullptr, const ptc_LookupOptions& options = {});

// The worker of ptc_rpc_ep_lookup. The count is written whenever the inquiry was opened; it is 0
// after a failure.
void QueryEPT(RPC_BINDING_HANDLE epHandle, const rpc_if_id_t* interfaceId, const uuid_t* objectId,
              ptc_RpcClientContextStruct* clientContextList, std::uint32_t* clientContextListSize,
              error_status_t* status, ptc_LookupLosses* losses = nullptr,
              const ptc_LookupOptions& options = {});

// Frees what the first records own. The status is that of the last call made, untouched for none.
void ptc_rpc_clnt_ctx_free(ptc_RpcClientContextStruct* clientContextList,
                           std::uint32_t clientContextListSize, error_status_t* status);

// A binding of protocol sequence and host alone.
void ptc_binding_from_hostname(const char* host, const char* protseq, RPC_BINDING_HANDLE* handle,
                               error_status_t* opStatus);

// The keys of ignoreip.txt in the configuration directory; their number. A file that cannot be read
// holds none, and a carriage return ends a name like a blank. docs/formats/ignore-list.md describes
// it.
std::size_t ept_CheckIgnoreIPs(std::span<std::int32_t, kMostIgnored> ignore_ip);

// The address or host name of the next entry of an ignore list; nothing at its end.
std::optional<std::string> ept_NextIgnoredName(std::FILE* stream);

// Reads one line without its leading blanks, at most `count` characters (the rest of a longer line
// is skipped), and a newline. The characters stored with the newline; 0 at the end of the file.
int ept_CopyToNewLine(std::string& buffer, std::FILE* stream, int count);

// The first token of a text, at most max_token_size characters; its length, 0 for none. A token in
// quotes runs to the equal quote or to the end of the text and keeps its quotes. token_position is
// the index of its first character (of the terminator when there is none).
int ept_GetToken(const char* input_string, std::string& token, int& token_position,
                 int max_token_size);
