// SPDX-License-Identifier: Apache-2.0
// Many roads walked at once: one loop of fibers, a system begun as another one ends.

#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "platform/sys/fiber.h"
#include "shared/general/SHsysNameConv.h"
#include "source/domain/ZTagentRoad.h"

struct SweepSystem {
  // What is looked up, beside the loop, when the system's turn comes: its address by the name, or
  // this and the official name of the address.
  enum class LookUp : std::uint8_t { none, address, address_and_name };

  std::string name;
  std::string group = {};
  SystemKey key = kNoSystemKey;  // none: the name gave no address
  LookUp look_up = LookUp::none;
};

struct SweepResult {
  const SweepSystem& system;
  const RoadReport& report;
  std::chrono::duration<double> took{};
};

// What a sweep tells of the system with this index. None of them may wait. `begun` and `found` may
// be empty.
struct SweepEvents {
  std::function<void(std::size_t)> begun = {};
  // After a look-up, in the order of the list: may change the system, and leaves it out by `false`.
  std::function<bool(std::size_t)> found = {};
  std::function<void(std::size_t, const SweepResult&)> done;
};

// Walks the road to every system, as many at once as the loop lets, and hands each result out as
// soon as it is there. Nothing of a system is kept afterwards. A system whose address is being
// asked already takes the answer that comes, so that no agent sees two checks at once.
void zt_Sweep(sys::FiberLoop& loop, std::span<SweepSystem> systems, const RoadSettings& settings,
              const SweepEvents& events);

// What the roads of a sweep are walked with, looked at once for all: the broker's port and the
// addresses that are ignored.
class SweepSettings {
 public:
  // `silence` is what the run knows to be silent; without one, nothing of a system is kept.
  explicit SweepSettings(std::uint32_t timeout_level, KnownSilence* silence = nullptr);
  SweepSettings(const SweepSettings&) = delete;
  SweepSettings& operator=(const SweepSettings&) = delete;
  const RoadSettings& road() const { return road_; }

 private:
  std::vector<std::int32_t> ignored_;
  RoadSettings road_;
};

// How many of so many systems at once the descriptors suffice for that this process may open, 0 if
// not for one; the process's own limit is raised where that helps.
unsigned zt_SweepJobs(unsigned wanted);

// The state's words and hyphens, 17 characters wide.
std::string zt_SweepField(RoadState state);
