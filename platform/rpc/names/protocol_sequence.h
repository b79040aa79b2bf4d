// SPDX-License-Identifier: Apache-2.0
// The names of the protocol sequences that bindings and towers can have (C706 appendix B and I).
// Calls go over kUdp only.

#pragma once

namespace rpc::protseq {

inline constexpr char kUdp[] = "ncadg_ip_udp";
inline constexpr char kTcp[] = "ncacn_ip_tcp";
inline constexpr char kHttp[] = "ncacn_http";
inline constexpr char kNamedPipe[] = "ncacn_np";
inline constexpr char kLocal[] = "ncalrpc";
inline constexpr char kIpx[] = "ncadg_ipx";
inline constexpr char kSpx[] = "ncacn_spx";

}  // namespace rpc::protseq
