// SPDX-License-Identifier: Apache-2.0
// Databases of many systems for the benchmarks, in no order of their keys.

#pragma once

#include <string>

#include "source/sysdb/ZTsysRecords.h"

namespace bench {

SystemKey key_of(int system);
zt_SystemInfo_struct record_of(int system);

// Writes the file as a database makes it that has never lost a system.
void make_database(const std::string& path, int systems);

}  // namespace bench
