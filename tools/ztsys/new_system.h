// SPDX-License-Identifier: Apache-2.0
// What a system needs that is not in the database yet.

#pragma once

#include <optional>
#include <string>

#include "source/sysdb/ZTsysRecords.h"
#include "tools/ztsys/ztsys.h"

namespace ztsys {

// The address of a new system: the one that is given for it, the one that its name is, or the one
// that its name resolves to. `why` says what is wrong, with kUsage for what could never be right.
Status AddressOf(const std::string& name, const std::optional<std::string>& address, SystemKey& key,
                 std::string& why);

// What is wrong with a name for which no address was found.
std::string RefusalOfUnresolved(const std::string& name);

zt_SystemInfo_struct NewRecord(const std::string& name, const std::string& group, int type);

}  // namespace ztsys
