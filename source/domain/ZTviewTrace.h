// SPDX-License-Identifier: Apache-2.0
// What the creators of views share: how their parameters go out and into the trace.

#pragma once

#include <cstdint>
#include <string>

#include "present/util/util.h"
#include "source/domain/ZTdiagCommTrace.h"
#include "source/domain/ZTrpcSystemObj.h"

// A parameter, or a state of the object, that no call can be made with.
inline constexpr LostCall kBadParameter{RPC_S_INVALID_ARG, {RpcCallOutcome::Kind::local}};

// Times that carry the mark of no time cannot be formatted.
inline std::string text_of_time(std::uint32_t seconds, const char* (DateTime::*format)() const) {
  DateTime time;
  time.SetGmt(seconds);
  return time.Initialized() ? (time.*format)() : "not initialized";
}

// The last index of a list of so many elements; all bits set for an empty one.
inline std::uint32_t last_index_of(int count) {
  return static_cast<std::uint32_t>(count) - 1U;
}

// A list of nothing still needs a place.
inline const std::uint32_t* list_or_empty(const std::uint32_t* list) {
  static constexpr std::uint32_t kNothing = 0;
  return list != nullptr ? list : &kNothing;
}

inline std::int32_t signed_number(std::uint32_t number) {
  return static_cast<std::int32_t>(number);
}

// The labels' width differs from view to view.
inline void trace_ids(const char* label, const std::uint32_t* ids, int count) {
  for (int i = 0; i < count; ++i)
    gTraceObj.LogMsg("%s = %-4d", label, signed_number(ids[i]));
}
