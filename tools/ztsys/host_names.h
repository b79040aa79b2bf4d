// SPDX-License-Identifier: Apache-2.0
// Look-ups beside one another. A name server that does not answer must cost its time once and not
// for every system.

#pragma once

#include <chrono>
#include <string>
#include <unordered_map>
#include <vector>

#include "shared/general/SHsysNameConv.h"

namespace ztsys {

using HostNames = std::unordered_map<SystemKey, std::string>;  // by address
using Addresses = std::unordered_map<std::string, SystemKey>;  // by name

// The look-ups of one command, which together take five seconds at most. What has no name or
// address, or none in time, is not in the results. A name server that does not answer is told once.
class NameLookups {
 public:
  explicit NameLookups(bool numeric) : numeric_(numeric) {}  // true: looks nothing up

  HostNames NamesOf(std::vector<SystemKey> keys);
  Addresses AddressesOf(std::vector<std::string> names);

 private:
  void Charge(std::chrono::steady_clock::time_point start);

  bool numeric_;
  bool told_ = false;
  std::chrono::steady_clock::duration left_ = std::chrono::seconds(5);
};

// The same for what cannot go on without its addresses: takes as long as the resolver's own limits.
Addresses LookUpAddresses(std::vector<std::string> names);

}  // namespace ztsys
