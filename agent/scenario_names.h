// SPDX-License-Identifier: Apache-2.0
// Names that both the reader and the writer of scenarios use.

#pragma once

#include <iterator>
#include <string>
#include <string_view>

#include "agent/scenario.h"
#include "platform/rpc/rpc.h"

namespace agent {

// What a choice of words in the file stands for.
template <typename Enum>
struct Choice {
  std::string_view name;
  Enum value;
};

inline constexpr Choice<BrokerMode> kBrokerModes[] = {{"normal", BrokerMode::normal},
                                                      {"refused", BrokerMode::refused},
                                                      {"unanswered", BrokerMode::unanswered},
                                                      {"closing", BrokerMode::closing},
                                                      {"reset", BrokerMode::reset},
                                                      {"silent", BrokerMode::silent},
                                                      {"slow", BrokerMode::slow},
                                                      {"malformed", BrokerMode::malformed}};

inline constexpr Choice<Malformation> kMalformations[] = {
    {"identifier", Malformation::identifier},
    {"length_zero", Malformation::length_zero},
    {"length_short", Malformation::length_short},
    {"length_huge", Malformation::length_huge},
    {"too_many_words", Malformation::too_many_words},
    {"data_too_long", Malformation::data_too_long},
    {"cut", Malformation::cut},
    {"garbage", Malformation::garbage}};

inline constexpr Choice<Listening> kListenings[] = {{"yes", Listening::yes},
                                                    {"no", Listening::no},
                                                    {"mute", Listening::mute},
                                                    {"absent", Listening::absent}};

template <typename Enum, std::size_t N>
std::string_view name_of(Enum value, const Choice<Enum> (&choices)[N]) {
  for (const auto& one : choices)
    if (one.value == value)
      return one.name;
  return {};
}

// The product's interfaces.
inline constexpr Choice<const char*> kInterfaces[] = {
    {"rep", "5b3c82a0-17e4-0000-020a-141e28000000"},
    {"repView", "5d0e4c91-3a27-0000-020a-141e28000000"},
    {"repTimeFilter", "5d0e3b6a-c4f9-0000-020a-141e28000000"},
    {"repFilteredView", "5d0f9172-8e05-0000-020a-141e28000000"},
    {"repTemporalView", "5d0e6f08-b2d6-0000-020a-141e28000000"},
    {"ag", "5e61c7d3-a04b-0000-020a-141e32000000"},
};

}  // namespace agent
