// SPDX-License-Identifier: Apache-2.0
#include "source/domain/ZTsweep.h"

void zt_Sweep(sys::FiberLoop& loop, std::span<const SweepSystem> systems,
              const RoadSettings& settings,
              const std::function<void(std::size_t, const SweepResult&)>& done,
              const std::function<void(std::size_t)>& begun) {
  loop.run(systems.size(), [&](std::size_t index) {
    if (begun)
      begun(index);
    const auto start = std::chrono::steady_clock::now();
    SweepResult result{systems[index], {}};
    const SystemKey key = result.system.key;
    if (key == kNoSystemKey || key == 0) {
      result.report.failure = road_name_failure(result.system.name);
    } else {
      KnownSilence silence;
      RoadSettings own = settings;
      own.silence = &silence;
      result.report = ZTagentRoad(key, own).walk();
    }
    result.took = std::chrono::steady_clock::now() - start;
    done(index, result);
  });
}

std::string zt_SweepField(RoadState state) {
  constexpr std::size_t kWidth = 17;
  std::string field(road_state_words(state));
  field += ' ';
  field.resize(kWidth, '-');
  return field;
}
