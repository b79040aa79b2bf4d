// SPDX-License-Identifier: Apache-2.0
// One system as a JSON object, and the back-connect names of all.

#pragma once

#include <string>
#include <unordered_map>

#include "source/sysdb/ZTsysRecords.h"

namespace ztsys {

// The back-connect names of the installation by the systems' names.
using BackConnectNames = std::unordered_map<std::string, std::string>;
BackConnectNames ReadBackConnectNames();

// Every field of the record, without a line end.
std::string JsonOf(const zt_SystemInfo_class& info, const BackConnectNames& names);

}  // namespace ztsys
