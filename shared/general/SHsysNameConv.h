// SPDX-License-Identifier: Apache-2.0
// System keys: a system is known by its IPv4 address, whose octets in dotted order are the key's
// four bytes in memory (the value of inet_addr). -1 means no address, wherever it comes from; a
// name or text that gives 0.0.0.0 has none either.
//
// The socket library must be started before the first lookup.

#pragma once

#include <cstdint>
#include <vector>

using SystemKey = std::int32_t;
inline constexpr SystemKey kNoSystemKey = -1;

// A key seen as a number and as octets.
union ptc_KeyConversion_struct {
  std::uint32_t Int;
  std::uint8_t Char[4];
};
static_assert(sizeof(ptc_KeyConversion_struct) == 4);

enum logical_flag : int { myFalse = 0, myTrue = 1 };

// Room for either text of a key, terminator included, and for a host name.
inline constexpr int kKeyTextSize = 20;
inline constexpr int kHostNameSize = 256;

// "10.1.2.3", or "#10.1.2.3" (the socket string) when includePoundSign is exactly myTrue.
void SHformatSystemKey(ptc_KeyConversion_struct key, char* output, logical_flag includePoundSign);
void SystemKeyToIPAddr(SystemKey key, char* output);
void SystemKeyToSocketString(SystemKey key, char* output);

// The socket string of a name's first address. 0; -2: the name does not resolve, output untouched.
int GetSocketString(const char* host_name, char* output);
// The same of the local system. -1: its name cannot be read.
int GetLocalSocketString(char* output);

// The key of a host name or dotted address, whose trailing blanks are cut off in place. 0; -1: no
// address, and the key holds -1.
int ARPANameToSystemKey(char* name, SystemKey& key);

// Whether a name or literal that has no key stands for addresses of another family.
bool SystemHasOtherFamily(const char* name);
// As ARPANameToSystemKey, and all addresses of the name, the key's first.
int ARPANameToSystemKeys(char* name, SystemKey& key, std::vector<SystemKey>& keys);

// 0; -1: the local name cannot be read; -2: it does not resolve. The key is written for 0 only.
int GetLocalSystemKey(SystemKey& key);

// The official name of an address into a buffer of `size` characters with its terminator. 0; -1:
// no name, or none that fits, output untouched.
int SystemKeyToARPAName(SystemKey key, char* output, std::int32_t size);
