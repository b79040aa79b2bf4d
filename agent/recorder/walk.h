// SPDX-License-Identifier: Apache-2.0
// What the walks over one agent share: their bounds, and whom they tell.

#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace agent::recorder {

// What all hosts together may fill of one file, so that it can be read again.
struct Room {
  std::size_t cells = 1'000'000;
  std::size_t octets = 40 * 1024 * 1024;  // of texts

  // False, with nothing taken, when there is no room for so much.
  bool take(std::size_t more_cells, std::size_t more_octets) {
    if (more_cells > cells || more_octets > octets)
      return false;
    cells -= more_cells;
    octets -= more_octets;
    return true;
  }
};

// One host's walk. Texts name things as the host does.
struct Walk {
  std::uint32_t hours = 1;                               // of rows
  unsigned level = 3;                                    // of time-outs
  std::function<void(const std::string& text)> step;     // what is being done
  std::function<void(const std::string& text)> detail;   // within a step, for who watches
  std::function<void(const std::string& text)> missing;  // what could not be had
  // Empty, or why nothing more is to be asked: the user, or the time that a host gets.
  std::function<std::string()> ended;
  Room* room = nullptr;  // never null
};

}  // namespace agent::recorder
