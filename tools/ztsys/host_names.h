// SPDX-License-Identifier: Apache-2.0
// Look-ups beside one another. A name server that does not answer must cost its time once and not
// for every system.

#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "shared/general/SHsysNameConv.h"

namespace ztsys {

// Host names by address: of those that answer within five seconds in all.
using HostNames = std::unordered_map<SystemKey, std::string>;
HostNames LookUpHostNames(std::vector<SystemKey> keys);

// Addresses by name, of those that have one. Takes as long as the resolver's own limits.
using Addresses = std::unordered_map<std::string, SystemKey>;
Addresses LookUpAddresses(std::vector<std::string> names);

}  // namespace ztsys
