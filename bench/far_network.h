// SPDX-License-Identifier: Apache-2.0
// A network behind a device of ours: what is sent to it arrives later, or never.

#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace bench {

// Needs the rights of a network namespace's owner. From here, 10.0.0.0/9 are addresses of the far
// network, and 10.128.0.0/9 those of nobody: what is sent there is swallowed. One at a time.
class FarNetwork {
 public:
  // A packet spends half the round trip on each way.
  explicit FarNetwork(std::chrono::milliseconds round_trip);
  ~FarNetwork();
  FarNetwork(const FarNetwork&) = delete;
  FarNetwork& operator=(const FarNetwork&) = delete;

  // Programs that `work` starts live in the far network.
  void there(const std::function<void()>& work) const;

 private:
  // Moves packets from one device to the other until the end.
  void carry(int from, int to) const;

  std::chrono::nanoseconds way_;
  int here_namespace_ = -1;
  int far_namespace_ = -1;
  int here_ = -1;
  int far_ = -1;
  std::atomic<bool> ended_ = false;
  std::thread outward_, homeward_;
};

}  // namespace bench
