// SPDX-License-Identifier: Apache-2.0
// What the parts of `ztsys check` share: the systems that are checked, the counts, and the writers,
// one for each form of output.

#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "source/domain/ZTsweep.h"
#include "tools/ztsys/ztsys.h"

namespace ztsys {

// The systems that the command line names, each address once.
class CheckList {
 public:
  // Reads database and files; names are left to be looked up. Reports failures.
  Status Read(const Arguments& arguments);
  std::vector<SweepSystem>& systems() { return systems_; }
  // Takes a system that was looked up for the record of its address, if there is one. False when
  // its address is on the list already.
  bool Claim(SweepSystem* system);
  // kDamaged, reported, when the database ended within a record: systems may be missing.
  Status tail() const { return tail_; }

 private:
  Status Gather(const Arguments& arguments);
  Status ReadStored(const Arguments& arguments, std::vector<SweepSystem>* systems);

  std::vector<SweepSystem> systems_;
  std::unordered_map<SystemKey, SweepSystem> stored_;  // for what is looked up
  std::unordered_set<SystemKey> claimed_;
  Status tail_ = kDone;
};

struct CheckTotals {
  std::size_t systems = 0;  // that are to be checked
  std::size_t done = 0;
  std::array<std::size_t, 5> by_state{};  // by RoadState
  double seconds = 0;
  std::size_t of(RoadState state) const { return by_state[static_cast<std::size_t>(state)]; }
  std::size_t failed() const { return done - of(RoadState::succeeded); }
};

class CheckWriter {
 public:
  virtual ~CheckWriter() = default;
  virtual void Begin() {}
  // In the order in which the systems are done; `index` is their place in the list.
  virtual void System(std::size_t index, const SweepResult& result) = 0;
  // This system is another one's double and gets no result.
  virtual void LeftOut(std::size_t) {}
  virtual void End(const CheckTotals& totals) = 0;
  // In place of End when the check was stopped before its end.
  virtual void Stopped(const CheckTotals&) {}
};

// The writer of the form that the options ask for.
std::unique_ptr<CheckWriter> MakeCheckWriter(const Arguments& arguments, std::FILE* out);

// The plugin's exit status for these counts: 0 OK, 1 WARNING, 2 CRITICAL.
int PluginStatus(const Arguments& arguments, const CheckTotals& totals);

}  // namespace ztsys
