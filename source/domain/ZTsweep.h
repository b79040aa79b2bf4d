// SPDX-License-Identifier: Apache-2.0
// Many roads walked at once: one loop of fibers, a system begun as another one ends.

#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <span>
#include <string>

#include "platform/sys/fiber.h"
#include "shared/general/SHsysNameConv.h"
#include "source/domain/ZTagentRoad.h"

struct SweepSystem {
  std::string name;
  std::string group;
  SystemKey key = kNoSystemKey;  // none: the name gave no address
};

struct SweepResult {
  const SweepSystem& system;
  RoadReport report;
  std::chrono::duration<double> took{};
};

// Walks the road to every system, as many at once as the loop lets, and hands each result out as
// soon as it is there, with the system's index. Nothing of a system is kept afterwards. `begun`
// (may be empty) is told of each system as its turn comes.
void zt_Sweep(sys::FiberLoop& loop, std::span<const SweepSystem> systems,
              const RoadSettings& settings,
              const std::function<void(std::size_t, const SweepResult&)>& done,
              const std::function<void(std::size_t)>& begun = {});

// The state's words and hyphens, 17 characters wide.
std::string zt_SweepField(RoadState state);
