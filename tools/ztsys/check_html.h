// SPDX-License-Identifier: Apache-2.0
// The results of a check as one page for a browser. It needs nothing from outside and can be read
// without scripts; with them its table filters and sorts.

#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>
#include <string>

namespace ztsys {

// In the order in which the page counts and sorts them.
enum class PageState : std::uint8_t { failed, not_available, no_halvex, not_supported, succeeded };
inline constexpr std::size_t kPageStates = 5;

// One system. Texts are as they came; the page escapes them. All but name and state may be empty.
struct PageSystem {
  std::string name;
  std::string address;
  std::string group;
  PageState state = PageState::succeeded;
  std::string link;    // the broken link, "repository"
  std::string cause;   // "refused"
  std::string text;    // one sentence: what happened, to which address and port
  std::string advice;  // one sentence: what to try
  double milliseconds = 0;
};

// The whole page, for systems in the order of the check that began then and took so long.
std::string CheckPage(std::span<const PageSystem> systems, std::time_t began, double seconds);

}  // namespace ztsys
